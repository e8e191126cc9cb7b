/*
 * ztvek.h - configuration library of the security component (library libztvek_r), C99, C11 and
 * C++20.
 *
 * The library finds keystore.conf, reads and parses it, and fills one record per section. A caller
 * of the readers needs this header and -lztvek_r. The header includes ztsvc.h and ztpbe.h, whose
 * functions (svcWipe among them) are in -lztmcs_r; pkg-config and CMake name both. keystore.conf(5)
 * describes the file.
 *
 * Rules that hold everywhere:
 *  - Result codes. A function returns a code of enum SztuResult, 0 for success; a reader that
 *    decrypts may also return a reason code of the PBE service (enum SvcPBEReason) unchanged.
 *  - Null pointers. A pointer is not null unless its description says that it may be. A reader
 *    refuses a null record or channel name with 2. A null path means the standard location: the
 *    file named by ZTS_KEYSTORE_CONF, else $HOME/.zts/keystore.conf. A null error key means that
 *    none is wanted.
 *  - Ownership. Records and buffers are the caller's; a reader allocates nothing that outlives the
 *    call. What sztucReadConfigFile and SztuListCreate hand over is released with svcFreeMemFn.
 *  - Integer keys. The digits at the start of the value count, and what follows them is ignored. Of
 *    20 characters or more the first 20 count; a number beyond 64 bits is taken as the largest or
 *    lowest of them; the low 32 bits of that are stored.
 *  - Text fields have a fixed capacity. A value shorter than the capacity is terminated and the
 *    rest of its field is zero; a value that is as long or longer fills the field WITHOUT a
 *    terminator. Clear the record first, and read a field with its capacity as limit.
 *  - After a failure the fields read before it keep their new values; fields after it are not
 *    written.
 *  - Error keys. A reader sets the buffer to its section's name and appends the key at fault, for
 *    example "pem.private"; an LDAP password that cannot be decrypted is "crl.token_pin". When the
 *    cipher session cannot be opened, the buffer says "vekcred" or "vekcred.keyfile".
 *    SZTOU_ERROR_KEY_CAPACITY bytes are enough for every reader.
 *  - Messages. Numbered messages go to standard error while sztUseLogErrorMessage is not 0.
 *  - Threads. Every function may be called from any thread with its own record, list and buffers.
 *    The channel cache has no lock: fill and release it while no reader runs. Set
 *    sztUseLogErrorMessage before the first reader runs.
 *  - Secrets. A record that a reader has filled can hold a credential in clear: wipe it (svcWipe)
 *    right after use.
 */
#ifndef ZTVEK_H
#define ZTVEK_H

#include "ztpbe.h"
#include "ztsvc.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Common definitions -------------------------------------------------------------------- */

enum SztuResult {
    SZTU_OK = 0,
    SZTU_KEY_NOT_PRESENT = 1, /* an optional key is not in the section */
    SZTU_BAD_ARGUMENTS = 2,   /* incorrect arguments, or the cipher session could not be opened */
    SZTU_SECTION_EMPTY = 7,   /* the section has no entries in the file */
    SZTU_CANNOT_PARSE = 11,   /* the file cannot be parsed */
    SZTU_CANNOT_READ = 12,    /* the file cannot be read */
    /* no path known; a required key missing, a key written twice, or a value of the wrong kind */
    SZTU_BAD_CONFIG = 15
};

enum SztuCapacity {
    SZTUC_PATH_CAPACITY = 4097,    /* a path buffer: 4,096 characters and the terminator */
    SZTUC_PREFIX_CAPACITY = 32,    /* a section prefix area */
    SZTUC_KEY_CAPACITY = 256,      /* the key part of a line with its terminator */
    SZTOU_ERROR_KEY_CAPACITY = 64, /* an error-key buffer that suits every reader */
    SZTOU_CHANNEL_LENGTH = 20      /* characters of a channel name that count */
};

/* Switches the numbered messages of the library on (not 0, the initial state) or off (0). */
ZT_EXPORT extern uint32_t sztUseLogErrorMessage;

/* ---- List of untyped items ----------------------------------------------------------------- */

