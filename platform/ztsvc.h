/*
 * ztsvc.h - common services of the product (library libztmcs_r), C99 and C++20.
 *
 * Start-up and termination, memory, environment, numbered messages, failure records and the
 * process anchor. The PBE service of the same library has a header of its own, ztpbe.h; the trace
 * facility is in zttrc.h.
 *
 * Rules that hold for every function here:
 *  - A 32-bit result is a reason code: 0 is success. The codes of this header stand in enum
 *    SvcReason; other functions name theirs.
 *  - Texts are NUL-terminated. A pointer may be null only where its description says so.
 *  - Every service initialises itself on first use: a program that never calls svcProgramInit may
 *    call any of them, from any thread.
 */
#ifndef ZTSVC_H
#define ZTSVC_H

#include <assert.h>
#include <pwd.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#if defined(__GNUC__)
#define ZT_EXPORT __attribute__((visibility("default")))
#else
#define ZT_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Component number of the credential command and the configuration library. */
#define SVC_COMPONENT_VEK 16

/* Reason codes of the common services. */
enum SvcReason {
    SVC_OK = 0,
    SVC_BAD_ARGUMENTS = 0x20006101,   /* an argument is null, unknown or out of range */
    SVC_NOT_CONSISTENT = 0x20006102,  /* the installation is not usable */
    SVC_NOT_SET = 0x20006103,         /* the variable is not set or does not fit the buffer */
    SVC_NO_STORAGE = 0x20006037,      /* memory could not be allocated */
    SVC_THREAD_KEY_LOST = 0x20006327, /* the per-thread storage key could not be created */
};

/* ---- Process anchor ------------------------------------------------------------------------ */

/* Facts about this process that every library of the product may read. */
typedef struct ThdProcess {
    /* Bits of enum TrcFlag (zttrc.h); TRC_UNSETTLED until first use. */
    uint32_t traceFlags;
    /* Reason of a failed initialisation, SVC_OK when there was none. */
    uint32_t initReason;
    /* 0, or the kind that the program gave itself; kinds 12, 14, 15 and 47 may fill the channel
     * cache of the configuration library. */
    int32_t processKind;
} ThdProcess;

ZT_EXPORT extern ThdProcess thdProcess;

/* ---- Start-up and termination -------------------------------------------------------------- */

/* The message context: the first two arguments of svcDisplayMessageForError and svcPBEInit. */
typedef struct SvcMiniSubpool {
    uint64_t handle;
    uint32_t word;
} SvcMiniSubpool;

ZT_EXPORT extern const SvcMiniSubpool svcIC_MINI_SUBPOOL;

/*
 * svcCheckConsistency tells whether the installation under installationPath is usable: the path is
 * absolute, what lies there (if anything) is a directory, and the libcrypto loaded at run time has
 * the major version that the PBE service was built against, and a minor version not below that
 * one's. A path that does not exist is no fault.
 * Result: SVC_OK, SVC_BAD_ARGUMENTS (null path), SVC_NOT_CONSISTENT.
 */
ZT_EXPORT uint32_t svcCheckConsistency(const char *installationPath);

/*
 * svcProgramInit prepares a process that belongs to the program alone: it switches core dumps off,
 * because the process will hold secrets, opens /dev/null in place of closed standard streams, makes
 * SIGPIPE and SIGXFSZ errors of the calls that raise them, and tells the PBE service that it may
 * choose process-wide options of libcrypto. Never called by a library. `options` and `programKind`
 * are recorded in the trace and change nothing.
 * Result: SVC_OK.
 */
ZT_EXPORT uint32_t svcProgramInit(int argumentCount, char **arguments, uint32_t options,
                                  uint32_t programKind);

/* Services that svcInitializeEx starts. */
enum SvcServices { SVC_SERVICE_MEMORY = 1, SVC_SERVICE_MESSAGES = 2, SVC_SERVICE_TRACE = 4 };

/*
 * svcInitializeEx starts the services named by `services` (bits of enum SvcServices) and confirms
 * that `context` is the message context. `environment` is recorded in the trace; the six reserved
 * arguments must be 0.
 * Result: SVC_OK, SVC_BAD_ARGUMENTS, SVC_NO_STORAGE, SVC_THREAD_KEY_LOST; on failure
 * thdProcess.initReason holds the reason.
 */
ZT_EXPORT uint32_t svcInitializeEx(uint32_t environment, uint32_t services, uint64_t reserved1,
                                   uint64_t reserved2, uint64_t reserved3, uint64_t reserved4,
                                   uint64_t reserved5, uint64_t reserved6, SvcMiniSubpool *context);

