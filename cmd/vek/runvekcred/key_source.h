/*
 * key_source.h - where the initial key comes from, and the cipher session of the command.
 */
#ifndef RUNVEKCRED_KEY_SOURCE_H
#define RUNVEKCRED_KEY_SOURCE_H

#include "runvekcred/new_file.h"
#include "runvekcred/options.h"
#include "ztpbe.h"

#include <cstdint>

namespace runvekcred {

// The cipher session with the key material that lies with the command. At its end it is closed, and
// all key material is wiped.
class CipherSession {
public:
    CipherSession() = default;
    CipherSession(const CipherSession &) = delete;
    CipherSession &operator=(const CipherSession &) = delete;
    ~CipherSession();

    // Chooses the initial key and opens the session. Result: 0, or the reason code of the failure,
    // which was shown.
    [[nodiscard]] int32_t open(const CommandSettings &settings, const RunFiles &files);

    [[nodiscard]] SvcPBESession *get() {
        return &record;
    }

private:
    int32_t chooseKey(const char *keyFilePath, const RunFiles &files);
    int32_t useKeyFile(const char *path, const RunFiles &files);
    int32_t useConfiguredKey(const RunFiles &files);
    void useDefaultKey();

    SvcPBESession record = {};
    uint8_t defaultKey[SVC_PBE_KEY_LENGTH] = {};
    uint8_t salt[SVC_PBE_SALT_LENGTH] = {};
    bool isOpen = false;
};

} // namespace runvekcred

#endif
