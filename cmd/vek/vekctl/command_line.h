/*
 * command_line.h - from the arguments to the command and its exit status.
 */
#ifndef VEKCTL_COMMAND_LINE_H
#define VEKCTL_COMMAND_LINE_H

#include "vekctl/options.h"

namespace vekctl {

// Runs the command that the arguments name. A usage error is told in one line on standard error,
// with what was meant. Result: the exit status.
[[nodiscard]] int runCommandLine(int argumentCount, char **arguments);

} // namespace vekctl

#endif
