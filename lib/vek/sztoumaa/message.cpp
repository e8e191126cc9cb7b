/*
 * message.cpp - numbered messages of the library, and the flag that switches them.
 */
#include "sztoumaa/message.h"

#include "ztvek.h"

#define TRC_SOURCE "lib/vek/sztoumaa"

uint32_t sztUseLogErrorMessage = 1;

void vek::showMessage(uint32_t number, const SvcMessageInserts &inserts, int32_t line) {
    constexpr uint32_t MESSAGE_OPTIONS = 0xF0000001;
    if (sztUseLogErrorMessage == 0)
        return;
    (void)svcDisplayMessageForError(svcIC_MINI_SUBPOOL.handle, svcIC_MINI_SUBPOOL.word, number,
                                    inserts, MESSAGE_OPTIONS, TRC_SOURCE, line);
}
