/*
 * typed_value.cpp - reads a value from the terminal, without echo, or from a pipe.
 */
#include "vekctl/typed_value.h"

#include "vekctl/error_text.h"

#include <cerrno>
#include <csignal>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace vekctl {
namespace {

// No field of a reader is longer; what comes behind is read only to tell that it is too much.
constexpr size_t VALUE_LIMIT = 4096;
constexpr int ENDING_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

volatile sig_atomic_t caughtSignal = 0;

void noteSignal(int signal) {
    caughtSignal = signal;
}

// Switches the echo of the terminal off while it lives. A signal that ends the program is let
// through only while input is waited for; it acts when the echo is on again. Stopping from the
// keyboard is off meanwhile.
class WithoutEcho {
public:
    WithoutEcho() {
        isTerminal = tcgetattr(STDIN_FILENO, &before) == 0;
        sigset_t held;
        (void)sigemptyset(&held);
        for (const int signal : ENDING_SIGNALS)
            (void)sigaddset(&held, signal);
        (void)pthread_sigmask(SIG_BLOCK, &held, &maskBefore);
        struct sigaction action = {};
        action.sa_handler = noteSignal;
        for (size_t i = 0; i < std::size(ENDING_SIGNALS); ++i) {
            (void)sigaction(ENDING_SIGNALS[i], nullptr, &actionsBefore[i]);
            if (actionsBefore[i].sa_handler != SIG_IGN)
                (void)sigaction(ENDING_SIGNALS[i], &action, nullptr);
        }
        termios silent = before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_cc[VSUSP] = _POSIX_VDISABLE;
        if (isTerminal)
            (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    WithoutEcho(const WithoutEcho &) = delete;
    WithoutEcho &operator=(const WithoutEcho &) = delete;
    ~WithoutEcho() {
        if (isTerminal)
            (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
        for (size_t i = 0; i < std::size(ENDING_SIGNALS); ++i)
            (void)sigaction(ENDING_SIGNALS[i], &actionsBefore[i], nullptr);
        (void)pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
        if (caughtSignal != 0)
            (void)raise(caughtSignal);
    }

    // False: a signal came first.
    [[nodiscard]] bool waitForInput() const {
        pollfd input = {STDIN_FILENO, POLLIN, 0};
        while (caughtSignal == 0)
            if (ppoll(&input, 1, /* timeout= */ nullptr, &maskBefore) > 0)
                return true;
        return false;
    }

private:
    bool isTerminal = false;
    termios before = {};
    sigset_t maskBefore = {};
    struct sigaction actionsBefore[std::size(ENDING_SIGNALS)] = {};
};

void say(const std::string &text) {
    (void)!write(STDERR_FILENO, text.data(), text.size());
}

// Appends what a read brings, up to the limit and a little more. Result: that of read.
ssize_t readSome(Secret *value) {
    const size_t before = value->size();
    value->resize(VALUE_LIMIT + 2);
    const ssize_t count = read(STDIN_FILENO, value->data() + before, value->size() - before);
    const int error = errno;
    value->resize(before + static_cast<size_t>(std::max<ssize_t>(count, 0)));
    errno = error;
    return count;
}

bool askOnce(const std::string &prompt, const WithoutEcho &terminal, Secret *value) {
    say(prompt);
    while (value->size() <= VALUE_LIMIT && !value->view().ends_with('\n'))
        if (!terminal.waitForInput() || readSome(value) <= 0)
            return false;
    say("\n");
    return true;
}

void removeLineEnd(Secret *value) {
    for (const char character : {'\n', '\r'})
        if (value->view().ends_with(character))
            value->resize(value->size() - 1);
        else
            return;
}

std::string faultOf(const Secret &value) {
    if (value.empty())
        return "the value is empty; type it on the terminal or give it on standard input; nothing "
               "was changed";
    if (value.size() > VALUE_LIMIT)
        return "the value is too long for every reader; use a shorter one; nothing was changed";
    if (value.view().find('\0') != std::string_view::npos)
        return "the value holds a NUL byte; use one without; nothing was changed";
    if (value.view().find_first_of("\r\n") != std::string_view::npos)
        return "the value has more than one line; use one line; nothing was changed";
    return "";
}

std::string askTwice(const std::string &prompt, Secret *value) {
    Secret again;
    {
        const WithoutEcho silent;
        if (!askOnce(prompt + ": ", silent, value) || !askOnce(prompt + " again: ", silent, &again))
            return "no value was given; run again; nothing was changed";
    }
    removeLineEnd(value);
    removeLineEnd(&again);
    return value->equals(again.view()) ? ""
                                       : "the two values differ; run again; nothing was changed";
}

std::string takeAll(Secret *value) {
    for (ssize_t count = 1; count != 0 && value->size() <= VALUE_LIMIT;) {
        count = readSome(value);
        if (count < 0 && errno != EINTR)
            return "standard input cannot be read: " + errorText(errno);
    }
    removeLineEnd(value);
    return "";
}

} // namespace

std::string takeValue(const std::string &prompt, Secret *value) {
    const std::string problem =
        isatty(STDIN_FILENO) != 0 ? askTwice(prompt, value) : takeAll(value);
    return problem.empty() ? faultOf(*value) : problem;
}

} // namespace vekctl
