/*
 * key.cpp - chooses the key source, opens cipher sessions and keeps them.
 */
#include "vekctl/key.h"

#include "shared.h"
#include "sztoumaa/built_in_key.h"
#include "sztoumaa/key_source.h"
#include "vekctl/error_text.h"
#include "ztsvc.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace vekctl {

namespace {

// The service does not say it; another look at the file does.
std::string whyUnreadable(const std::string &path, const std::string &otherwise) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0)
        return errorText(errno);
    return S_ISDIR(status.st_mode) ? errorText(EISDIR) : otherwise;
}

} // namespace

std::string KeySource::describe() const {
    switch (origin) {
    case KeyOrigin::option:
        return "the key file '" + path + "'";
    case KeyOrigin::environment:
        return "the key file '" + path + "' that " + vek::KEY_FILE_VARIABLE + " names";
    case KeyOrigin::section:
        return "the key file '" + path + "' that vekcred.keyfile names";
    case KeyOrigin::builtIn:
        break;
    }
    return "the built-in key";
}

KeySource chooseKeySource(const std::string *option, const std::string &sectionPath) {
    if (option != nullptr && *option == "built-in")
        return {};
    if (option != nullptr)
        return {KeyOrigin::option, *option};
    const vek::KeySource chosen = vek::chooseKeySource(sectionPath.c_str());
    switch (chosen.origin) {
    case vek::KeyOrigin::variable:
        return {KeyOrigin::environment, chosen.path};
    case vek::KeyOrigin::section:
        return {KeyOrigin::section, chosen.path};
    case vek::KeyOrigin::builtIn:
        break;
    }
    return {};
}

CipherSession::CipherSession(const KeySource &source, bool fips) : keySource(source) {
    if (source.isBuiltIn()) {
        builtInKey.resize(SVC_PBE_KEY_LENGTH);
        session.key = reinterpret_cast<uint8_t *>(builtInKey.data());
        session.keyLength = SVC_PBE_KEY_LENGTH;
        vek::buildDefaultKey(
            std::span<uint8_t, SVC_PBE_KEY_LENGTH>(session.key, SVC_PBE_KEY_LENGTH));
    } else {
        openReason =
            svcPBEReadInitialKeyFile(source.path.c_str(), &session.key, &session.keyLength);
    }
    if (openReason != SVC_PBE_OK)
        return;
    salt.resize(SVC_PBE_SALT_LENGTH);
    session.salt = reinterpret_cast<uint8_t *>(salt.data());
    session.saltLength = SVC_PBE_SALT_LENGTH;
    vek::buildFixedSalt(std::span<uint8_t, SVC_PBE_SALT_LENGTH>(session.salt, SVC_PBE_SALT_LENGTH));
    session.algorithm = SVC_PBE_ALGORITHM_LATEST;
    session.label = vek::LABEL;
    session.fips = fips ? 1 : 0;
    openReason = svcPBEInit(svcIC_MINI_SUBPOOL.handle, svcIC_MINI_SUBPOOL.word, &session);
}

CipherSession::~CipherSession() {
    (void)svcPBETerm(&session, SVC_PBE_TERM_CLOSE);
    if (!keySource.isBuiltIn())
        (void)svcPBEFreeBuf(session.key, session.keyLength);
    svcWipe(&session, sizeof session);
}

std::string CipherSession::problem() const {
    const char *const text = svcPBEReasonText(openReason);
    std::string cause = text == nullptr ? "unknown reason" : text;
    if (openReason == SVC_PBE_KEY_FILE_UNREADABLE)
        cause = whyUnreadable(keySource.path, cause);
    if (openReason == SVC_PBE_KEY_FILE_BAD_LENGTH)
        cause += "; vekctl keygen makes a key file";
    const char *const mode = openReason == SVC_PBE_FIPS_NOT_AVAILABLE ? " with FIPS" : "";
    return keySource.describe() + " cannot be used" + mode + ": " + cause;
}

uint32_t CipherSession::fingerprint(std::string *text) {
    char digits[SVC_PBE_FINGERPRINT_LENGTH + 1];
    const uint32_t result = svcPBEFingerprint(&session, digits);
    *text = digits;
    return result;
}

uint32_t CipherSession::save(std::string_view clearText, std::string *storedText) {
    char *text = nullptr;
    int32_t length = 0;
    const uint32_t result = svcPBESave(&session, clearText.data(),
                                       static_cast<int32_t>(clearText.size()), &text, &length);
    if (result == SVC_PBE_OK)
        storedText->assign(text, static_cast<size_t>(length));
    (void)svcPBEFreeBuf(text, length);
    return result;
}

uint32_t CipherSession::restore(std::string_view storedText, Secret *clearText) {
    char *text = nullptr;
    int32_t length = 0;
    const uint32_t result =
        svcPBERestore(&session, storedText.data(), static_cast<int32_t>(storedText.size()),
                      /* algorithm= */ nullptr, &text, &length);
    clearText->clear();
    if (result == SVC_PBE_OK)
        clearText->append({text, static_cast<size_t>(length)});
    (void)svcPBEFreeBuf(text, length);
    return result;
}

CipherSession &KeyRing::session(const KeySource &source, bool fips) {
    const bool withFips = fips || fipsAlways;
    std::unique_ptr<CipherSession> &kept = sessions[{source, withFips}];
    if (kept == nullptr)
        kept = std::make_unique<CipherSession>(source, withFips);
    return *kept;
}

std::vector<std::string> KeyRing::files() const {
    std::vector<std::string> paths;
    for (const auto &[source, session] : sessions)
        if (!source.first.isBuiltIn())
            paths.push_back(source.first.path);
    return paths;
}

} // namespace vekctl
