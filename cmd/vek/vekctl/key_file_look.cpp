/*
 * key_file_look.cpp - rights and form of an initial key file.
 */
#include "vekctl/key_file_look.h"

#include "vekctl/file_text.h"

#include "common/guards.h"

#include <algorithm>
#include <cctype>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vekctl {

namespace {

constexpr size_t HEXADECIMAL_LENGTH = 64;
constexpr size_t BASE64_LENGTH = 44;

bool isHexadecimal(std::string_view text) {
    return std::ranges::all_of(text, [](unsigned char digit) { return isxdigit(digit) != 0; });
}

bool isBase64(std::string_view text) {
    return std::ranges::all_of(text, [](unsigned char letter) {
        return isalnum(letter) != 0 || letter == '+' || letter == '/';
    });
}

std::string_view withoutLineEnd(std::string_view text) {
    if (text.ends_with('\n'))
        text.remove_suffix(1);
    if (text.size() > 0 && text.ends_with('\r'))
        text.remove_suffix(1);
    return text;
}

// What a passphrase was probably meant to be, or null.
const char *flawOf(std::string_view content) {
    const std::string_view text = withoutLineEnd(content);
    if (text.starts_with("\xef\xbb\xbf") || text.starts_with("\xff\xfe"))
        return "a byte order mark stands in front";
    const bool isNearlyHexadecimal =
        text.size() + 1 >= HEXADECIMAL_LENGTH && text.size() <= HEXADECIMAL_LENGTH + 1;
    if (isNearlyHexadecimal && isHexadecimal(text))
        return text.size() == HEXADECIMAL_LENGTH ? nullptr : "it has one digit too few or too many";
    if (text.size() == BASE64_LENGTH - 1 && isBase64(text))
        return "the \"=\" at the end of its base64 is missing";
    if (content.size() == SVC_PBE_KEY_LENGTH - 1 || content.size() == SVC_PBE_KEY_LENGTH + 1)
        return "it has one byte too few or too many";
    return nullptr;
}

// The content of a regular file; a pipe can be read only once, and the session needs it.
Secret contentOf(int file) {
    Secret content;
    content.resize(SVC_PBE_KEY_FILE_LIMIT);
    const ssize_t count = read(file, content.data(), content.size());
    content.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return content;
}

KeyForm formOf(const std::string &path, size_t contentLength) {
    ztm::Memory<uint8_t> key;
    int32_t length = 0;
    if (svcPBEReadInitialKeyFile(path.c_str(), key.receive(), &length) != SVC_PBE_OK)
        return KeyForm::unusable;
    if (length != SVC_PBE_KEY_LENGTH)
        return KeyForm::passphrase;
    if (contentLength == SVC_PBE_KEY_LENGTH)
        return KeyForm::raw;
    return contentLength >= HEXADECIMAL_LENGTH ? KeyForm::hexadecimal : KeyForm::base64;
}

void lookAtRights(const struct stat &status, const std::string &name, KeyLook *look) {
    const bool isWritable = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (isWritable || (status.st_mode & S_IROTH) != 0)
        look->findings.push_back({Code::keyMode, isWritable ? Level::error : Level::warning, 0, "",
                                  (isWritable ? "they can change " : "they can read ") + name});
    if (status.st_uid != 0 && status.st_uid != geteuid())
        look->findings.push_back({Code::keyOwner, Level::warning, 0, "", name});
}

void lookAtPassphrase(std::string_view content, const std::string &name, KeyLook *look) {
    const char *const flaw = flawOf(content);
    if (flaw != nullptr)
        look->findings.push_back({Code::keyForm, Level::warning, 0, "", name + ": " + flaw});
    if (withoutLineEnd(content).size() < SVC_PBE_FIPS_PASSPHRASE_MINIMUM)
        look->findings.push_back({Code::keyWeak, Level::warning, 0, "", name});
}

} // namespace

const char *nameOf(KeyForm form) {
    switch (form) {
    case KeyForm::builtIn:
        return "built-in";
    case KeyForm::raw:
        return "raw";
    case KeyForm::hexadecimal:
        return "hexadecimal";
    case KeyForm::base64:
        return "base64";
    case KeyForm::passphrase:
        return "passphrase";
    case KeyForm::pipe:
        return "pipe";
    case KeyForm::unusable:
        break;
    }
    return "unusable";
}

KeyLook lookAtKey(const KeySource &source) {
    KeyLook look;
    if (source.isBuiltIn())
        return look;
    look.form = KeyForm::unusable;
    struct stat status = {};
    const ztm::Descriptor file(open(source.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file || fstat(file.get(), &status) != 0)
        return look;
    if (!S_ISREG(status.st_mode)) {
        look.form = S_ISDIR(status.st_mode) ? KeyForm::unusable : KeyForm::pipe;
        return look;
    }
    const std::string name = "'" + source.path + "'";
    lookAtRights(status, name, &look);
    const Secret content = contentOf(file.get());
    look.form = formOf(source.path, content.size());
    if (look.form == KeyForm::passphrase)
        lookAtPassphrase(content.view(), name, &look);
    return look;
}

} // namespace vekctl