typedef struct SztuListNode {
    void *item;
    struct SztuListNode *next; /* null at the tail */
    struct SztuListNode *prev; /* null at the head */
} SztuListNode;

typedef struct SztuList SztuList;

/* A predicate returns non-zero for a match. A callback must not remove the node that it is
 * given. */
typedef int32_t SztuPredicate(void *item);
typedef int32_t SztuPredicateWith(void *item, void *data);
typedef void SztuVisitor(void *item);
typedef void SztuVisitorWith(void *item, void *data);

/*
 * SztuList is a doubly linked list that carries its operations; each takes the list as its first
 * argument: list->SztuListAppend(list, item). The list owns its nodes, never the items. The pairs
 * ...With and ...WithData do the same. An item whose node cannot be allocated is silently not
 * added: a caller that must know compares SztuListCount before and after.
 */
struct SztuList {
    uint64_t count;
    SztuListNode *head; /* null when empty */
    SztuListNode *tail;
    uint64_t (*SztuListCount)(SztuList *list);
    void (*SztuListAppend)(SztuList *list, void *item);
    void (*SztuListPrepend)(SztuList *list, void *item);
    void (*SztuListInsertAfter)(SztuList *list, SztuListNode *node, void *item);
    void (*SztuListInsertBefore)(SztuList *list, SztuListNode *node, void *item);
    void (*SztuListRemoveHead)(SztuList *list);
    void (*SztuListRemoveTail)(SztuList *list);
    void (*SztuListRemoveNode)(SztuList *list, SztuListNode *node);
    /* Removes all nodes. For each, `destructor` (may be null) releases what the item points to,
       then, with freeItems not 0, svcFreeMemFn releases the item itself. */
    void (*SztuListRemoveAll)(SztuList *list, int32_t freeItems, SztuVisitor *destructor);
    /* Removes all nodes; the items stay with their owner. */
    void (*SztuListClear)(SztuList *list);
    /* The finds return the first matching node, or null. */
    SztuListNode *(*SztuListFind)(SztuList *list, SztuPredicate *predicate);
    SztuListNode *(*SztuListFindWith)(SztuList *list, SztuPredicateWith *predicate, void *data);
    SztuListNode *(*SztuListFindWithData)(SztuList *list, SztuPredicateWith *predicate, void *data);
    SztuListNode *(*SztuListFindItem)(SztuList *list, void *item);
    void (*SztuListForEach)(SztuList *list, SztuVisitor *visitor);
    void (*SztuListForEachWith)(SztuList *list, SztuVisitorWith *visitor, void *data);
    void (*SztuListForEachWithData)(SztuList *list, SztuVisitorWith *visitor, void *data);
    uint32_t (*SztuListCountIf)(SztuList *list, SztuPredicate *predicate);
    uint32_t (*SztuListCountIfWith)(SztuList *list, SztuPredicateWith *predicate, void *data);
    uint32_t (*SztuListCountIfWithData)(SztuList *list, SztuPredicateWith *predicate, void *data);
};

/* SztuListCreate returns a new, empty list, or null when it cannot be allocated. The owner empties
 * it (SztuListRemoveAll or SztuListClear) and releases it with svcFreeMemFn. */
ZT_EXPORT SztuList *SztuListCreate(void);

/* ---- Configuration file -------------------------------------------------------------------- */

/* One accepted line of keystore.conf. Both texts are allocations of their own. */
typedef struct SztucConfigItem {
    char *key;   /* after sztucFilterPrefix without the section prefix and its dot */
    char *value; /* never empty */
} SztucConfigItem;

/*
 * sztucGetConfigFilePath writes the full path of the configuration file into `path`.
 *  path        SZTUC_PATH_CAPACITY bytes; always terminated; a longer path is cut silently.
 *  envVarName  variable that may name the file itself ("ZTS_KEYSTORE_CONF").
 *  fileName    name of the file in $HOME/.zts ("keystore.conf").
 * Result: SZTU_OK; SZTU_BAD_CONFIG when no home directory is known, `path` then holds nothing
 * usable.
 */
ZT_EXPORT uint32_t sztucGetConfigFilePath(char *path, const char *envVarName, const char *fileName);

