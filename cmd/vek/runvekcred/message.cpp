/*
 * message.cpp - numbered messages of the command.
 */
#include "runvekcred/runvekcred.h"

static SvcMiniSubpool contextCopy;

constexpr char SOURCE[] = "cmd/vek/runvekcred";
constexpr uint32_t MESSAGE_OPTIONS = 0x20;

SvcMiniSubpool *takeMessageContext() {
    contextCopy = svcIC_MINI_SUBPOOL;
    return &contextCopy;
}

const SvcMiniSubpool &messageContext() {
    return contextCopy;
}

void showMessage(uint32_t number, const SvcMessageInserts &inserts, int32_t sourceLine) {
    (void)svcDisplayMessageForError(contextCopy.handle, contextCopy.word, number, inserts,
                                    MESSAGE_OPTIONS, SOURCE, sourceLine);
}