/*
 * svcProgramTerm ends the services: wipes and releases the initial keys that the PBE service handed
 * out and nobody released, drops libcrypto state of the service, and closes the trace.
 * Result: SVC_OK.
 */
ZT_EXPORT uint32_t svcProgramTerm(uint32_t options);

/* ---- Memory -------------------------------------------------------------------------------- */

/*
 * svcGetMemFn allocates `length` bytes, cleared to zero, and stores their address in *buffer.
 * `subpool` is 0; `component` and `allocation` say whose memory it is, for a debugger at this call;
 * `options` is 0.
 * The caller releases the memory with svcFreeMemFn. On failure *buffer is null.
 * Result: SVC_OK, SVC_BAD_ARGUMENTS (null reference or length 0), SVC_NO_STORAGE.
 */
ZT_EXPORT uint32_t svcGetMemFn(uint32_t subpool, uint16_t component, uint32_t allocation,
                               size_t length, uint32_t options, void **buffer);

/*
 * svcFreeMemFn wipes and releases memory of svcGetMemFn or of the PBE service. Null does nothing.
 * Result: SVC_OK.
 */
ZT_EXPORT uint32_t svcFreeMemFn(uint32_t subpool, uint16_t component, uint32_t allocation,
                                void *buffer);

/* svcWipe overwrites `length` bytes with zeros; the compiler cannot leave it out. */
ZT_EXPORT void svcWipe(void *buffer, size_t length);

/* ---- Failure records ----------------------------------------------------------------------- */

/* The latest failure record, as a diagnosing program sees it. */
typedef struct SvcFailureRecord {
    /* Failures recorded in this process so far. */
    uint32_t count;
    /* Numbers of the latest one. */
    uint32_t component;
    uint32_t failure;
    uint32_t probe;
    /* Where it was noticed; static text, "" before the first record. */
    const char *source;
    int32_t line;
} SvcFailureRecord;

/* svcSaveFileContextSccsId keeps the source location for this thread's next failure record.
 * `source` is static text. */
ZT_EXPORT void svcSaveFileContextSccsId(const char *source, int32_t line);

/* svcRecordFailure writes a failure record: numbers, saved source location and inserts go to the
 * trace, and the record is kept as the process's latest. It allocates nothing. `inserts` may be
 * null. */
struct SvcMessageInserts;
ZT_EXPORT void svcRecordFailure(uint32_t component, uint32_t failure, uint32_t probe,
                                const struct SvcMessageInserts *inserts);

/* svcGetFailureRecord copies the latest failure record of the process into *record. */
ZT_EXPORT void svcGetFailureRecord(SvcFailureRecord *record);

/* The numbers of the one failure that callers record: memory was refused. */
enum SvcFailure { SVC_FAILURE_MEMORY = 250, SVC_PROBE_MEMORY = 0x817 };

/* ---- Environment, users, files ------------------------------------------------------------- */

/* svcGetEnv returns the value of an environment variable, or null when it is not set. A variable
 * set to the empty text is set. The text belongs to the environment. */
ZT_EXPORT const char *svcGetEnv(const char *name);

/* svcIsEnvironment returns 1 when the variable is set, else 0. */
ZT_EXPORT int32_t svcIsEnvironment(const char *name);

/*
 * svcGetEnvironmentStringX copies a variable's value with its terminator into `buffer`, whose
 * capacity in bytes is *capacity; on success *capacity becomes the length of the text.
 * Result: SVC_OK, SVC_NOT_SET (not set, or longer than the buffer; buffer untouched).
 */
ZT_EXPORT uint32_t svcGetEnvironmentStringX(const char *name, char *buffer, size_t *capacity);

/* The common-services control block. */
typedef struct SvcCtrl {
    /* Real user identity of the process. */
    uid_t userId;
} SvcCtrl;

/* svcGetCtrl returns the control block of this process. */
ZT_EXPORT const SvcCtrl *svcGetCtrl(void);

/*
 * svcGetpwuid looks a user up in the password database (getpwuid_r, POSIX.1). The texts of *entry
 * lie in `scratch` of `scratchLength` bytes.
 * Result: SVC_OK, else the lookup's error number, or ENOENT when there is no such user.
 */
ZT_EXPORT uint32_t svcGetpwuid(uid_t userId, struct passwd *entry, char *scratch,
                               size_t scratchLength);