/*
 * sztucReadConfigFile reads a whole file into one new buffer of its size and a terminating NUL.
 *  buffer       receives the text; the caller's from then on, after a failure too; released with
 *               svcFreeMemFn.
 *  errorNumber  receives 0 or the error number (errno) of the step that failed.
 * Result: SZTU_OK; SZTU_CANNOT_READ when the file cannot be read or is empty.
 */
ZT_EXPORT uint32_t sztucReadConfigFile(const char *path, char **buffer, int32_t *errorNumber);

/* sztucStrip moves *text past leading white space and cuts trailing white space off in place,
 * unless the last character that is not white space equals the first one: then the end is kept. */
ZT_EXPORT void sztucStrip(char **text);

/*
 * sztucParseConfigFile appends one SztucConfigItem per key line of `text` to `list`. The items are
 * copies; what `text` holds afterwards is not defined.
 * Result: SZTU_OK; SZTU_CANNOT_PARSE when a line has no "=", a key part of 256 characters or more,
 * or no value, or when there is no key line at all, or no memory. The items appended before that
 * stay in the list.
 */
ZT_EXPORT uint32_t sztucParseConfigFile(char *text, SztuList *list);

/* sztucFindKey returns 1 when the key of `item` (SztucConfigItem) equals `key` (text), else 0. */
ZT_EXPORT int32_t sztucFindKey(void *item, void *key);

/* sztucGetPrefix copies the text before the first "." of `key`, at most SZTUC_PREFIX_CAPACITY
 * characters and without a terminator, into `prefix`, which the caller has cleared.
 * Result: length of the prefix plus one, or 0 (nothing copied) for a key without a dot. */
ZT_EXPORT int32_t sztucGetPrefix(char *prefix, const char *key);

/* sztucFilterPrefix keeps the items of one section, removes the section prefix from their keys, and
 * frees all others. A null list or section does nothing. */
ZT_EXPORT void sztucFilterPrefix(SztuList *list, const char *section);

/* sztucFreeConfigItem releases the texts of an item (SztucConfigItem, may be null), not the
 * item. */
ZT_EXPORT void sztucFreeConfigItem(void *item);

/* sztucFreeConfigList releases a list of items with everything in it; null does nothing. */
ZT_EXPORT void sztucFreeConfigList(void *list);

/* ---- Section "cms": key store, and the channel cache --------------------------------------- */

typedef struct SztouKsConfig {
    /* label of the certificate (of the channel's, in the channel reader); required */
    char certificate[1024];
    int32_t fips;         /* 1 or 0; absent 0 */
    int32_t forceFipsOff; /* 1 or 0; absent 0; written by sztouGetMCAConfig only */
    char keystore[1024];  /* path of the key store; required */
} SztouKsConfig;

/*
 * sztouGetKsConfig reads "cms.keystore", "cms.certificate" (both required) and "cms.fips".
 *  keystorePath  file to read, or null for the standard location.
 *  errorKey      null, or at least 16 bytes.
 * Result: SZTU_OK, SZTU_BAD_ARGUMENTS, SZTU_SECTION_EMPTY, SZTU_CANNOT_PARSE, SZTU_CANNOT_READ,
 *         SZTU_BAD_CONFIG.
 */
ZT_EXPORT uint32_t sztouGetKsConfig(SztouKsConfig *config, const char *keystorePath,
                                    char *errorKey);

/*
 * sztouGetMCAConfig reads "cms.keystore", "cms.certificate.channel.<channel>", "cms.fips" and
 * "cms.forceFipsOff", from the channel cache while keystorePath is spelled like the cached path and
 * the file's modification time (whole seconds) is the cached one.
 *  channelName   up to 20 characters, may be padded with blanks; more characters do not count.
 *  keystorePath  as above, but never null while the cache is filled.
 *  errorKey      null, or at least 45 bytes.
 * Result: SZTU_OK; SZTU_KEY_NOT_PRESENT when "keystore" or the channel's certificate is absent;
 *         SZTU_BAD_ARGUMENTS, SZTU_SECTION_EMPTY, SZTU_CANNOT_PARSE, SZTU_CANNOT_READ,
 *         SZTU_BAD_CONFIG.
 */
