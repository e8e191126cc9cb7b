/*
 * ztpbe.h - password-based encryption (PBE) of single credentials, C99 and C++20.
 *
 * Part of the library libztmcs_r, on OpenSSL libcrypto. docs/encrypted-value.md describes the
 * stored form and the key derivation byte by byte.
 *
 * A session is one record of the caller's. Sessions share nothing; each belongs to one thread at a
 * time. Every result is a reason code of enum SvcPBEReason, 0 for success.
 */
#ifndef ZTPBE_H
#define ZTPBE_H

#include "ztsvc.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reason codes of the service. svcPBEReasonText has a short text for each. */
enum SvcPBEReason {
    SVC_PBE_OK = 0,
    /* Missing, a directory, not permitted, I/O error. */
    SVC_PBE_KEY_FILE_UNREADABLE = 0x20006341,
    /* Empty, or longer than SVC_PBE_KEY_FILE_LIMIT. */
    SVC_PBE_KEY_FILE_BAD_LENGTH = 0x20006342,
    /* Not a text that svcPBESave produces. */
    SVC_PBE_MALFORMED_TEXT = 0x20006343,
    /* Another key, or the text was changed. */
    SVC_PBE_AUTHENTICATION_FAILED = 0x20006344,
    /* Empty, or the stored text would be too long. */
    SVC_PBE_CLEAR_TEXT_LENGTH = 0x20006345,
    /* None of enum SvcPBELimits. */
    SVC_PBE_UNSUPPORTED_ALGORITHM = 0x20006346,
    /* Null or inconsistent argument or session. */
    SVC_PBE_BAD_ARGUMENTS = 0x20006347,
    /* libcrypto reported a failure. */
    SVC_PBE_CRYPTO_FAILED = 0x20006348,
    /* Memory could not be allocated. */
    SVC_PBE_NO_STORAGE = 0x20006350,
    /* No FIPS provider, or a passphrase that it may not use. */
    SVC_PBE_FIPS_NOT_AVAILABLE = 0x10006349
};

/* svcPBEReasonText returns the short static text of a reason code of the service or of
 * svcGetMemFn, or null for any other code. */
ZT_EXPORT const char *svcPBEReasonText(uint32_t reason);

enum SvcPBELimits {
    /* The algorithms: AES-256-CBC and HMAC-SHA-256, encrypt-then-MAC; AES-256-GCM (NIST SP
     * 800-38D); the default of the command and of the readers. */
    SVC_PBE_ALGORITHM_CBC_HMAC = 1,
    SVC_PBE_ALGORITHM_GCM = 2,
    SVC_PBE_ALGORITHM_LATEST = SVC_PBE_ALGORITHM_GCM,
    /* Bytes of a full-strength initial key. */
    SVC_PBE_KEY_LENGTH = 32,
    /* Bytes of the product's fixed salt. */
    SVC_PBE_SALT_LENGTH = 24,
    /* Longest stored text in characters. */
    SVC_PBE_STORED_LIMIT = 1024,
    /* Longest clear text in bytes that fits in one with SVC_PBE_ALGORITHM_LATEST. */
    SVC_PBE_CLEAR_TEXT_LIMIT = 729,
    /* Longest initial key file in bytes. */
    SVC_PBE_KEY_FILE_LIMIT = 4096,
    /* Passphrases are padded with zeros to at least this length. */
    SVC_PBE_PASSPHRASE_PADDING = 64,
    /* Shortest passphrase with fips in bytes: 112 bits (NIST SP 800-132). */
    SVC_PBE_FIPS_PASSPHRASE_MINIMUM = 14
};

/* The session record. Offsets are part of the contract. The caller clears the whole record, then
 * sets the fields up to `fips`; what is reserved or the service's stays 0. */
typedef struct SvcPBESession {
    /* SVC_PBE_ALGORITHM_CBC_HMAC or SVC_PBE_ALGORITHM_GCM: what svcPBESave encrypts with. */
    int32_t algorithm;
    uint32_t reserved1;
    /* Label of the protected data: 1 to 63 printable characters, no blank, "!" or "#"; copied at
     * opening. */
    const char *label;
    uint32_t reserved2;
    /* Bytes at `key`: SVC_PBE_KEY_LENGTH is a full-strength key, any other length is a passphrase.
     * */
    int32_t keyLength;
    /* The initial key, the caller's. */
    uint8_t *key;
    /* Bytes at `salt`. */
    int32_t saltLength;
    uint32_t reserved3;
    /* The salt, the caller's. */
    uint8_t *salt;
    /* 1 asks for a FIPS provider. */
    int32_t fips;
    /* The service's: 0 and null while the session is not open. */
    uint32_t serviceWord;
    void *serviceState;
    uint8_t serviceRest[32];
} SvcPBESession;

/*
 * svcPBEReadInitialKeyFile reads an initial key file (a regular file or a pipe) of 1 to 4,096
 * bytes: exactly 32 bytes are the key itself; 64 hexadecimal digits, or 44 characters of base64
 * that decode to 32 bytes, with at most one line end (LF or CRLF) behind them, give the decoded 32
 * bytes; anything else is a passphrase, less one line end, returned padded with zero bytes to at
 * least 64.
 *  key        receives a new buffer; the caller releases it with svcPBEFreeBuf (key, keyLength).
 *             What nobody released is wiped and released by svcProgramTerm.
 *  keyLength  receives its length in bytes.
 * Result: SVC_PBE_OK, SVC_PBE_KEY_FILE_UNREADABLE, SVC_PBE_KEY_FILE_BAD_LENGTH,
 * SVC_PBE_BAD_ARGUMENTS, SVC_PBE_NO_STORAGE.
 */
