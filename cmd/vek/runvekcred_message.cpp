/*
 * runvekcred_message.cpp - numbered messages of the command.
 */
#include "runvekcred.h"

static SvcMiniSubpool messageContext;

constexpr char SOURCE[] = "cmd/vek/runvekcred";
constexpr uint32_t MESSAGE_OPTIONS = 0x20;

SvcMiniSubpool *takeMessageContext() {
    messageContext = svcIC_MINI_SUBPOOL;
    return &messageContext;
}

void showMessage(uint32_t number, const SvcMessageInserts &inserts, int32_t sourceLine) {
    (void)svcDisplayMessageForError(messageContext.handle, messageContext.word, number, inserts,
                                    MESSAGE_OPTIONS, SOURCE, sourceLine);
}
