/*
 * protect.h - what the command protect does to one file; the tests call it for files without
 * number.
 */
#ifndef VEKCTL_PROTECT_H
#define VEKCTL_PROTECT_H

#include "vekctl/change_plan.h"

namespace vekctl {

// Plans that every credential is stored encrypted and found and opened by its reader, and that no
// marker is left that no reader looks at. `session` is that of the plan. False: the plan's problem
// tells why.
[[nodiscard]] bool planProtection(const CredentialLines &lines, ChangePlan *plan,
                                  CipherSession *session);

} // namespace vekctl

#endif
