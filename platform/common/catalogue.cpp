/*
 * catalogue.cpp - the texts of all numbered messages, and of the reason codes that they end with.
 *
 * In a text, %1 and %2 stand for the string inserts, %c for numeric insert 1 as a code in hexadecimal,
 * %n for the same in decimal, %e for ": " and the system's text of that error number, and %r for ": "
 * and the PBE service's text of that reason code; %e and %r are empty when there is no such text.
 */
#include "common/catalogue.h"

#include "ztpbe.h"
#include "ztsvc.h"

namespace {

constexpr CatalogueEntry ENTRIES[] = {
    {SVC_MSG_USAGE,
     "Usage: runvekcred [-f path] [-o path] [-sf path] [-sp 1|2] [-sm] [-?]\n"
     "  -f path   keystore.conf to protect; default: the file named by ZTS_KEYSTORE_CONF, else "
     "$HOME/.zts/keystore.conf\n"
     "  -o path   write the result to this file and leave keystore.conf as it is\n"
     "  -sf path  initial key file; default: the file named by ZTS_VEKCRED_KEYFILE, else by "
     "vekcred.keyfile in keystore.conf, else the built-in key\n"
     "  -sp 1|2   algorithm: 2 is AES-256-GCM (default), 1 is AES-256-CBC with HMAC-SHA-256\n"
     "  -sm       use a FIPS provider of OpenSSL, or fail\n"
     "  -?        show this text"},
    {SVC_MSG_KEY_FILE_UNUSABLE,
     "The initial key file '%1' (the last part of its path) cannot be used%r. Nothing was "
     "encrypted or decrypted. The file is named by -sf of runvekcred, else by "
     "ZTS_VEKCRED_KEYFILE, else by vekcred.keyfile in keystore.conf; a relative path "
     "counts from the working directory. Correct the path, or make it a file of 1 to 4096 "
     "bytes that this user may read."},
    {SVC_MSG_PBE_FAILED,
     "The credential service failed: a credential was neither encrypted nor decrypted, and "
     "keystore.conf is as it was. Which one stopped runvekcred, a run with -o and a new file "
     "shows: its line is the last one there. Reason %c%r."},
    {SVC_MSG_DEFAULT_KEY,
     "No initial key file is named, so the built-in default key is used. Anyone who has "
     "this program can read a value protected with it. For a key of your own, name a key "
     "file with -sf, with ZTS_VEKCRED_KEYFILE or with vekcred.keyfile in keystore.conf, "
     "for the writer and all readers. If runvekcred now ends with status 11 or 15 "
     "instead, nothing was changed: a line of keystore.conf is not 'section.key = value' "
     "(11), or vekcred.keyfile stands there twice (15)."},
    {SVC_MSG_FIPS_NOT_AVAILABLE,
     "FIPS mode was asked for and cannot be had (reason %c). Nothing was written. "
     "Configure a FIPS provider in the OpenSSL configuration of this system, and use a "
     "key of 32 bytes or a passphrase of at least 14 bytes."},
    {SVC_MSG_BAD_ARGUMENT,
     "'%1' is not a valid argument of %2, or its value is missing or not valid."},
    {SVC_MSG_DUPLICATE_KEY,
     "The file '%1' holds the key '%2' more than once in one section. Keep one of the "
     "lines 'section.%2 = value'."},
    {SVC_MSG_KEY_MISSING,
     "The file '%1' lacks the required key '%2'. Add a line 'section.%2 = value' to its "
     "section; upper and lower case count."},
    {SVC_MSG_FILE_UNUSABLE,
     "The file '%1' cannot be used as keystore.conf%e. It must be a file that exists, "
     "that this user may read and that is not empty; each line must be empty, a comment "
     "(#) or 'section.key = value' with a value, and one must be of that last kind. "
     "Another file is named by -f of runvekcred or by ZTS_KEYSTORE_CONF."},
    {SVC_MSG_KEY_SOURCE_UNREADABLE,
     "The key source '%2' of the file '%1' cannot be read (result %n: 11 a line of the "
     "file is not 'section.key = value', 12 the file cannot be read, 15 the key stands "
     "there twice). Credentials were not decrypted. Correct the file, even when "
     "ZTS_VEKCRED_KEYFILE names the key file."},
    {SVC_MSG_NO_LOCATION,
     "The place of '%1' is not known. Set ZTS_KEYSTORE_CONF to its full path, or HOME."},
    {SVC_MSG_PROTECTED, "The credentials of '%1' are in protected form; values behind a YES marker "
                        "were kept as they stood."},
    {SVC_MSG_CANNOT_OPEN,
     "The file '%1' cannot be opened or written%e. keystore.conf was not replaced. Check "
     "the path, the permissions of its directory and the free space; a name that ends in "
     ".bak is the new content, built beside keystore.conf."},
};

struct ReasonText {
    uint32_t reason;
    const char *text;
};

constexpr ReasonText REASON_TEXTS[] = {
    {SVC_PBE_OK, "success"},
    {SVC_PBE_KEY_FILE_UNREADABLE, "the file is missing, is a directory or cannot be read"},
    {SVC_PBE_KEY_FILE_BAD_LENGTH, "the file is empty or longer than 4096 bytes"},
    {SVC_PBE_MALFORMED_TEXT, "the value is not an encrypted one: it is clear or missing behind a "
                             "YES marker, or was changed"},
    {SVC_PBE_AUTHENTICATION_FAILED,
     "the value was encrypted with another key than the one in use (that of ZTS_VEKCRED_KEYFILE, "
     "else of vekcred.keyfile, else the built-in one), or was changed"},
    {SVC_PBE_CLEAR_TEXT_LENGTH,
     "the value is longer than 729 bytes (703 with algorithm 1), or empty"},
    {SVC_PBE_UNSUPPORTED_ALGORITHM, "the algorithm is not supported"},
    {SVC_PBE_BAD_ARGUMENTS, "incorrect arguments"},
    {SVC_PBE_CRYPTO_FAILED,
     "the cryptographic library failed; see the OpenSSL configuration of this system"},
    {SVC_PBE_NO_STORAGE, "no memory"},
    {SVC_PBE_FIPS_NOT_AVAILABLE,
     "no FIPS provider is configured for OpenSSL, or the passphrase is shorter than 14 bytes"},
    {SVC_NO_STORAGE, "no memory"},
    {SVC_BAD_ARGUMENTS, "incorrect arguments"},
};

} // namespace

std::span<const CatalogueEntry> messageCatalogue() {
    return ENTRIES;
}

const char *svcPBEReasonText(uint32_t reason) {
    for (const ReasonText &entry : REASON_TEXTS) {
        if (entry.reason == reason)
            return entry.text;
    }
    return nullptr;
}
