/*
 * runvekcred.h - the steps of the credential protection command, as main calls them in their order.
 *
 * A step returns a reason code, 0 to go on; any other ends the command with that code.
 */
#ifndef RUNVEKCRED_H
#define RUNVEKCRED_H

#include "ztvek.h"

#include <cstdint>
#include <cstdio>
#include <span>

// Reason codes of the command's own.
enum CommandReason : int32_t {
    REASON_CANNOT_OPEN = 1,
    REASON_USAGE = 10,
    REASON_NOT_CONSISTENT = 20,
    REASON_NO_STORAGE = 2071,
    REASON_INITIALISATION_FAILED = 2195,
};

// ---- Messages (message.cpp) ---------------------------------------------------------

// Takes the process-wide copy of the message context; it belongs to every message and session.
[[nodiscard]] SvcMiniSubpool *takeMessageContext();
[[nodiscard]] const SvcMiniSubpool &messageContext();

// Shows a numbered message of the command, whatever sztUseLogErrorMessage says.
void showMessage(uint32_t number, const SvcMessageInserts &inserts, int32_t sourceLine);

// ---- Command line (options.cpp) -----------------------------------------------------

struct CommandSettings {
    const char *keystorePath; // -f, else null: standard search
    const char *outputPath;   // -o, else null: in place
    const char *keyFilePath;  // -sf, else null: the other key sources
    int32_t algorithm;        // -sp; not yet checked for its range
    int32_t fipsFlag;         // -sm
};

inline constexpr CommandSettings DEFAULT_SETTINGS = {nullptr, nullptr, nullptr,
                                                     SVC_PBE_ALGORITHM_LATEST, 0};

enum class ScanResult { done, usageError, help };

// Reads the arguments behind the program's name. On a usage error *argumentAtFault is the argument to
// name in the message.
[[nodiscard]] ScanResult scanOptions(std::span<const char *const> arguments,
                                     CommandSettings *settings, const char **argumentAtFault);

// The algorithms that -sp accepts.
[[nodiscard]] bool isKnownAlgorithm(int32_t algorithm);

// ---- Key source and cipher session (key_source.cpp) ----------------------------------------

// The cipher session with the key material that lies with the command. It stays where it is while the
// session is open.
struct CipherSession {
    SvcPBESession record;
    uint8_t defaultKey[SVC_PBE_KEY_LENGTH];
    uint8_t salt[SVC_PBE_SALT_LENGTH];
    bool isOpen;
};

// Chooses the initial key and opens the session; on failure nothing of the key is left in `session`.
[[nodiscard]] int32_t openCipherSession(const CommandSettings &settings, const char *keystorePath,
                                        CipherSession *session);

// Closes the session if it is open and wipes all key material.
void closeCipherSession(CipherSession *session);

// ---- Line transformation (credential_line.cpp) -------------------------------------------------

struct CredentialKeyEntry {
    const char *credentialKey; // matched as a prefix of a line's key
    const char *markerKey;     // likewise; also the key of the marker line that is written
    int32_t markerState;       // -1 no marker seen yet, 0 seen with another value, 1 seen with YES
};

inline constexpr size_t CREDENTIAL_KEYS = 3;

// Process-wide and writable; ended by a row without key names. A marker line acts on all lines behind it.
extern CredentialKeyEntry credentialKeyTable[CREDENTIAL_KEYS + 1];

inline constexpr int LINE_CAPACITY = 8192; // characters of one piece of a line with its terminator

// Whether the first word of a line, which ends in a newline or NUL, begins with a key of the table. When
// it does not, processConfigLine copies the line.
[[nodiscard]] bool beginsWithTableKey(const char *line);

// Writes what stands for `line` in the protected file to `output`. The line is changed while the function
// runs and is not restored. Result: 0, or the code of the encryption that failed; the line was then
// copied unchanged.
[[nodiscard]] int32_t processConfigLine(char *line, FILE *output, SvcPBESession *session);

// ---- Rewriting the file (new_file.cpp, copy_lines.cpp, replacement.cpp) -

// Writes what stands for the lines of `input` to `output`, up to the first that fails. `input` was not read
// from before. Result: 0, or that of processConfigLine.
[[nodiscard]] int32_t rewriteLines(FILE *input, FILE *output, SvcPBESession *session);

// Protects keystorePath: into outputPath, or in place when that is null or spelled like keystorePath.
// `directory` is the locked directory of keystorePath (replacement.h), or -1.
[[nodiscard]] int32_t rewriteKeystore(const char *keystorePath, const char *outputPath,
                                      int directory, SvcPBESession *session);

#endif
