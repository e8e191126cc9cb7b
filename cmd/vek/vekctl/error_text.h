/*
 * error_text.h - what is said of an error number of the system: what happened, and what to do.
 */
#ifndef VEKCTL_ERROR_TEXT_H
#define VEKCTL_ERROR_TEXT_H

#include <string>

namespace vekctl {

[[nodiscard]] std::string errorText(int errorNumber);

} // namespace vekctl

#endif
