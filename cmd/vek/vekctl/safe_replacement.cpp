/*
 * safe_replacement.cpp - builds a new file beside the old one, and renames it over that.
 */
#include "vekctl/safe_replacement.h"

#include "shared/held_back_signals.h"
#include "shared/new_bytes.h"
#include "vekctl/error_text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace vekctl {
namespace {

constexpr int LINKS_FOLLOWED = 40; // as the kernel has it
constexpr mode_t PRIVATE_MODE = 0600;
constexpr mode_t OTHERS_WRITE = S_IWGRP | S_IWOTH;
constexpr size_t READ_BACK_SIZE = 65536;

// The part of a path up to its last "/", which a link in that folder is relative to.
std::string folderOf(const std::string &path) {
    return path.substr(0, path.rfind('/') + 1);
}

// Removes a file at its end; one that has got another name by then is not there any more.
class RemovedAtEnd {
public:
    RemovedAtEnd(const replacement::LockedDirectory &itsFolder, const std::string &itsPath)
        : folder(itsFolder), filePath(itsPath) {}
    RemovedAtEnd(const RemovedAtEnd &) = delete;
    RemovedAtEnd &operator=(const RemovedAtEnd &) = delete;
    ~RemovedAtEnd() {
        (void)folder.remove(filePath.c_str());
    }

private:
    const replacement::LockedDirectory &folder;
    const std::string &filePath;
};

bool isSameFile(const struct stat &one, const struct stat &other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool isSame(const timespec &left, const timespec &right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

// The time of the last change of the inode tells of a new hard link, owner or mode too.
bool isUntouched(const struct stat &before, const struct stat &now) {
    return isSameFile(before, now) && before.st_size == now.st_size &&
           isSame(before.st_mtim, now.st_mtim) && isSame(before.st_ctim, now.st_ctim);
}

// The kernel measures the content itself for these, so those of the old content would be wrong.
bool isMeasuredAttribute(const std::string &name) {
    return name == "security.ima" || name == "security.evm";
}

using Attribute = std::vector<char>;

std::optional<std::vector<std::string>> attributeNames(int file) {
    const ssize_t room = flistxattr(file, nullptr, 0);
    if (room < 0)
        return errno == ENOTSUP ? std::optional(std::vector<std::string>()) : std::nullopt;
    std::vector<char> list(static_cast<size_t>(room));
    const ssize_t length = flistxattr(file, list.data(), list.size());
    if (length < 0)
        return std::nullopt;
    std::vector<std::string> names;
    for (const char *name = list.data(); name < list.data() + length;
         name += names.back().size() + 1)
        names.emplace_back(name);
    std::erase_if(names, isMeasuredAttribute);
    return names;
}

std::optional<Attribute> readAttribute(int file, const std::string &name) {
    const ssize_t room = fgetxattr(file, name.c_str(), nullptr, 0);
    if (room < 0)
        return std::nullopt;
    Attribute value(static_cast<size_t>(room));
    const ssize_t length = fgetxattr(file, name.c_str(), value.data(), value.size());
    if (length < 0)
        return std::nullopt;
    value.resize(static_cast<size_t>(length));
    return value;
}

// Some attributes cannot be set by everybody, but are right already in a file of the same folder.
bool copyAttribute(int from, int to, const std::string &name) {
    const std::optional<Attribute> value = readAttribute(from, name);
    if (!value)
        return false;
    return readAttribute(to, name) == value ||
           fsetxattr(to, name.c_str(), value->data(), value->size(), /* flags= */ 0) == 0;
}

// A folder may hand a list of rights to each new file; what the old file does not have goes first.
bool copyExtendedAttributes(int from, int to) {
    const auto wanted = attributeNames(from);
    const auto inherited = attributeNames(to);
    if (!wanted || !inherited)
        return false;
    for (const std::string &name : *inherited) {
        const bool isWanted = std::find(wanted->begin(), wanted->end(), name) != wanted->end();
        if (!isWanted && fremovexattr(to, name.c_str()) != 0)
            return false;
    }
    return std::all_of(wanted->begin(), wanted->end(),
                       [=](const std::string &name) { return copyAttribute(from, to, name); });
}

bool isFixed(int file) {
    struct statx status = {};
    return statx(file, "", AT_EMPTY_PATH, /* mask= */ 0, &status) == 0 &&
           (status.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0;
}

} // namespace

bool SafeReplacement::fail(std::string problem) {
    failure = std::move(problem);
    return false;
}

bool SafeReplacement::failWith(int error, const char *step) {
    return fail(std::string(step) + ": " + errorText(error));
}

std::string temporaryPathOf(const std::string &path) {
    const size_t name = folderOf(path).size();
    return path.substr(0, name) + "." + path.substr(name) + ".vekctl";
}

bool SafeReplacement::open(const std::string &path, const ReplacementRules &rules) {
    filePath = path;
    if (!followLinks()) {
        // A run of runvekcred is without the file for a moment, and has the lock meanwhile.
        folder.emplace(filePath.c_str());
        folder.reset();
        filePath = path;
        if (!followLinks())
            return false;
    }
    if (!openFolder())
        return false;
    temporaryPath = temporaryPathOf(filePath);
    if (!rules.dryRun)
        (void)folder->remove(temporaryPath.c_str());
    return openFile(rules.breakLinks);
}

bool SafeReplacement::followLinks() {
    for (int count = 0; count <= LINKS_FOLLOWED; ++count) {
        struct stat status;
        if (lstat(filePath.c_str(), &status) != 0)
            return failWith(errno, "cannot be read");
        if (!S_ISLNK(status.st_mode))
            return true;
        std::array<char, PATH_MAX> target;
        const ssize_t length = readlink(filePath.c_str(), target.data(), target.size());
        if (length <= 0)
            return failWith(errno, "the link cannot be read");
        const std::string text(target.data(), static_cast<size_t>(length));
        filePath = text.front() == '/' ? text : folderOf(filePath) + text;
    }
    return failWith(ELOOP, "cannot be read");
}

// In a folder of somebody else, that somebody could put other files in the way of each step. A file
// system without locks is no reason to stop; a lock that another program has kept through the wait
// is one.
bool SafeReplacement::openFolder() {
    folder.emplace(filePath.c_str());
    struct stat status;
    if (fstat(folder->descriptor(), &status) != 0)
        return fail("its folder cannot be opened; run as the owner of the file");
    if (status.st_uid != 0 && status.st_uid != geteuid())
        return fail(
            "its folder belongs to another user; run as its owner, who must own the file too");
    if ((status.st_mode & OTHERS_WRITE) != 0)
        return fail("others can write to its folder; move it to one that only its owner can write "
                    "to, or take that right away (chmod go-w)");
    if (flock(folder->descriptor(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return fail("another program keeps its folder locked; run again when that has ended");
    return true;
}

bool SafeReplacement::openFile(bool breakLinks) {
    constexpr int FLAGS = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const std::string name = filePath.substr(folderOf(filePath).size());
    file.reset(openat(folder->descriptor(), name.c_str(), FLAGS));
    if (!file || fstat(file.get(), &opened) != 0)
        return failWith(errno, "cannot be read");
    if (S_ISDIR(opened.st_mode))
        return fail("is a folder; name the file in it");
    if (!S_ISREG(opened.st_mode))
        return fail("is not a regular file");
    if (opened.st_nlink > 1 && !breakLinks)
        return fail("has a second name (hard link), which would keep the old content; "
                    "--break-links replaces this name only");
    return true;
}

bool SafeReplacement::isFile(const std::string &path) const {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && isSameFile(status, opened);
}

size_t SafeReplacement::size() const {
    return static_cast<size_t>(opened.st_size);
}

bool SafeReplacement::read(std::span<char> content) {
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t length = pread(file.get(), content.data() + done, content.size() - done,
                                     static_cast<off_t>(done));
        if (length < 0 && errno == EINTR)
            continue;
        if (length < 0)
            return failWith(errno, "cannot be read");
        if (length == 0)
            return fail("was changed by another program meanwhile; run again");
        done += static_cast<size_t>(length);
    }
    return true;
}

bool SafeReplacement::replaceWith(std::string_view content) {
    const replacement::HeldBackSignals signals;
    if (isFixed(file.get()))
        return fail("is immutable or append-only; allow changes first (chattr -i -a)");
    temporary.reset(folder->createAnew(temporaryPath.c_str(), PRIVATE_MODE));
    if (!temporary)
        return failWith(errno, "no new file can be made in its folder");
    const RemovedAtEnd leftover(*folder, temporaryPath);
    if (!build(content))
        return false;
    if (signals.isPending())
        return fail("stopped by a signal; it is as it was");
    return putInPlace();
}

bool SafeReplacement::build(std::string_view content) {
    if (!write(content) || !verify(content) || !copyAttributes())
        return false;
    // Owner and rights as well.
    if (fsync(temporary.get()) != 0 && errno != EINVAL && errno != ENOSYS)
        return failWith(errno, "the new file cannot be put on the disk");
    return true;
}

bool SafeReplacement::write(std::string_view content) {
    const int target = temporary.get();
    int error = replacement::reserveRoom(target, static_cast<int64_t>(content.size()));
    if (error == 0)
        error = replacement::writeBytes(target, content);
    replacement::giveBackRoom(target);
    if (error == 0)
        error = replacement::syncBytes(target);
    return error == 0 || failWith(error, "the new file cannot be written");
}

// Reads the new file back; it may hold credentials of the old one in clear, so the buffer is wiped.
bool SafeReplacement::verify(std::string_view content) {
    const ztm::Descriptor written(folder->openToRead(temporaryPath.c_str()));
    std::vector<char> buffer(READ_BACK_SIZE);
    bool isSame = true;
    for (size_t done = 0; isSame && done <= content.size();) {
        const ssize_t length =
            pread(written.get(), buffer.data(), buffer.size(), static_cast<off_t>(done));
        if (length < 0 && errno == EINTR)
            continue;
        const size_t count = static_cast<size_t>(std::max<ssize_t>(length, 0));
        if (count == 0) {
            isSame = done == content.size();
            break;
        }
        isSame = content.substr(done, count) == std::string_view(buffer.data(), count);
        done += count;
    }
    explicit_bzero(buffer.data(), buffer.size());
    return isSame ||
           fail("the new file did not read back as it was written; the disk may be failing");
}

// Lists of rights come before the mode: with an inherited list, the mode would open the file to
// others.
bool SafeReplacement::copyAttributes() {
    const int target = temporary.get();
    struct stat made;
    if (fstat(target, &made) != 0)
        return failWith(errno, "the new file cannot be looked at");
    if ((made.st_uid != opened.st_uid || made.st_gid != opened.st_gid) &&
        fchown(target, opened.st_uid, opened.st_gid) != 0)
        return failWith(errno, made.st_uid != opened.st_uid
                                   ? "its owner cannot be kept"
                                   : "its group, of which the user is no member, cannot be kept");
    if (!copyExtendedAttributes(file.get(), target))
        return failWith(errno, "its access list or extended attributes cannot be kept");
    if (fchmod(target, opened.st_mode & ALLPERMS) != 0)
        return failWith(errno, "its mode cannot be kept");
    return true;
}

bool SafeReplacement::checkUnchanged() {
    struct stat now;
    if (folder->look(filePath.c_str(), &now) != 0 || !isUntouched(opened, now))
        return fail("was changed or replaced by another program meanwhile; run again");
    struct stat made;
    struct stat named;
    if (fstat(temporary.get(), &made) != 0 || folder->look(temporaryPath.c_str(), &named) != 0 ||
        !isSameFile(made, named))
        return fail("another program took the new file away; run again");
    return true;
}

bool SafeReplacement::putInPlace() {
    if (!checkUnchanged())
        return false;
    if (folder->moveOnto(temporaryPath.c_str(), filePath.c_str()) != 0)
        return failWith(errno, "the new file cannot take its place");
    folder->sync();
    return true;
}

} // namespace vekctl
