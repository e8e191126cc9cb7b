/*
 * credential_line.cpp - a credential's value is replaced by its encrypted form, behind a marker
 * line that tells the readers so; every other line is copied as it stands. What counts as key and
 * value of a line stands in shared/line_words.h.
 */
#include "runvekcred/credential_line.h"

#include "common/guards.h"
#include "runvekcred/message.h"
#include "shared/line_words.h"
#include "trace_numbers.h"
#include "zttrc.h"

#include <cstring>
#include <strings.h>

#define TRC_SOURCE "cmd/vek/runvekcred"

namespace runvekcred {

bool isMarkedYes[std::size(vek::CREDENTIALS)];

void forgetMarkers() {
    for (bool &marked : isMarkedYes)
        marked = false;
}

namespace {

// Most lines of a large file are decided here, at the first or second character, so nothing is
// called. The text goes on at least to a blank, "=" or NUL, which no prefix holds.
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

// Takes note of marker lines. True: the line is dropped; a marker that does not say YES goes even
// when no credential follows, because the command writes its own.
bool noteMarkers(const vek::LineWords &words) {
    bool dropped = false;
    for (size_t row = 0; row < std::size(vek::CREDENTIALS); ++row) {
        if (!beginsWith(words.key.data(), vek::CREDENTIALS[row].marker))
            continue;
        isMarkedYes[row] =
            words.value.size() == strlen(vek::MARKER_YES) &&
            strncasecmp(words.value.data(), vek::MARKER_YES, words.value.size()) == 0;
        if (!isMarkedYes[row])
            dropped = true;
    }
    return dropped;
}

// The dot that a channel's name follows does not count: the marker of a channel's password also
// stands before "pem.password.channels".
const char *markerFor(const vek::Credential &credential, const char *key) {
    if (credential.channelKey != nullptr &&
        strncmp(key, credential.channelKey, strlen(credential.channelKey) - 1) == 0)
        return credential.writtenChannelMarker;
    return credential.marker;
}

int32_t writeEncrypted(const vek::LineWords &words, const vek::Credential &credential, FILE *output,
                       SvcPBESession *session) {
    ztm::Memory<char> cipherText;
    int32_t cipherLength = 0;
    const uint32_t result =
        svcPBESave(session, words.value.data(), static_cast<int32_t>(words.value.size()),
                   cipherText.receive(), &cipherLength);
    if (result != SVC_PBE_OK) {
        TRC_PARMS("Failed to encrypt credential: %d", static_cast<int32_t>(result));
        showMessage(SVC_MSG_PBE_FAILED, svcMakeInserts(result, nullptr, nullptr), __LINE__);
        return static_cast<int32_t>(result);
    }
    (void)fprintf(output, "%s = %s\n%.*s = %-*.*s\n", markerFor(credential, words.key.data()),
                  vek::MARKER_YES, static_cast<int>(words.key.size()), words.key.data(),
                  cipherLength, cipherLength, cipherText.get());
    return 0;
}

} // namespace

bool beginsWithTableKey(const char *line) {
    while (*line != '\n' && vek::isBlank(*line))
        ++line;
    for (const vek::Credential &credential : vek::CREDENTIALS) {
        if (beginsWith(line, credential.key) || beginsWith(line, credential.marker))
            return true;
    }
    return false;
}

// A value in encrypted form is kept, and so is any value behind a YES marker: the section declares
// it encrypted, even when it is clear.
int32_t processConfigLine(char *line, FILE *output, SvcPBESession *session) {
    ztm::TraceScope trace(vek::FUNCTION_PROCESS_CONFIG_LINE);
    size_t length = strlen(line);
    if (length > 0 && line[length - 1] == '\n')
        line[--length] = '\0';
    int32_t result = 0;
    bool handled = false;
    vek::LineWords words;
    if (vek::cutWords({line, length}, &words)) {
        handled = noteMarkers(words);
        for (size_t row = 0; row < std::size(vek::CREDENTIALS); ++row) {
            const vek::Credential &credential = vek::CREDENTIALS[row];
            if (!beginsWith(words.key.data(), credential.key) || isMarkedYes[row] ||
                vek::isInEncryptedForm(words.value))
                continue;
            // No two credentials' keys begin alike, so one result is that of the line.
            result = writeEncrypted(words, credential, output, session);
            handled = handled || result == 0;
        }
    }
    if (!handled)
        copyLine(line, length, output);
    return trace.returns(result);
}

} // namespace runvekcred
