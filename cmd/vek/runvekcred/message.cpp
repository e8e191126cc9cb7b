/*
 * message.cpp - shows messages with the context of the process.
 */
#include "runvekcred/message.h"

namespace runvekcred {

namespace {

constexpr char SOURCE[] = "cmd/vek/runvekcred";
constexpr uint32_t MESSAGE_OPTIONS = 0x20;

SvcMiniSubpool contextCopy;

} // namespace

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

} // namespace runvekcred
