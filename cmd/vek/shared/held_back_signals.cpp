/*
 * held_back_signals.cpp - blocks the signals that end a program, and lets them act.
 */
#include "shared/held_back_signals.h"

namespace replacement {

namespace {

constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// A signal that is ignored becomes pending all the same while it is held back, and would stop a run
// that was started with nohup.
bool isIgnored(int signal) {
    struct sigaction action = {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

HeldBackSignals::HeldBackSignals() {
    sigset_t before;
    (void)sigemptyset(&heldBack);
    (void)pthread_sigmask(SIG_BLOCK, nullptr, &before);
    for (const int signal : SIGNALS)
        if (sigismember(&before, signal) == 0 && !isIgnored(signal))
            (void)sigaddset(&heldBack, signal);
    (void)pthread_sigmask(SIG_BLOCK, &heldBack, nullptr);
}

HeldBackSignals::~HeldBackSignals() {
    (void)pthread_sigmask(SIG_UNBLOCK, &heldBack, nullptr);
}

bool HeldBackSignals::isPending() const {
    sigset_t pending;
    if (sigpending(&pending) != 0)
        return false;
    for (const int signal : SIGNALS)
        if (sigismember(&heldBack, signal) == 1 && sigismember(&pending, signal) == 1)
            return true;
    return false;
}

} // namespace replacement
