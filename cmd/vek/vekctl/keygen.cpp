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

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/random.h>
#include <sys/stat.h>

namespace vekctl {

namespace {

struct Options {
    CommonOptions common;
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

bool syncFolderOf(const std::string &path) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const ztm::Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return opened && fsync(opened.get()) == 0;
}

Outcome makeKey(const std::string &path, Report &report) {
    Secret key;
    if (!fillWithRandomBytes(&key)) {
        report.problem("the system gives no random bytes: " + errorText(errno));
        return Outcome::failed;
    }
    const ztm::Descriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) {
        report.problem(errno == EEXIST
                           ? "something is there already, and a key is never written over; "
                             "name another file"
                           : "the file cannot be made: " + errorText(errno));
        return Outcome::failed;
    }
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
    command.work([options] {
        Report report("keygen", options->common);
        return report.overFiles(
            options->files, [&report](const std::string &path) { return makeKey(path, report); });
    });
}

} // namespace vekctl
