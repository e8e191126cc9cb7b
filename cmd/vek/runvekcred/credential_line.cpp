/*
 * credential_line.cpp - the transformation of one line of keystore.conf.
 *
 * The key is the first word of the line, up to a blank or "=". The value is the first word behind the
 * first "=". A credential's value is replaced by its encrypted form, behind a marker line that tells the
 * readers so; every other line is copied as it stands.
 */
#include "runvekcred/runvekcred.h"
#include "shared/line_words.h"
#include "trace_numbers.h"
#include "zttrc.h"

#include <cstring>
#include <strings.h>

#define TRC_SOURCE "cmd/vek/runvekcred"

CredentialKeyEntry credentialKeyTable[CREDENTIAL_KEYS + 1] = {
    {"crl.ldap.pass", "crl.encrypted", -1},
    {"pem.password", "pem.encrypted", -1},
    {"pkcs11.token_pin", "pkcs11.encrypted", -1},
    {nullptr, nullptr, -1},
};

namespace {

constexpr char CHANNEL_PASSWORD_KEY[] = "pem.password.channel";
constexpr char MARKER_NAME[] = "encrypted";
constexpr char MARKER_VALUE[] = "YES";
constexpr size_t WORD_CAPACITY = vek::WORD_LIMIT + 1; // a key or a value with its terminator

struct LineWords {
    char key[WORD_CAPACITY];
    char value[WORD_CAPACITY];
};

// Most lines of a large file are decided here, at the first or second character, so nothing is called.
bool beginsWith(const char *text, const char *prefix) {
    while (*prefix != '\0' && *text == *prefix) {
        ++text;
        ++prefix;
    }
    return *prefix == '\0';
}

// Writes the line and its newline in one call; the newline takes the terminator's place meanwhile.
void copyLine(char *line, size_t length, FILE *output) {
    line[length] = '\n';
    (void)fwrite_unlocked(line, 1, length + 1, output);
    line[length] = '\0';
}

void copyWord(char (&copy)[WORD_CAPACITY], std::string_view word) {
    memcpy(copy, word.data(), word.size());
    copy[word.size()] = '\0';
}

// False: there is no value, or the key does not count. A value that was cut is refused by the cipher
// service as too long, so that the user is told.
bool takeWords(std::string_view line, LineWords *words) {
    vek::LineWords found;
    if (!vek::cutWords(line, &found))
        return false;
    copyWord(words->key, found.key);
    copyWord(words->value, found.value);
    return true;
}

bool isMarkerYes(const char *value) {
    return strcasecmp(value, MARKER_VALUE) == 0;
}

// Takes note of marker lines. True: the line is dropped; a marker that does not say YES goes even when no
// credential follows, because the command writes its own.
bool noteMarkers(const LineWords &words) {
    bool dropped = false;
    for (CredentialKeyEntry *row = credentialKeyTable; row->markerKey != nullptr; ++row) {
        if (!beginsWith(words.key, row->markerKey))
            continue;
        row->markerState = isMarkerYes(words.value) ? 1 : 0;
        if (row->markerState == 0)
            dropped = true;
    }
    return dropped;
}

void writeMarker(const char *key, const CredentialKeyEntry &row, FILE *output) {
    if (beginsWith(key, CHANNEL_PASSWORD_KEY))
        (void)fprintf(output, "%s.%s = %s\n", CHANNEL_PASSWORD_KEY, MARKER_NAME, MARKER_VALUE);
    else
        (void)fprintf(output, "%s = %s\n", row.markerKey, MARKER_VALUE);
}

int32_t writeEncrypted(const LineWords &words, const CredentialKeyEntry &row, FILE *output,
                       SvcPBESession *session) {
    char *cipherText = nullptr;
    int32_t cipherLength = 0;
    const uint32_t result =
        svcPBESave(session, words.value, static_cast<int32_t>(strlen(words.value)), &cipherText,
                   &cipherLength);
    if (result != SVC_PBE_OK) {
        TRC_PARMS("Failed to encrypt credential: %d", static_cast<int32_t>(result));
        showMessage(SVC_MSG_PBE_FAILED, svcMakeInserts(result, nullptr, nullptr), __LINE__);
        return static_cast<int32_t>(result);
    }
    writeMarker(words.key, row, output);
    (void)fprintf(output, "%s = %-*.*s\n", words.key, cipherLength, cipherLength, cipherText);
    (void)svcPBEFreeBuf(cipherText, cipherLength);
    return 0;
}

// Encrypts the value under every row that the key falls under. A value in encrypted form is kept, and so
// is any value behind a YES marker: the section declares it encrypted, even when it is clear.
int32_t protectCredential(const LineWords &words, FILE *output, SvcPBESession *session,
                          bool *handled) {
    int32_t result = 0;
    for (const CredentialKeyEntry *row = credentialKeyTable; row->credentialKey != nullptr; ++row) {
        if (!beginsWith(words.key, row->credentialKey))
            continue;
        if (vek::isInEncryptedForm(words.value) || row->markerState == 1)
            continue;
        const int32_t rowResult = writeEncrypted(words, *row, output, session);
        if (rowResult == 0)
            *handled = true;
        else
            result = rowResult;
    }
    return result;
}

int32_t transformLine(char *line, FILE *output, SvcPBESession *session) {
    size_t length = strlen(line);
    if (length > 0 && line[length - 1] == '\n')
        line[--length] = '\0';
    LineWords words = {};
    bool handled = false;
    int32_t result = 0;
    if (takeWords({line, length}, &words)) {
        handled = noteMarkers(words);
        result = protectCredential(words, output, session, &handled);
    }
    svcWipe(&words, sizeof words);
    if (!handled)
        copyLine(line, length, output);
    return result;
}

} // namespace

bool beginsWithTableKey(const char *line) {
    while (*line != '\n' && vek::isBlank(*line))
        ++line;
    for (const CredentialKeyEntry *row = credentialKeyTable; row->credentialKey != nullptr; ++row) {
        if (beginsWith(line, row->credentialKey) || beginsWith(line, row->markerKey))
            return true;
    }
    return false;
}

int32_t processConfigLine(char *line, FILE *output, SvcPBESession *session) {
    TRC_ENTRY(FUNCTION_PROCESS_CONFIG_LINE);
    const int32_t result = transformLine(line, output, session);
    TRC_RETCODE(FUNCTION_PROCESS_CONFIG_LINE, result);
    return result;
}
