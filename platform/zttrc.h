/*
 * zttrc.h - trace facility of the product (library libztmcs_r).
 *
 * Off unless the environment variable ZTS_TRACE names a file: records are appended to it, one line
 * each. The file is created with mode 0600 and is not opened through a symbolic link; one that
 * exists must be a regular file of the same user with one name, and permissions of other users are
 * taken off. In a set-id program the variable is ignored. A trace can hold credentials: the parser
 * records every line that it reads. Control characters in a record are written as "?".
 *
 * A record is "time process.thread kind component:function source:line text". A record is cut at
 * 10 KiB. Tracing never fails a caller: what cannot be written is lost.
 */
#ifndef ZTTRC_H
#define ZTTRC_H

#include "ztsvc.h"

#include <pthread.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Bits of thdProcess.traceFlags. */
enum TrcFlag {
    TRC_FUNCTIONS = 1,      /* entry and exit of functions */
    TRC_PARAMETERS = 2,     /* parameter texts */
    TRC_UNSETTLED = 1 << 30 /* ZTS_TRACE has not been looked at yet */
};

/* What the facility knows of one thread; found through thdThreadKey. */
enum { TRC_DEEPEST = 32 }; /* functions deeper than this are traced without being kept */
typedef struct TrcThreadBlock {
    uint32_t depth; /* functions entered and not left; it indents the records */
    struct {
        uint32_t component;
        uint32_t function;
    } entered[TRC_DEEPEST];
} TrcThreadBlock;

/* Key of the per-thread trace block (pthread_getspecific); valid after the first record. */
ZT_EXPORT extern pthread_key_t thdThreadKey;

/* trc_FNC_entry records the entry into a function, trc_FNC_retcode the exit with its result. */
ZT_EXPORT void trc_FNC_entry(uint32_t component, uint32_t function);
ZT_EXPORT void trc_FNC_retcode(uint32_t component, uint32_t function, int64_t returnCode);

/* trc_FNC_text records a plain text of a function. */
ZT_EXPORT void trc_FNC_text(uint32_t component, uint32_t function, const char *text);

/* trc_parms records a parameter text, formatted as by printf; `source` and `line` say where. */
ZT_EXPORT void trc_parms(const char *source, int32_t line, const char *text, ...)
    __attribute__((format(printf, 3, 4)));

/* trcActive tells whether any of `flags` may be switched on; the facility itself decides. */
static inline int trcActive(uint32_t flags) {
    return (__atomic_load_n(&thdProcess.traceFlags, __ATOMIC_RELAXED) & (flags | TRC_UNSETTLED)) !=
           0;
}

#ifdef __cplusplus
}
#endif

/*
 * The one macro family of the project: only a macro can supply the line. A file that traces defines
 * TRC_SOURCE, the name of its module, before the first use.
 *
 * TRC_PARMS records a text; TRC_PARMS_AT records a text that begins with "%s : %d  ", whose first
 * two inserts, source name and line, are supplied.
 */
#define TRC_PARMS(...)                                                                             \
    do {                                                                                           \
        if (trcActive(TRC_PARAMETERS))                                                             \
            trc_parms(TRC_SOURCE, __LINE__, __VA_ARGS__);                                          \
    } while (0)
#define TRC_PARMS_AT(text, ...)                                                                    \
    do {                                                                                           \
        if (trcActive(TRC_PARAMETERS))                                                             \
            trc_parms(TRC_SOURCE, __LINE__, text, TRC_SOURCE,                                      \
                      __LINE__ __VA_OPT__(, ) __VA_ARGS__);                                        \
    } while (0)

#ifdef __cplusplus
namespace ztm {

/*
 * TraceScope records the entry into a function when it begins, and the exit with its result when it
 * ends. Declared first, it ends last: whatever the function owns is released before the exit.
 *
 *   TraceScope trace(FUNCTION_OF_COMPONENT_16); // another component is a second argument
 *   ...
 *   return trace.returns(result);
 *
 * A function that returns nothing has the result 0.
 */
class TraceScope {
public:
    explicit TraceScope(uint32_t entered, uint16_t componentOf = SVC_COMPONENT_VEK)
        : component(componentOf), function(entered) {
        if (trcActive(TRC_FUNCTIONS))
            trc_FNC_entry(component, function);
    }
    TraceScope(const TraceScope &) = delete;
    TraceScope &operator=(const TraceScope &) = delete;
    ~TraceScope() {
        if (trcActive(TRC_FUNCTIONS))
            trc_FNC_retcode(component, function, result);
    }

    /* returns notes the result of the function and hands it through. */
    template <typename Result> [[nodiscard]] Result returns(Result value) {
        result = static_cast<int64_t>(value);
        return value;
    }

private:
    uint32_t component;
    uint32_t function;
    int64_t result = 0;
};

} // namespace ztm
#endif

#endif
