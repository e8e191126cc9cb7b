/*
 * error_text.h - what is said of numbers: what happened, and of the system's errors what to do.
 */
#ifndef VEKCTL_ERROR_TEXT_H
#define VEKCTL_ERROR_TEXT_H

#include <cstdint>
#include <string>

namespace vekctl {

[[nodiscard]] std::string errorText(int errorNumber);

// A result of a reader, or a reason code of the service with what it means.
[[nodiscard]] std::string codeText(uint32_t code);

} // namespace vekctl

#endif
