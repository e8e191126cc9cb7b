// Signals that wait while a file is replaced.
#include "shared/held_back_signals.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using replacement::HeldBackSignals;

TEST(HeldBackSignals, AreThoseThatWouldAct) {
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

} // namespace
