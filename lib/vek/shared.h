/*
 * shared.h - what the programs that write keystore.conf and the readers of it must agree on, each
 * fact once.
 */
#ifndef SHARED_H
#define SHARED_H

#include "ztvek.h"

#include <cstddef>

namespace vek {

// ---- Names ---------------------------------------------------------------------------------

inline constexpr char FILE_NAME[] = "keystore.conf";

inline constexpr char FILE_VARIABLE[] = "ZTS_KEYSTORE_CONF";       // names the file
inline constexpr char KEY_FILE_VARIABLE[] = "ZTS_VEKCRED_KEYFILE"; // names the initial key file

// The label of every cipher session, and the beginning of every credential in encrypted form.
inline constexpr char LABEL[] = "<VEK>";

inline constexpr char CMS_SECTION[] = "cms";
inline constexpr char CRL_SECTION[] = "crl";
inline constexpr char OCSP_SECTION[] = "ocsp";
inline constexpr char PEM_SECTION[] = "pem";
inline constexpr char PKCS11_SECTION[] = "pkcs11";
inline constexpr char KEY_SOURCE_SECTION[] = "vekcred";

inline constexpr const char *SECTIONS[] = {
    CMS_SECTION, CRL_SECTION, OCSP_SECTION, PEM_SECTION, PKCS11_SECTION, KEY_SOURCE_SECTION,
};

// Stands between the name of a key and the name of a channel: "pem.password.channel.TO.HUB".
inline constexpr char CHANNEL_PART[] = ".channel.";

// The words of a marker: its credential is stored encrypted, or in clear. In any case.
inline constexpr char MARKER_YES[] = "YES";
inline constexpr char MARKER_NO[] = "NO";

// ---- Credentials ---------------------------------------------------------------------------

// A credential, and the marker that tells whether it is stored encrypted. Keys are whole keys, as
// they stand in the file; the two channel keys end in a dot, and the channel's name follows.
//
// runvekcred compares the beginning of a line's key with `key` and `marker`, and knows nothing of
// the marker that the reader of a channel looks at: before a channel's password it writes
// `writtenChannelMarker`, which no reader knows.
struct Credential {
    const char *section;
    const char *key;
    const char *marker;               // looked at by the general reader, written by runvekcred
    const char *channelKey;           // null: there is no channel form, nor the two below
    const char *channelMarker;        // looked at by the reader of the channel
    const char *writtenChannelMarker; // no channel's name follows
    size_t capacity;                  // bytes of the reader's field; the field may be full
    const char *reader;               // the exported function that reads it
    const char *channelReader;
};

inline constexpr Credential CREDENTIALS[] = {
    {.section = CRL_SECTION,
     .key = "crl.ldap.pass",
     .marker = "crl.encrypted",
     .channelKey = nullptr,
     .channelMarker = nullptr,
     .writtenChannelMarker = nullptr,
     .capacity = sizeof(SztouLdapServer::pass),
     .reader = "sztouGetCrlConfig",
     .channelReader = nullptr},
    {.section = PEM_SECTION,
     .key = "pem.password",
     .marker = "pem.encrypted",
     .channelKey = "pem.password.channel.",
     .channelMarker = "pem.encrypted.channel.",
     .writtenChannelMarker = "pem.password.channel.encrypted",
     .capacity = sizeof(SztouPemConfig::password),
     .reader = "sztouGetPemConfig",
     .channelReader = "sztouGetMCAPemConfig"},
    {.section = PKCS11_SECTION,
     .key = "pkcs11.token_pin",
     .marker = "pkcs11.encrypted",
     .channelKey = nullptr,
     .channelMarker = nullptr,
     .writtenChannelMarker = nullptr,
     .capacity = sizeof(SztouPkcs11Config::token_pin),
     .reader = "sztouGetPkcs11Config",
     .channelReader = nullptr},
};

// ---- Keys ----------------------------------------------------------------------------------

enum class Kind {
    text,
    integer,
    logical,
    word, // one of a few words
    marker,
    credential,
};

// Which readers look the key up, and in which form.
enum class Form {
    general,        // the general reader
    both,           // both readers, in the same form
    channel,        // the channel's reader only, without the name of the channel
    generalOrNamed, // the general reader; and the channel's with ".channel." and the channel's name
};

// A key that a section's reader knows, without the section and its dot.
struct Key {
    const char *section;
    const char *name;
    Kind kind;
    Form form;
};

// In the order in which they are read; the sections of the channel readers in that of the
// channel's.
inline constexpr Key KEYS[] = {
    {CMS_SECTION, "keystore", Kind::text, Form::both},
    {CMS_SECTION, "certificate", Kind::text, Form::generalOrNamed},
    {CMS_SECTION, "fips", Kind::logical, Form::both},
    {CMS_SECTION, "forceFipsOff", Kind::logical, Form::channel},
    {CRL_SECTION, "encrypted", Kind::marker, Form::general},
    {CRL_SECTION, "cdp", Kind::logical, Form::general},
    {CRL_SECTION, "ldap.host", Kind::text, Form::general},
    {CRL_SECTION, "ldap.port", Kind::integer, Form::general},
    {CRL_SECTION, "ldap.user", Kind::text, Form::general},
    {CRL_SECTION, "ldap.pass", Kind::credential, Form::general},
    {CRL_SECTION, "ldap.version", Kind::integer, Form::general},
    {CRL_SECTION, "ldap.library", Kind::text, Form::general},
    {CRL_SECTION, "ldap.cache_lifetime", Kind::integer, Form::general},
    {CRL_SECTION, "ldap.cache_size", Kind::integer, Form::general},
    {CRL_SECTION, "http.proxy.host", Kind::text, Form::general},
    {CRL_SECTION, "http.proxy.port", Kind::integer, Form::general},
    {CRL_SECTION, "http.max_response_size", Kind::integer, Form::general},
    {CRL_SECTION, "http.timeout", Kind::integer, Form::general},
    {CRL_SECTION, "http.cache_size", Kind::integer, Form::general},
    {CRL_SECTION, "log", Kind::logical, Form::general},
    {OCSP_SECTION, "enable", Kind::logical, Form::general},
    {OCSP_SECTION, "url", Kind::text, Form::general},
    {OCSP_SECTION, "http.proxy.host", Kind::text, Form::general},
    {OCSP_SECTION, "http.proxy.port", Kind::integer, Form::general},
    {OCSP_SECTION, "unknown", Kind::word, Form::general},
    {OCSP_SECTION, "nonce.generation", Kind::logical, Form::general},
    {OCSP_SECTION, "nonce.check", Kind::logical, Form::general},
    {OCSP_SECTION, "nonce.size", Kind::integer, Form::general},
    {OCSP_SECTION, "http.get", Kind::logical, Form::general},
    {OCSP_SECTION, "max_response_size", Kind::integer, Form::general},
    {OCSP_SECTION, "cache_size", Kind::integer, Form::general},
    {OCSP_SECTION, "timeout", Kind::integer, Form::general},
    {OCSP_SECTION, "signature", Kind::integer, Form::general},
    {OCSP_SECTION, "log", Kind::logical, Form::general},
    {PEM_SECTION, "encrypted", Kind::marker, Form::generalOrNamed},
    {PEM_SECTION, "private", Kind::text, Form::generalOrNamed},
    {PEM_SECTION, "public", Kind::text, Form::generalOrNamed},
    {PEM_SECTION, "fips", Kind::logical, Form::both},
    {PEM_SECTION, "forceFipsOff", Kind::logical, Form::channel},
    {PEM_SECTION, "password", Kind::credential, Form::generalOrNamed},
    {PEM_SECTION, "checkpurpose", Kind::logical, Form::generalOrNamed},
    {PKCS11_SECTION, "encrypted", Kind::marker, Form::general},
    {PKCS11_SECTION, "library", Kind::text, Form::general},
    {PKCS11_SECTION, "certificate", Kind::text, Form::general},
    {PKCS11_SECTION, "token", Kind::text, Form::general},
    {PKCS11_SECTION, "fips", Kind::logical, Form::general},
    {PKCS11_SECTION, "token_pin", Kind::credential, Form::general},
    {PKCS11_SECTION, "secondary_keystore", Kind::text, Form::general},
    {KEY_SOURCE_SECTION, "keyfile", Kind::text, Form::general},
};

} // namespace vek

#endif
