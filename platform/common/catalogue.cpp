/*
 * catalogue.cpp - the texts of all numbered messages, and of the reason codes that they end with.
 *
 * A text says first what happened, then what to do, in at most 240 characters without its inserts;
 * the rest stands in runvekcred(1) under the number. It is true in every case in which its number
 * is shown. Callers of the library see the numbers that it shows as well, so their texts do not
 * speak of the command or its options; those of 3056, 6349, 7027, 9105 and 9106 are the command's
 * own.
 *
 * In a text, %1 and %2 stand for the string inserts, %c for numeric insert 1 as a code in
 * hexadecimal, %n for the same in decimal, %e for ": " and the system's text of that error number,
 * and %r for ": " and the PBE service's text of that reason code; %e and %r are empty when there is
 * no such text.
 */
#include "common/catalogue.h"

#include "ztpbe.h"
#include "ztsvc.h"

namespace ztm {

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
     "encrypted or decrypted. Name a readable file with a key or passphrase, neither keystore.conf "
     "nor an output; a relative path counts from the working directory."},
    {SVC_MSG_PBE_FAILED,
     "The credential service failed with reason %c%r. keystore.conf is unchanged. Remove the cause "
     "that the reason names, and try again."},
    {SVC_MSG_DEFAULT_KEY,
     "No initial key file is in use: none is named, or keystore.conf could not be searched for "
     "one. Anyone with this program can read what the built-in key protects. Name a key file "
     "(ZTS_VEKCRED_KEYFILE); values encrypted before keep their key."},
    {SVC_MSG_FIPS_NOT_AVAILABLE,
     "FIPS mode was asked for and cannot be had (reason %c). Nothing was written. Configure a FIPS "
     "provider in the OpenSSL configuration of this system, and use a key of 32 bytes or a "
     "passphrase of at least 14 bytes."},
    {SVC_MSG_BAD_ARGUMENT,
     "'%1' is not a valid argument of %2, or its value is missing or not valid. See the usage."},
    {SVC_MSG_DUPLICATE_KEY,
     "The file '%1' holds the key '%2' more than once in one section. Keep one of the lines "
     "'section.%2 = value'."},
    {SVC_MSG_KEY_MISSING,
     "The file '%1' lacks the required key '%2'. Add a line 'section.%2 = value' to its section; "
     "upper and lower case count."},
    {SVC_MSG_FILE_UNUSABLE,
     "The file '%1' cannot be used as keystore.conf%e. This user must be able to read it. Each "
     "line must be empty, a comment (#) or 'section.key = value', with a key of at most 255 "
     "characters, and one must be of that last kind."},
    {SVC_MSG_KEY_SOURCE_UNREADABLE,
     "The key source '%2' of the file '%1' cannot be looked up (result %n). No credential was "
     "encrypted or decrypted. Correct the file, even when ZTS_VEKCRED_KEYFILE names the key file."},
    {SVC_MSG_NO_LOCATION,
     "The place of '%1' is not known: there is no home directory. Set HOME, or set "
     "ZTS_KEYSTORE_CONF to the full path."},
    {SVC_MSG_PROTECTED,
     "The file '%1' was processed. Its credentials are encrypted in the result; only what stood "
     "behind a marker that says YES, or looked encrypted, was kept as it was. Check that it is "
     "not in clear."},
    {SVC_MSG_CANNOT_OPEN,
     "The file '%1' cannot be opened, read or written%e. keystore.conf was not replaced. Check the "
     "path, the permissions of its directory and the free space; a name that ends in .bak is the "
     "new content, built beside keystore.conf."},
};

struct ReasonText {
    uint32_t reason;
    const char *text;
};

constexpr ReasonText REASON_TEXTS[] = {
    {SVC_PBE_OK, "success"},
    {SVC_PBE_KEY_FILE_UNREADABLE, "the file is missing, is a directory or cannot be read"},
    {SVC_PBE_KEY_FILE_BAD_LENGTH, "the file holds no key, or more than 4096 bytes"},
    {SVC_PBE_MALFORMED_TEXT, "the value is not an encrypted one: it is clear or missing behind a "
                             "YES marker, or was changed"},
    {SVC_PBE_AUTHENTICATION_FAILED,
     "the value was encrypted with another key than the one in use, or was changed"},
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

} // namespace ztm

const char *svcPBEReasonText(uint32_t reason) {
    for (const ztm::ReasonText &entry : ztm::REASON_TEXTS) {
        if (entry.reason == reason)
            return entry.text;
    }
    return nullptr;
}
