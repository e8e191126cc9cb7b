/*
 * typed_value.h - takes the value of a credential from a person or from a pipe.
 */
#ifndef VEKCTL_TYPED_VALUE_H
#define VEKCTL_TYPED_VALUE_H

#include "vekctl/secret.h"

#include <string>

namespace vekctl {

// Takes a value from standard input: on a terminal it is asked for twice, without echo; else it is
// all that comes, less one line end. Empty: done; else why not.
[[nodiscard]] std::string takeValue(const std::string &prompt, Secret *value);

} // namespace vekctl

#endif
