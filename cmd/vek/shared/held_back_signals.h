/*
 * held_back_signals.h - signals wait while a file is being replaced, so that none leaves a half
 * written file behind.
 */
#ifndef REPLACEMENT_HELD_BACK_SIGNALS_H
#define REPLACEMENT_HELD_BACK_SIGNALS_H

#include <csignal>

namespace replacement {

// Holds back SIGINT, SIGTERM, SIGHUP and SIGQUIT from this thread while it lives. At its end the
// signals that came meanwhile act, which as a rule ends the process there: declare it before the
// owners of whatever must be cleaned up first. What the process ignores or holds back anyway is
// left alone.
//
//   const HeldBackSignals signals;
//   for each block
//       if (signals.isPending())
//           return ...; // the owner of the new file removes it, then the signal acts
class HeldBackSignals {
public:
    HeldBackSignals();
    HeldBackSignals(const HeldBackSignals &) = delete;
    HeldBackSignals &operator=(const HeldBackSignals &) = delete;
    ~HeldBackSignals();

    // Whether one of them came and waits. A long work asks from time to time, and stops.
    [[nodiscard]] bool isPending() const;

private:
    sigset_t heldBack;
};

} // namespace replacement

#endif
