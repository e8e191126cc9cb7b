/*
 * message.h - numbered messages of the library; private to the readers.
 */
#ifndef SZTOUMAA_MESSAGE_H
#define SZTOUMAA_MESSAGE_H

#include "ztsvc.h"

namespace vek {

// showMessage shows a numbered message (enum SvcMessageNumber) while sztUseLogErrorMessage is not
// 0. `line` is the caller's source line. This is the only place where the library writes to
// standard error.
void showMessage(uint32_t number, const SvcMessageInserts &inserts,
                 int32_t line = __builtin_LINE());

} // namespace vek

#endif
