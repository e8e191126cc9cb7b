/*
 * key_file_look.h - what is to be said of an initial key file: its form, and who else may use it.
 */
#ifndef VEKCTL_KEY_FILE_LOOK_H
#define VEKCTL_KEY_FILE_LOOK_H

#include "vekctl/findings.h"
#include "vekctl/key.h"

#include <map>
#include <vector>

namespace vekctl {

enum class KeyForm { builtIn, raw, hexadecimal, base64, passphrase, pipe, unusable };

[[nodiscard]] const char *nameOf(KeyForm form);

struct KeyLook {
    KeyForm form = KeyForm::builtIn;
    std::vector<Finding> findings;
};

// Looks at a source: at the file itself for its rights, and through the PBE service for its form.
[[nodiscard]] KeyLook lookAtKey(const KeySource &source);

} // namespace vekctl

#endif
