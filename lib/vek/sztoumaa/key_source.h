/*
 * key_source.h - where the initial key of the readers comes from; private to the library and the
 * programs.
 */
#ifndef SZTOUMAA_KEY_SOURCE_H
#define SZTOUMAA_KEY_SOURCE_H

namespace vek {

enum class KeyOrigin {
    variable, // ZTS_VEKCRED_KEYFILE names a key file
    section,  // vekcred.keyfile does
    builtIn,
};

struct KeySource {
    KeyOrigin origin;
    const char *path; // of the key file; null for the built-in key
};

// chooseKeySource tells which initial key the readers take for a file whose key vekcred.keyfile is
// `sectionKeyFile` (empty: absent). The path is the environment's or `sectionKeyFile` itself.
// Whether the key file can be used is not looked at; one that cannot never falls back to another
// source.
[[nodiscard]] KeySource chooseKeySource(const char *sectionKeyFile);

// baseName returns the part of a key file path that messages show: what follows the last "/" whose
// next character is neither "/" nor the end; the whole path when there is none.
[[nodiscard]] const char *baseName(const char *path);

} // namespace vek

#endif
