/*
 * message.h - numbered messages of the command.
 */
#ifndef RUNVEKCRED_MESSAGE_H
#define RUNVEKCRED_MESSAGE_H

#include "ztsvc.h"

namespace runvekcred {

// Takes the process-wide copy of the message context; it belongs to every message and session.
[[nodiscard]] SvcMiniSubpool *takeMessageContext();
[[nodiscard]] const SvcMiniSubpool &messageContext();

// Shows a numbered message of the command, whatever sztUseLogErrorMessage says.
void showMessage(uint32_t number, const SvcMessageInserts &inserts, int32_t sourceLine);

} // namespace runvekcred

#endif
