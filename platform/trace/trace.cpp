/*
 * trace.cpp - the trace facility: one line a record, appended to the file that ZTS_TRACE names.
 */
#include "trace/trace.h"
#include "common/guards.h"
#include "zttrc.h"

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

pthread_key_t thdThreadKey;

namespace ztm {

namespace {

constexpr mode_t TRACE_FILE_MODE = 0600;

pthread_once_t settleOnce = PTHREAD_ONCE_INIT;
int traceFile = -1;
bool threadKeyLost = false;

// A record is cut at this length; the longest regular one is a configuration line of 8 KiB.
struct TraceLine {
    char text[10240];
    size_t length;
};

// Opens the trace file where it is safe: a trace can hold credentials, so it must be the user's
// own, have one name, and be for nobody else.
int openTraceFile(const char *path) {
    Descriptor file(
        open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY,
             TRACE_FILE_MODE));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_uid != geteuid() || status.st_nlink != 1)
        return -1;
    const mode_t others = status.st_mode & (S_IRWXG | S_IRWXO);
    if (others != 0 && fchmod(file.get(), status.st_mode & TRACE_FILE_MODE) != 0)
        return -1;
    return file.take();
}

void settle() {
    uint32_t flags = 0;
    threadKeyLost = pthread_key_create(&thdThreadKey, free) != 0;
    const char *const path = secure_getenv("ZTS_TRACE");
    if (!threadKeyLost && path != nullptr && path[0] != '\0') {
        traceFile = openTraceFile(path);
        if (traceFile >= 0)
            flags = TRC_FUNCTIONS | TRC_PARAMETERS;
    }
    __atomic_store_n(&thdProcess.traceFlags, flags, __ATOMIC_RELAXED);
}

bool isOn(uint32_t flag) {
    (void)pthread_once(&settleOnce, settle);
    return (__atomic_load_n(&thdProcess.traceFlags, __ATOMIC_RELAXED) & flag) != 0;
}

// The block of this thread, or null when memory is exhausted: the record then has no depth.
TrcThreadBlock *threadBlock() {
    void *const known = pthread_getspecific(thdThreadKey);
    if (known != nullptr)
        return static_cast<TrcThreadBlock *>(known);
    Handle<void, free> made(calloc(1, sizeof(TrcThreadBlock)));
    if (!made || pthread_setspecific(thdThreadKey, made.get()) != 0)
        return nullptr;
    return static_cast<TrcThreadBlock *>(made.take());
}

// The last byte is kept for the newline.
__attribute__((format(printf, 2, 0))) void addFormatted(TraceLine *line, const char *format,
                                                        va_list arguments) {
    const size_t room = sizeof line->text - 1 - line->length;
    const int written = vsnprintf(line->text + line->length, room, format, arguments);
    if (written > 0)
        line->length +=
            static_cast<size_t>(written) < room ? static_cast<size_t>(written) : room - 1;
}

__attribute__((format(printf, 2, 3))) void add(TraceLine *line, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    addFormatted(line, format, arguments);
    va_end(arguments);
}

void beginLine(TraceLine *line, const char *kind, uint32_t component, uint32_t function,
               const TrcThreadBlock *block) {
    static constexpr uint32_t INDENTATION = 2;
    const uint32_t depth = block == nullptr ? 0 : std::min(block->depth, uint32_t{TRC_DEEPEST});
    struct timespec now = {};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    struct tm utc = {};
    (void)gmtime_r(&now.tv_sec, &utc);
    line->length = strftime(line->text, sizeof line->text, "%Y-%m-%dT%H:%M:%S", &utc);
    add(line, ".%06ldZ %d.%d %-5s %u:%-3u %*s", now.tv_nsec / 1000, getpid(), gettid(), kind,
        component, function, static_cast<int>(depth * INDENTATION), "");
}

void endLine(TraceLine *line) {
    // A text of the command may end in a newline of its own; the record is one line all the same.
    char *const last = line->text + line->length - 1;
    if (*last == '\n')
        *last = ' ';
    for (size_t i = 0; i < line->length; ++i) {
        if (iscntrl(static_cast<unsigned char>(line->text[i])) != 0)
            line->text[i] = '?';
    }
    line->text[line->length++] = '\n';
    (void)!write(traceFile, line->text, line->length);
    svcWipe(line->text, line->length);
}

} // namespace

uint32_t startTrace() {
    (void)isOn(TRC_FUNCTIONS);
    return threadKeyLost ? SVC_THREAD_KEY_LOST : SVC_OK;
}

void stopTrace() {
    if (!isOn(TRC_FUNCTIONS | TRC_PARAMETERS))
        return;
    __atomic_store_n(&thdProcess.traceFlags, 0U, __ATOMIC_RELAXED);
    (void)close(traceFile);
    traceFile = -1;
    free(pthread_getspecific(thdThreadKey));
    (void)pthread_setspecific(thdThreadKey, nullptr);
}

} // namespace ztm

using namespace ztm;

void trc_FNC_entry(uint32_t component, uint32_t function) {
    if (!isOn(TRC_FUNCTIONS))
        return;
    TrcThreadBlock *const block = threadBlock();
    TraceLine line;
    beginLine(&line, "entry", component, function, block);
    endLine(&line);
    if (block == nullptr)
        return;
    if (block->depth < TRC_DEEPEST)
        block->entered[block->depth] = {component, function};
    ++block->depth;
}

void trc_FNC_retcode(uint32_t component, uint32_t function, int64_t returnCode) {
    if (!isOn(TRC_FUNCTIONS))
        return;
    TrcThreadBlock *const block = threadBlock();
    if (block != nullptr && block->depth > 0)
        --block->depth;
    TraceLine line;
    beginLine(&line, "exit", component, function, block);
    add(&line, "rc=%lld", static_cast<long long>(returnCode));
    endLine(&line);
}

void trc_FNC_text(uint32_t component, uint32_t function, const char *text) {
    if (!isOn(TRC_FUNCTIONS))
        return;
    const TrcThreadBlock *const block = threadBlock();
    TraceLine line;
    beginLine(&line, "text", component, function, block);
    add(&line, "%s", text);
    endLine(&line);
}

void trc_parms(const char *source, int32_t sourceLine, const char *text, ...) {
    if (!isOn(TRC_PARAMETERS))
        return;
    const TrcThreadBlock *const block = threadBlock();
    const bool isKept = block != nullptr && block->depth > 0 && block->depth <= TRC_DEEPEST;
    TraceLine line;
    beginLine(&line, "parms", isKept ? block->entered[block->depth - 1].component : 0,
              isKept ? block->entered[block->depth - 1].function : 0, block);
    add(&line, "[%s:%d] ", source, sourceLine);
    va_list arguments;
    va_start(arguments, text);
    addFormatted(&line, text, arguments);
    va_end(arguments);
    endLine(&line);
}