ZT_EXPORT uint32_t svcPBEReadInitialKeyFile(const char *path, uint8_t **key, int32_t *keyLength);

/*
 * svcPBEInit opens a session. It checks the record and the FIPS choice; the key of an algorithm is
 * derived at its first value saved or restored, so key and salt must stay valid and unchanged while
 * values are. `handle` and `word` are the message context svcIC_MINI_SUBPOOL.
 * Result: SVC_PBE_OK, SVC_PBE_BAD_ARGUMENTS (also: already open), SVC_PBE_UNSUPPORTED_ALGORITHM,
 * SVC_PBE_FIPS_NOT_AVAILABLE, SVC_PBE_NO_STORAGE. On failure the session holds nothing of the
 * service, but a session that was open already is left as it is.
 */
ZT_EXPORT uint32_t svcPBEInit(uint64_t handle, uint32_t word, SvcPBESession *session);

/*
 * svcPBESave encrypts one credential.
 *  clearText    clearLength bytes, not empty.
 *  storedText   receives the stored form: printable, one line, no blank, no "#", not terminated, at
 *               most 1,024 characters. The caller releases it with svcPBEFreeBuf.
 * Result: SVC_PBE_OK, SVC_PBE_CLEAR_TEXT_LENGTH, SVC_PBE_BAD_ARGUMENTS, SVC_PBE_NO_STORAGE,
 * SVC_PBE_CRYPTO_FAILED. On failure the outputs are null and 0.
 */
ZT_EXPORT uint32_t svcPBESave(SvcPBESession *session, const char *clearText, int32_t clearLength,
                              char **storedText, int32_t *storedLength);

/*
 * svcPBERestore decrypts one stored credential. The digit in the text decides the algorithm,
 * whatever the session's own is.
 *  storedText   storedLength characters, need not be terminated.
 *  algorithm    receives that digit; may be null.
 *  clearText    receives the credential, not terminated; the caller releases it with svcPBEFreeBuf,
 *               which wipes it.
 * Result: SVC_PBE_OK, SVC_PBE_MALFORMED_TEXT (also for an empty text),
 * SVC_PBE_AUTHENTICATION_FAILED, SVC_PBE_BAD_ARGUMENTS, SVC_PBE_NO_STORAGE, SVC_PBE_CRYPTO_FAILED.
 * On failure the outputs are null and 0.
 */
ZT_EXPORT uint32_t svcPBERestore(SvcPBESession *session, const char *storedText,
                                 int32_t storedLength, uint32_t *algorithm, char **clearText,
                                 int32_t *clearLength);

/* Characters of a key's fingerprint, without the NUL behind them. */
enum { SVC_PBE_FINGERPRINT_LENGTH = 16 };

/*
 * svcPBEFingerprint makes a short text that tells the initial key of a session from others, and may
 * be shown. It is derived like the keys of values, from a passphrase that was stretched, so that
 * guessing a key by its fingerprint costs as much as guessing it by an encrypted value.
 *  fingerprint  receives SVC_PBE_FINGERPRINT_LENGTH hexadecimal digits and a NUL; empty on failure.
 * Result: SVC_PBE_OK, SVC_PBE_BAD_ARGUMENTS, SVC_PBE_NO_STORAGE, SVC_PBE_CRYPTO_FAILED.
 */
ZT_EXPORT uint32_t svcPBEFingerprint(SvcPBESession *session, char *fingerprint);

/* svcPBEFreeBuf wipes and releases a buffer of the service or of svcGetMemFn; null does nothing.
 * Result: SVC_PBE_OK. */
ZT_EXPORT uint32_t svcPBEFreeBuf(void *buffer, int32_t length);

/* Flag of svcPBETerm. */
enum SvcPBETermFlag {
    SVC_PBE_TERM_CLOSE = 0,
    SVC_PBE_TERM_WIPE = 1, /* also wipe the bytes at key and salt where they lie */
};

/*
 * svcPBETerm closes a session: everything derived is wiped and released. Key and salt stay the
 * caller's; they are never released here. A session that is not open is left as it is.
 * Result: SVC_PBE_OK, SVC_PBE_BAD_ARGUMENTS (null session).
 */
ZT_EXPORT uint32_t svcPBETerm(SvcPBESession *session, uint32_t flag);

#ifdef __cplusplus
}
#endif

#if defined(__cplusplus) || __STDC_VERSION__ >= 201112L
static_assert(sizeof(SvcPBESession) == 96, "the record is 96 bytes in all");
static_assert(offsetof(SvcPBESession, label) == 8 && offsetof(SvcPBESession, keyLength) == 20 &&
                  offsetof(SvcPBESession, key) == 24 && offsetof(SvcPBESession, saltLength) == 32 &&
                  offsetof(SvcPBESession, salt) == 40 && offsetof(SvcPBESession, fips) == 48 &&
                  offsetof(SvcPBESession, serviceWord) == 52,
              "offsets of the session record are fixed");
#endif

#endif
