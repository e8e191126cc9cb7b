/*
 * keygen.cpp - the command that makes an initial key file.
 *
 * The bytes are those of the system's generator. Nothing that is there is ever written over: a lost
 * key is lost with everything that it protects.
 */
#include "vekctl/commands.h"
#include "vekctl/error_text.h"
#include "vekctl/report.h"
#include "vekctl/secret.h"

#include "common/guards.h"
#include "shared/new_bytes.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vekctl {

namespace {

struct Options {
    CommonOptions common;
    bool dryRun = false;
    std::vector<std::string> files;
};

bool fillWithRandomBytes(Secret *key) {
    key->resize(SVC_PBE_KEY_LENGTH);
    ssize_t count;
    do
        count = getrandom(key->data(), key->size(), /* flags= */ 0);
    while (count < 0 && errno == EINTR);
    return count == static_cast<ssize_t>(key->size());
}

int writeAndSync(int file, const Secret &key) {
    const int error = replacement::writeBytes(file, key.view());
    return error == 0 && fsync(file) != 0 ? errno : error;
}

std::string folderOf(const std::string &path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

bool syncFolderOf(const std::string &path) {
    const ztm::Descriptor opened(open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return opened && fsync(opened.get()) == 0;
}

Outcome refuse(int error, Report &report) {
    report.problem(error == EEXIST ? "something is there already, and a key is never written over; "
                                     "name another file"
                                   : "the file cannot be made: " + errorText(error));
    return Outcome::failed;
}

Outcome tryKey(const std::string &path, Report &report) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0)
        return refuse(EEXIST, report);
    if (access(folderOf(path).c_str(), W_OK | X_OK) != 0)
        return refuse(errno, report);
    report.note("would be a new key");
    return Outcome::changed;
}

Outcome makeKey(const std::string &path, Report &report) {
    Secret key;
    if (!fillWithRandomBytes(&key)) {
        report.problem("the system gives no random bytes: " + errorText(errno));
        return Outcome::failed;
    }
    const ztm::Descriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file)
        return refuse(errno, report);
    // A mask of the user's own may have taken rights away.
    int error = fchmod(file.get(), 0600) == 0 ? writeAndSync(file.get(), key) : errno;
    if (error == 0 && !syncFolderOf(path))
        error = errno;
    if (error != 0) {
        (void)unlink(path.c_str());
        report.problem("the key cannot be written: " + errorText(error));
        return Outcome::failed;
    }
    report.note("a new key, for its owner only; keep a copy where the files that it protects "
                "are not");
    return Outcome::changed;
}

} // namespace

void addKeygen(Command &command) {
    const auto options = std::make_shared<Options>();
    command.outputOptions(&options->common);
    command.operands("FILE", &options->files, Need::required, "the new file");
    command.dryRun(&options->dryRun);
    command.work([options] {
        if (std::ranges::count(options->files, "-") != 0)
            throw UsageError("a key goes into a file, not to standard output");
        Report report("keygen", options->common);
        return report.overFiles(options->files, [&](const std::string &path) {
            return options->dryRun ? tryKey(path, report) : makeKey(path, report);
        });
    });
}

} // namespace vekctl