ZT_EXPORT uint32_t sztouGetMCAConfig(SztouKsConfig *config, const char *channelName,
                                     const char *keystorePath, char *errorKey);

/* sztouCacheMCAKeystoreConf loads the "cms" section of the standard file into the channel cache, in
 * processes of kind 12, 14, 15 or 47 (thdProcess.processKind) only. Failures are silent. A section
 * cached before is lost: call sztouReleaseMCAKeyStoreConf first. The result has no meaning. */
ZT_EXPORT uint32_t sztouCacheMCAKeystoreConf(void);

/* sztouReleaseMCAKeyStoreConf empties the channel cache. */
ZT_EXPORT void sztouReleaseMCAKeyStoreConf(void);

/* sztouIsMCAInterceptEnabled returns 1 when the channel has a certificate label of its own, else 0;
 * always 0 while the channel cache is empty. */
ZT_EXPORT int32_t sztouIsMCAInterceptEnabled(const char *channelName);

/* ---- Section "ocsp" ------------------------------------------------------------------------ */

typedef struct SztouOcspConfig {
    int32_t enable;          /* 2 true, 1 false; absent 0 */
    char url[1024];          /* responder; absent: all zero */
    char httpProxyHost[256]; /* absent: all zero */
    int32_t httpProxyPort;   /* absent -1 */
    int32_t unknown;         /* 1 REJECT, 2 ACCEPT, 3 WARN; absent 0 */
    int32_t nonceGeneration; /* 1 or 0; absent -1 */
    int32_t nonceCheck;      /* 1 or 0; absent -1 */
    int32_t nonceSize;       /* absent -1 */
    int32_t httpGet;         /* 1 or 0; absent -1 */
    int32_t maxResponseSize; /* absent -1 */
    int32_t cacheSize;       /* absent -1 */
    int32_t timeout;         /* absent -1 */
    int32_t signature;       /* -1, 0, 1 or 2; absent -1 */
    int32_t log;             /* 1 or 0; absent 0 */
} SztouOcspConfig;

/*
 * sztouGetOcspConfig reads the section "ocsp". Every key is optional, but a section that sets
 * anything needs "enable", "url" or "http.proxy.host".
 *  errorKey  null, or at least 24 bytes.
 * Result: SZTU_OK, SZTU_BAD_ARGUMENTS, SZTU_SECTION_EMPTY, SZTU_CANNOT_PARSE, SZTU_CANNOT_READ,
 *         SZTU_BAD_CONFIG.
 */
ZT_EXPORT uint32_t sztouGetOcspConfig(SztouOcspConfig *config, const char *keystorePath,
                                      char *errorKey);

/* ---- Section "vekcred", and cipher sessions ------------------------------------------------ */

/*
 * sztouGetVEKCredConfig reads "vekcred.keyfile", the path of an initial key file.
 *  keyFile   SZTUC_PATH_CAPACITY bytes, cleared by the caller; stays empty when the key is absent.
 *  itemName  null, or at least 16 bytes: "vekcred", or "vekcred.keyfile" after a failure of the
 *            key.
 * Result: SZTU_OK; SZTU_SECTION_EMPTY when the section has no entries; SZTU_BAD_ARGUMENTS,
 *         SZTU_CANNOT_PARSE, SZTU_CANNOT_READ, SZTU_BAD_CONFIG.
 */
ZT_EXPORT uint32_t sztouGetVEKCredConfig(char *keyFile, const char *keystorePath, char *itemName);

/*
 * sztouInitializePBE opens a cipher session with the initial key from, in this order, the file
 * named by ZTS_VEKCRED_KEYFILE, the file named by "vekcred.keyfile", or the built-in default key.
 *  component, function  attribute memory and trace records.
 *  itemName  null, or at least 16 bytes.
 *  session   cleared, with `algorithm` set. A session that is open is left as it is, with its key
 *            and salt: SZTU_BAD_ARGUMENTS.
 *  fips      1 asks for a FIPS provider.
 * Result: SZTU_OK, the session is open and is closed with sztouTermPBE; the code of
 * sztouGetVEKCredConfig when that is neither SZTU_OK nor SZTU_SECTION_EMPTY; SZTU_BAD_ARGUMENTS for
 * every other failure. After a failure to open a session its key and salt are null.
 */
