/*
 * error_text.cpp - the meaning of error numbers, results and reason codes.
 */
#include "vekctl/error_text.h"

#include "ztvek.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace vekctl {

namespace {

struct ErrorText {
    int error;
    const char *text;
};

constexpr ErrorText ERROR_TEXTS[] = {
    {ENOENT, "there is no such file or folder; correct the name"},
    {ENOTDIR, "a part of the name is no folder; correct the name"},
    {EISDIR, "it is a folder; name the file in it"},
    {EEXIST, "something is there already; name another file"},
    {ENOSPC, "the disk is full; make room and run again"},
    {EDQUOT, "the disk quota is used up; make room and run again"},
    {EFBIG, "the file size limit is too low; raise it (ulimit -f) and run again"},
    {EBUSY, "something is mounted there, or uses it; change the file where it really lies"},
    {EROFS, "the file system is read-only; remount it for writing"},
    {EACCES, "there is no right to do it; run as the owner of the file and its folder, or as root"},
    {EPERM,
     "the system forbids it; run as the owner, and see lsattr for an immutable file or folder"},
    {ELOOP, "too many symbolic links; name the file itself"},
    {ENAMETOOLONG, "the name is too long; use a shorter one"},
    {EINTR, "stopped by a signal; run again"},
};

} // namespace

std::string errorText(int errorNumber) {
    for (const ErrorText &known : ERROR_TEXTS)
        if (known.error == errorNumber)
            return known.text;
    return strerror(errorNumber);
}

std::string codeText(uint32_t code) {
    const char *const reason =
        code == SZTU_KEY_NOT_PRESENT ? "the key is not there" : svcPBEReasonText(code);
    char number[sizeof "0x12345678"];
    (void)snprintf(number, sizeof number, code > 0xff ? "0x%08x" : "%u", code);
    return reason == nullptr ? number : std::string(number) + ", as " + reason;
}

} // namespace vekctl
