// What guards the replacement of a file: the directory that stays the same one, signals that wait,
// and room and bytes on the disk, with files that are none of a regular one.
#include "shared/held_back_signals.h"
#include "shared/locked_directory.h"
#include "shared/new_bytes.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace replacement;
using ztm::Descriptor;

std::string scratch(const std::string &name) {
    static std::string folder = testing::TempDir() + "replacement.XXXXXX";
    static const char *const made = mkdtemp(folder.data());
    return std::string(made) + "/" + name;
}

void write(const std::string &path, const char *text) {
    FILE *const file = fopen(path.c_str(), "w");
    ASSERT_NE(nullptr, file);
    (void)fputs(text, file);
    (void)fclose(file);
}

std::string content(int opened) {
    const Descriptor file(opened);
    char text[100] = "";
    return read(file.get(), text, sizeof text - 1) < 0 ? "none" : text;
}

std::string content(const std::string &path) {
    return content(open(path.c_str(), O_RDONLY));
}

// Somebody renames the folder and puts his own in its place, right after it was locked.
TEST(Replacement, StaysInTheFolderThatWasOpened) {
    const std::string folder = scratch("folder"), moved = scratch("moved");
    for (const std::string &name : {folder, moved}) {
        ASSERT_EQ(0, mkdir(name.c_str(), 0700));
        write(name + "/conf", name == folder ? "ours" : "other");
        write(name + "/conf.bak", "planted");
    }
    const LockedDirectory directory((folder + "/conf").c_str());
    EXPECT_NE(0, flock(Descriptor(open(folder.c_str(), O_RDONLY)).get(), LOCK_EX | LOCK_NB));
    ASSERT_EQ(0, renameat2(AT_FDCWD, folder.c_str(), AT_FDCWD, moved.c_str(), RENAME_EXCHANGE));

    const std::string path = folder + "/conf", temporary = path + ".bak";
    EXPECT_EQ("ours", content(directory.openToRead(path.c_str())));
    const Descriptor output(directory.createAnew(temporary.c_str(), 0600));
    ASSERT_EQ(3, ::write(output.get(), "new", 3));
    struct stat status = {};
    EXPECT_EQ(0, directory.look(temporary.c_str(), &status));
    EXPECT_EQ(3, status.st_size);
    EXPECT_EQ(0, directory.remove(path.c_str()));
    EXPECT_EQ(0, directory.moveOnto(temporary.c_str(), path.c_str()));
    EXPECT_EQ("new", content(moved + "/conf"));
    EXPECT_NE(0, access((moved + "/conf.bak").c_str(), F_OK));
    EXPECT_EQ("other", content(folder + "/conf"));
    EXPECT_EQ("planted", content(folder + "/conf.bak"));
}

TEST(Replacement, TakesWholePathsWithoutAFolder) {
    const std::string path = scratch("file");
    write(path, "x");
    for (const char *const root : {"/conf", "conf"})
        EXPECT_GE(LockedDirectory(root).descriptor(), 0) << root;
    const LockedDirectory none((std::string(5000, 'x') + "/conf").c_str());
    EXPECT_EQ(-1, none.descriptor());
    EXPECT_EQ("x", content(none.openToRead(path.c_str())));
    none.sync();
    EXPECT_EQ(-1, none.moveOnto("/no/such/file", "/no/such/replacement"));
}

TEST(Replacement, HoldsSignalsBackThatWouldAct) {
    const struct {
        int signal;
        void (*handler)(int);
        bool isPending;
    } CASES[] = {{SIGINT, SIG_DFL, true},  {SIGTERM, SIG_DFL, true}, {SIGHUP, SIG_DFL, true},
                 {SIGQUIT, SIG_DFL, true}, {SIGHUP, SIG_IGN, false}, {SIGWINCH, SIG_DFL, false}};
    for (const auto &row : CASES) {
        const pid_t child = fork();
        if (child == 0) {
            (void)signal(row.signal, row.handler);
            {
                const HeldBackSignals signals;
                (void)raise(row.signal);
                if (signals.isPending() != row.isPending)
                    _exit(99);
            }
            _exit(0);
        }
        int status = -1;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        EXPECT_EQ(row.isPending ? row.signal : 0, WIFSIGNALED(status) ? WTERMSIG(status) : status)
            << row.signal;
    }
}

TEST(Replacement, IgnoresWhatCannotBeReservedOrSynced) {
    FILE *const regular = tmpfile();
    FILE *const full = fopen("/dev/full", "r+");
    EXPECT_EQ(0, reserveRoom(fileno(regular), 1));
    struct stat status = {};
    ASSERT_EQ(0, fstat(fileno(regular), &status));
    EXPECT_GT(status.st_blocks, 0);
    for (const int file : {fileno(regular), fileno(full), -1}) {
        EXPECT_TRUE(file == fileno(regular) || reserveRoom(file, 1) == 0);
        giveBackRoom(file);
        EXPECT_EQ(0, syncBytes(file));
    }
    ASSERT_EQ(0, fstat(fileno(regular), &status));
    EXPECT_EQ(0, status.st_blocks);
    EXPECT_EQ(EFBIG, reserveRoom(fileno(regular), INT64_MAX - 4096));
    (void)fputc('x', full);
    EXPECT_EQ(ENOSPC, flushBytes(full));
    EXPECT_EQ(EIO, flushBytes(full)); // bytes were lost before
}

} // namespace
