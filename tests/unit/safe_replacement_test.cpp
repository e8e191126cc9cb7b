// A file is replaced whole, with all that belongs to it, or stays as it was; whatever lies around
// it.
#include "vekctl/safe_replacement.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using vekctl::SafeReplacement;

constexpr char OLD[] = "old content\n";
constexpr char NEW[] = "the new content, which is longer\n";

std::string contentOf(const fs::path &path) {
    std::ifstream stream(path);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void write(const fs::path &path, const std::string &content) {
    std::ofstream(path) << content;
}

std::string attribute(const fs::path &path, const char *name) {
    char value[256];
    const ssize_t length = lgetxattr(path.c_str(), name, value, sizeof value);
    return length < 0 ? "" : std::string(value, static_cast<size_t>(length));
}

// A list of rights as the kernel stores it: the owner's, user 1234's, the group's, mask, others'.
std::string rights(char mask) {
    using Bytes = std::string;
    const Bytes nobody(4, '\xFF');
    return Bytes{2, 0, 0, 0} + Bytes{1, 0, 6, 0} + nobody + Bytes{2, 0, 4, 0, '\xD2', 4, 0, 0} +
           Bytes{4, 0, 0, 0} + nobody + Bytes{16, 0, mask, 0} + nobody + Bytes{32, 0, 0, 0} +
           nobody;
}

class Folder : public testing::Test {
protected:
    Folder() {
        char pattern[] = "safe_XXXXXX";
        folder = fs::absolute(mkdtemp(pattern));
        file = folder / "conf";
        write(file, OLD);
        fs::permissions(file, fs::perms(0640));
    }
    ~Folder() override {
        fs::remove_all(folder);
    }
    // All names in the folder and below it, apart from those made here.
    size_t names() const {
        return static_cast<size_t>(std::distance(fs::recursive_directory_iterator(folder), {}));
    }
    // Opens and replaces; the problem, or an empty text.
    static std::string replace(
        const fs::path &path, const std::function<void()> &between = [] {},
        bool breakLinks = false) {
        SafeReplacement replacement;
        if (!replacement.open(path, {.breakLinks = breakLinks}))
            return replacement.problem();
        std::string content(replacement.size(), '\0');
        if (!replacement.read(content))
            return replacement.problem();
        between();
        return replacement.replaceWith(NEW) ? "" : replacement.problem();
    }

    fs::path folder;
    fs::path file;
};

TEST_F(Folder, KeepsWhatBelongsToTheFile) {
    ASSERT_EQ(0, lsetxattr(folder.c_str(), "system.posix_acl_default", rights(6).data(),
                           rights(6).size(), 0));
    const bool isRoot = geteuid() == 0;
    ASSERT_TRUE(!isRoot || chown(file.c_str(), 4321, 5432) == 0);
    // The default list of the folder is not for a file that has none.
    EXPECT_EQ("", replace(file));
    EXPECT_EQ(NEW, contentOf(file));
    EXPECT_EQ("", attribute(file, "system.posix_acl_access"));
    EXPECT_EQ(fs::perms(0640), fs::status(file).permissions());

    ASSERT_EQ(0, lsetxattr(file.c_str(), "user.note", "kept", 4, 0));
    ASSERT_EQ(0, lsetxattr(file.c_str(), "system.posix_acl_access", rights(4).data(),
                           rights(4).size(), 0));
    EXPECT_EQ("", replace(file));
    EXPECT_EQ("kept", attribute(file, "user.note"));
    EXPECT_EQ(rights(4), attribute(file, "system.posix_acl_access"));
    struct stat status;
    ASSERT_EQ(0, stat(file.c_str(), &status));
    EXPECT_EQ(isRoot ? 4321U : geteuid(), status.st_uid);
    EXPECT_EQ(isRoot ? 5432U : getegid(), status.st_gid);
    EXPECT_EQ(1U, names());
}

// The kernel would take the new content for a forged one.
TEST_F(Folder, LeavesTheMeasureOfTheOldContentBehind) {
    constexpr char MEASURE[] = "\x01 a digest of the old";
    if (lsetxattr(file.c_str(), "security.ima", MEASURE, sizeof MEASURE, 0) != 0)
        GTEST_SKIP() << "only root can set a measure, and not on every file system";
    EXPECT_EQ("", replace(file));
    EXPECT_EQ("", attribute(file, "security.ima"));
}

TEST_F(Folder, FollowsLinksThatStay) {
    fs::create_directory(folder / "links");
    fs::create_symlink("../second", folder / "links/first");
    fs::create_symlink(file, folder / "second");
    EXPECT_EQ("", replace(folder / "links/first"));
    EXPECT_EQ(NEW, contentOf(file));
    EXPECT_TRUE(fs::is_symlink(folder / "links/first") && fs::is_symlink(folder / "second"));
    EXPECT_FALSE(fs::is_symlink(file));
    EXPECT_EQ(4U, names());
}

TEST_F(Folder, RefusesAndTellsWhy) {
    const struct {
        const char *name;
        const char *reason;
        std::function<void()> prepare;
    } rows[] = {
        {"loop", "too many symbolic links", [&] { fs::create_symlink("loop", folder / "loop"); }},
        {"dangling", "no such file", [&] { fs::create_symlink("nowhere", folder / "dangling"); }},
        {"pipe", "not a regular file",
         [&] { ASSERT_EQ(0, mkfifo((folder / "pipe").c_str(), 0600)); }},
        {"conf", "second name", [&] { fs::create_hard_link(file, folder / "other"); }},
        {"conf", "others can write", [&] { fs::permissions(folder, fs::perms(0770)); }},
        {"conf", "others can write", [&] { fs::permissions(folder, fs::perms(0702)); }},
        {"conf", "belongs to another user",
         [&] {
             fs::permissions(folder, fs::perms(0755));
             if (chown(folder.c_str(), 4321, 0) != 0)
                 GTEST_SKIP() << "only root can give a folder away";
         }},
    };
    for (const auto &row : rows) {
        row.prepare();
        if (IsSkipped())
            return;
        const size_t before = names();
        EXPECT_NE(std::string::npos, replace(folder / row.name).find(row.reason)) << row.reason;
        EXPECT_EQ(OLD, contentOf(file));
        EXPECT_EQ(before, names());
    }
}

TEST_F(Folder, BreaksHardLinksWhenTold) {
    fs::create_hard_link(file, folder / "other");
    EXPECT_EQ("", replace(
                      file, [] {}, /* breakLinks= */ true));
    EXPECT_EQ(NEW, contentOf(file));
    EXPECT_EQ(OLD, contentOf(folder / "other"));
}

// Each happens between the opening and the replacement.
TEST_F(Folder, NoticesWhatHappensMeanwhile) {
    const fs::path victim = folder / "victim";
    const struct {
        const char *what;
        std::function<void()> attack;
    } rows[] = {
        {"a link in its place", [&] { fs::remove(file), fs::create_symlink(victim, file); }},
        {"a hard link in its place", [&] { fs::remove(file), fs::create_hard_link(victim, file); }},
        {"a second name", [&] { fs::create_hard_link(file, folder / "second"); }},
        {"a new file", [&] { fs::rename(file, folder / "away"), write(file, OLD); }},
        {"other rights", [&] { fs::permissions(file, fs::perms(0600)); }},
        {"other content", [&] { write(file, "Old content\n"); }},
        {"gone", [&] { fs::remove(file); }},
    };
    for (const auto &row : rows) {
        fs::remove_all(folder);
        fs::create_directory(folder);
        fs::permissions(folder, fs::perms(0700));
        write(file, OLD);
        write(victim, "of somebody else");
        std::string expected;
        size_t names = 0;
        EXPECT_NE("", replace(file,
                              [&] {
                                  row.attack();
                                  expected = contentOf(file);
                                  names = this->names();
                              }))
            << row.what;
        EXPECT_EQ(expected, contentOf(file)) << row.what;
        EXPECT_EQ("of somebody else", contentOf(victim)) << row.what;
        EXPECT_EQ(names, this->names()) << row.what;
    }
}

TEST_F(Folder, StaysInTheFolderThatWasOpened) {
    const fs::path work = folder / "work", moved = folder / "moved", trap = folder / "trap";
    for (const fs::path &each : {work, trap}) {
        fs::create_directory(each);
        fs::permissions(each, fs::perms(0700));
        write(each / "conf", OLD);
    }
    EXPECT_EQ("", replace(work / "conf", [&] {
                  fs::rename(work, moved);
                  fs::create_symlink(trap, work);
              }));
    EXPECT_EQ(NEW, contentOf(moved / "conf"));
    EXPECT_EQ(OLD, contentOf(trap / "conf"));
}

// What lies at the name of the temporary file was left by a killed run, or was put there.
TEST_F(Folder, RemovesWhatLiesAtTheTemporaryName) {
    const fs::path temporary = folder / ".conf.vekctl", victim = folder / "victim";
    write(victim, OLD);
    SafeReplacement look;
    write(temporary, "of a killed run");
    EXPECT_TRUE(look.open(file, {.dryRun = true}));
    EXPECT_TRUE(fs::exists(temporary));
    look = SafeReplacement();
    EXPECT_TRUE(look.open(file, {}));
    EXPECT_FALSE(fs::exists(temporary));
    look = SafeReplacement();
    EXPECT_EQ("", replace(file, [&] { fs::create_symlink(victim, temporary); }));
    EXPECT_EQ(NEW, contentOf(file));
    EXPECT_EQ(OLD, contentOf(victim));
}

} // namespace