ZT_EXPORT int32_t sztouInitializePBE(uint16_t component, uint32_t function,
                                     const char *keystorePath, char *itemName,
                                     SvcPBESession *session, int32_t fips);

/* sztouTermPBE releases key and salt of a session and closes it. Result: that of svcPBETerm. */
ZT_EXPORT uint32_t sztouTermPBE(SvcPBESession *session);

/* ---- Section "pem" ------------------------------------------------------------------------- */

typedef struct SztouPemConfig {
    char reserved[1024];   /* not read or written by the readers */
    int32_t fips;          /* 1 or 0; absent 0 */
    int32_t forceFipsOff;  /* 1 or 0; absent 0; written by sztouGetMCAPemConfig only */
    char privateKey[1024]; /* key "private": PEM file of the private key; required */
    char publicKey[1024];  /* key "public": PEM file of the certificate; required */
    char password[256];    /* password of the private key, in clear; required */
    /* 2 check extended key usage, 1 do not, 0 not settled; absent 1, in the channel reader 0 */
    int32_t checkpurpose;
    int32_t encrypted; /* 1 the password is stored encrypted, else 0; absent 0 */
} SztouPemConfig;

/*
 * sztouGetPemConfig reads the section "pem": "private", "public", "password" (required),
 * "encrypted", "fips", "checkpurpose".
 *  errorKey  null, or at least 25 bytes.
 * Result: SZTU_OK, SZTU_BAD_ARGUMENTS, SZTU_SECTION_EMPTY, SZTU_CANNOT_PARSE, SZTU_CANNOT_READ,
 *         SZTU_BAD_CONFIG, or a reason code of svcPBERestore.
 */
ZT_EXPORT uint32_t sztouGetPemConfig(SztouPemConfig *config, const char *keystorePath,
                                     char *errorKey);

/*
 * sztouGetMCAPemConfig reads the keys of one channel, "pem.private.channel.<channel>" and so on,
 * with "pem.fips" and "pem.forceFipsOff". It shows no message for an absent key.
 *  channelName, keystorePath  as for sztouGetMCAConfig.
 *  errorKey  null, or at least 46 bytes.
 *
 * Two traps:
 *  - The password is decrypted only when "pem.encrypted.channel.<channel>" is YES. Without that
 *    marker an encrypted text is handed over as the password, with SZTU_OK. Write the marker for
 *    each channel; a password that begins with "<VEK>" and holds three "!" is not in clear.
 *  - While the channel cache is filled and serves keystorePath, the keys are looked up in the
 *    section "cms", which is the one that it holds, and mostly are not there: SZTU_KEY_NOT_PRESENT.
 *    Pass the path spelled otherwise ("//" for a "/"), or call sztouReleaseMCAKeyStoreConf first.
 *
 * Result: SZTU_OK; SZTU_KEY_NOT_PRESENT when the channel's private, public or password key is
 *         absent; SZTU_BAD_ARGUMENTS, SZTU_SECTION_EMPTY, SZTU_CANNOT_PARSE, SZTU_CANNOT_READ,
 *         SZTU_BAD_CONFIG, or a reason code of svcPBERestore.
 */
ZT_EXPORT uint32_t sztouGetMCAPemConfig(SztouPemConfig *config, const char *channelName,
                                        const char *keystorePath, char *errorKey);

/* ---- Section "pkcs11" ---------------------------------------------------------------------- */

typedef struct SztouPkcs11Config {
    char certificate[1024];         /* certificate on the token; required */
    int32_t fips;                   /* 1 or 0; absent 0 */
    int32_t secondFlag;             /* not touched by the reader */
    char library[4096];             /* PKCS #11 module; required */
    char token[1024];               /* label of the token; required */
    char token_pin[1024];           /* PIN of the token, in clear; required */
    char secondary_keystore[1024];  /* absent: all zero */
    int32_t secondaryKeystoreState; /* 0 when secondary_keystore is present; absent: not written */
    int32_t encrypted;              /* 1 the PIN is stored encrypted, else 0; absent 0 */
} SztouPkcs11Config;