/*
 * svcFileExists sets *exists to 1 when something lies at `path`, else to 0.
 * Result: SVC_OK, else the error number of stat when the answer is not known.
 */
ZT_EXPORT uint32_t svcFileExists(const char *path, int32_t *exists);

/*
 * svcStrerrorEx writes the text of an error number into `buffer` of `capacity` bytes, always
 * terminated. `options` and `style` are 0 and 1: the plain text of the system.
 * Result: SVC_OK, SVC_BAD_ARGUMENTS (null buffer or capacity 0).
 */
ZT_EXPORT uint32_t svcStrerrorEx(int32_t errorNumber, char *buffer, size_t capacity,
                                 uint32_t options, uint32_t style);

/* ---- Numbered messages --------------------------------------------------------------------- */

/* Every message of the catalogue. The top digit tells the kind: 2 error, 1 warning, 0 notice. */
enum SvcMessageNumber {
    SVC_MSG_USAGE = 0x3056,
    SVC_MSG_PROTECTED = 0x9105,                 /* string 1: keystore.conf */
    SVC_MSG_DEFAULT_KEY = 0x10006339,           /* no inserts */
    SVC_MSG_FIPS_NOT_AVAILABLE = 0x10006349,    /* numeric 1: reason code */
    SVC_MSG_KEY_FILE_UNUSABLE = 0x20006335,     /* numeric 1: reason code, string 1: base name */
    SVC_MSG_PBE_FAILED = 0x20006337,            /* numeric 1: reason code */
    SVC_MSG_BAD_ARGUMENT = 0x20007027,          /* string 1: argument, string 2: program */
    SVC_MSG_DUPLICATE_KEY = 0x20009060,         /* string 1: file or null, string 2: key */
    SVC_MSG_KEY_MISSING = 0x20009061,           /* string 1: file or null, string 2: key */
    SVC_MSG_FILE_UNUSABLE = 0x20009062,         /* string 1: file; numeric 1: errno or 0 */
    SVC_MSG_KEY_SOURCE_UNREADABLE = 0x20009063, /* numeric 1: result, strings: file, item */
    SVC_MSG_NO_LOCATION = 0x20009083,           /* string 1: file name */
    SVC_MSG_CANNOT_OPEN = 0x20009106,           /* string 1: file, numeric 1: errno */
};

/* The inserts of one message, handed over by value. svcMakeInserts makes a valid block. */
typedef struct SvcMessageInserts {
    /* "SMIB", without a terminator. */
    char eyeCatcher[4];
    /* 0, as `unused` and `last`. */
    uint32_t reserved;
    /* A reason code or an error number. */
    int64_t numeric1;
    uint64_t unused[2];
    const char *string1;
    const char *string2;
    uint64_t last;
} SvcMessageInserts;

/* svcMakeInserts returns a cleared block with its eye-catcher and these inserts. */
static inline SvcMessageInserts svcMakeInserts(int64_t numeric1, const char *string1,
                                               const char *string2) {
    SvcMessageInserts inserts = {
        {'S', 'M', 'I', 'B'}, 0, numeric1, {0, 0}, string1, string2, 0,
    };
    return inserts;
}

/*
 * svcDisplayMessageForError writes one numbered message to standard error, in one write:
 * "ZTM9106E text", that is the prefix, the low 16 bits of `number` in four hexadecimal digits, then
 * E for 0x2... numbers, W for 0x1..., else I. The texts stand in one table,
 * platform/common/catalogue.cpp. Of an insert, control characters, characters that change the
 * direction of writing, and bytes that are no UTF-8 are shown as "?", one for each byte; a line is
 * cut at 10 KiB. `handle` and `word` are the message context; `options`, `source` and `line` go to
 * the trace.
 * Result: SVC_OK, SVC_BAD_ARGUMENTS (the block has no eye-catcher, or the number is not in the
 * catalogue).
 */
ZT_EXPORT uint32_t svcDisplayMessageForError(uint64_t handle, uint32_t word, uint32_t number,
                                             SvcMessageInserts inserts, uint32_t options,
                                             const char *source, int32_t line);

#ifdef __cplusplus
}
#endif

#if defined(__cplusplus) || __STDC_VERSION__ >= 201112L
static_assert(sizeof(SvcMessageInserts) == 56, "the insert block is handed by value");
static_assert(sizeof(SvcMiniSubpool) == 16, "a 64-bit handle and a 32-bit word");
#endif

#endif