/*
 * sztouGetPkcs11Config reads the section "pkcs11": "library", "certificate", "token", "token_pin"
 * (required), "encrypted", "fips", "secondary_keystore".
 *  errorKey  null, or at least 28 bytes.
 * Result: SZTU_OK, SZTU_BAD_ARGUMENTS, SZTU_SECTION_EMPTY, SZTU_CANNOT_PARSE, SZTU_CANNOT_READ,
 *         SZTU_BAD_CONFIG, or a reason code of svcPBERestore.
 */
ZT_EXPORT uint32_t sztouGetPkcs11Config(SztouPkcs11Config *config, const char *keystorePath,
                                        char *errorKey);

/* ---- Section "crl" ------------------------------------------------------------------------- */

enum { SZTOU_LDAP_SERVERS = 11 };

typedef struct SztouLdapServer {
    int32_t version; /* absent -1 */
    char host[256];  /* absent: all zero */
    int32_t port;    /* absent -1 */
    char user[1024]; /* bind name; absent: all zero */
    char pass[256];  /* bind password, in clear; absent: all zero */
} SztouLdapServer;

typedef struct SztouCrlConfig {
    int32_t cdp;                                     /* 2 true, 1 false; absent 0 */
    SztouLdapServer ldapServers[SZTOU_LDAP_SERVERS]; /* only the first is read or written */
    char ldapLibrary[4096];                          /* absent: all zero */
    int32_t ldapCacheLifetime;                       /* absent -1 */
    int32_t ldapCacheSize;                           /* absent -1 */
    char reserved[1024];                             /* cleared by the reader */
    char httpProxyHost[256];                         /* absent: all zero */
    int32_t httpProxyPort;                           /* absent -1 */
    int32_t httpMaxResponseSize;                     /* absent -1 */
    int32_t httpTimeout;                             /* absent -1 */
    int32_t httpCacheSize;                           /* absent -1 */
    int32_t log;                                     /* 1 or 0; absent 0 */
    int32_t encrypted; /* 1 the LDAP password is stored encrypted, else 0; absent 0 */
} SztouCrlConfig;

/*
 * sztouGetCrlConfig reads the section "crl". Every key is optional, but a section that sets
 * anything needs "cdp" or "ldap.host". Port, user, password and version without a host are dropped.
 *  errorKey  null, or at least 25 bytes.
 *  fips      1 asks for a FIPS provider to decrypt the password.
 * Result: SZTU_OK, SZTU_BAD_ARGUMENTS, SZTU_SECTION_EMPTY, SZTU_CANNOT_PARSE, SZTU_CANNOT_READ,
 *         SZTU_BAD_CONFIG, or a reason code of svcPBERestore.
 */
ZT_EXPORT uint32_t sztouGetCrlConfig(SztouCrlConfig *config, const char *keystorePath,
                                     char *errorKey, int32_t fips);

#ifdef __cplusplus
}
#endif

#if defined(__cplusplus) || __STDC_VERSION__ >= 201112L
static_assert(offsetof(SztuList, SztuListCount) == 24 &&
                  sizeof(SztuList) == 24 + 20 * sizeof(void *),
              "20 operation entries behind count, head and tail");
static_assert(sizeof(SztouKsConfig) == 2056 && offsetof(SztouKsConfig, keystore) == 1032,
              "fixed layout");
static_assert(sizeof(SztouOcspConfig) == 1328 && offsetof(SztouOcspConfig, httpProxyPort) == 1284,
              "fixed layout");
static_assert(sizeof(SztouPemConfig) == 3344 && offsetof(SztouPemConfig, password) == 3080,
              "fixed layout");
static_assert(sizeof(SztouPkcs11Config) == 8208 && offsetof(SztouPkcs11Config, token_pin) == 6152,
              "fixed layout");
static_assert(sizeof(SztouLdapServer) == 1544 && offsetof(SztouLdapServer, pass) == 1288,
              "fixed layout");
static_assert(sizeof(SztouCrlConfig) == 22396 && offsetof(SztouCrlConfig, ldapLibrary) == 16988,
              "fixed layout");
#endif

#endif
