/*
 * copy_lines.cpp - cuts the file into lines and copies those that stay as they are.
 *
 * The result is that of reading line by line with fgets: a line of LINE_CAPACITY characters or more
 * comes in pieces, and a NUL ends the text of its piece. But the file is read in blocks, a run of
 * lines that begin with no key of the table is written in one call, and every other line is treated
 * where it lies in its block.
 */
#include "runvekcred/copy_lines.h"

#include "common/guards.h"
#include "runvekcred/credential_line.h"
#include "runvekcred/reason.h"
#include "zttrc.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace runvekcred {

namespace {

constexpr size_t PIECE_LENGTH = LINE_CAPACITY - 1;
constexpr size_t BLOCK_LENGTH = 8 * PIECE_LENGTH;

// A block begins where a piece begins and holds whole pieces of a line without an end.
struct Block {
    size_t length;
    char text[BLOCK_LENGTH + 1]; // and the terminator of the last piece
};

// The characters up to the last newline. All of them, when no more follow or there is no newline.
size_t lengthOfWholeLines(const Block &block, bool isLast) {
    const void *const newline = memrchr(block.text, '\n', block.length);
    if (isLast || newline == nullptr)
        return block.length;
    return static_cast<size_t>(static_cast<const char *>(newline) + 1 - block.text);
}

char *endOfPiece(char *piece, char *end) {
    const size_t length = std::min(static_cast<size_t>(end - piece), PIECE_LENGTH);
    char *const newline = static_cast<char *>(memchr(piece, '\n', length));
    return newline == nullptr ? piece + length : newline + 1;
}

void copyRun(const char *run, const char *end, FILE *output) {
    (void)fwrite_unlocked(run, 1, static_cast<size_t>(end - run), output);
}

// There is room for one character behind `end`.
int32_t rewriteText(char *text, char *end, FILE *output, SvcPBESession *session) {
    // A trace names every line.
    const bool hasRuns =
        !trcActive(TRC_FUNCTIONS) && memchr(text, '\0', static_cast<size_t>(end - text)) == nullptr;
    const char *run = text;
    for (char *piece = text, *next; piece < end; piece = next) {
        next = endOfPiece(piece, end);
        if (hasRuns && next[-1] == '\n' && !beginsWithTableKey(piece))
            continue;
        copyRun(run, piece, output);
        run = next;
        const char behind = *next;
        *next = '\0';
        const int32_t reasonCode = processConfigLine(piece, output, session);
        *next = behind;
        if (reasonCode != 0)
            return reasonCode;
    }
    copyRun(run, end, output);
    return 0;
}

} // namespace

int32_t rewriteLines(FILE *input, FILE *output, SvcPBESession *session,
                     const replacement::HeldBackSignals *signals, int *readError) {
    ztm::Wiping<Block> wiping;
    Block &block = wiping.value;
    block.length = 0;
    *readError = 0;
    // The stream has no buffer, so that no copy of a credential is left in one.
    (void)setvbuf(input, nullptr, _IONBF, 0);
    forgetMarkers();
    for (bool isLast = false; !isLast;) {
        if (signals != nullptr && signals->isPending())
            return REASON_STOPPED;
        block.length +=
            fread_unlocked(block.text + block.length, 1, BLOCK_LENGTH - block.length, input);
        *readError = ferror_unlocked(input) != 0 ? errno : 0;
        isLast = block.length < BLOCK_LENGTH;
        const size_t length = lengthOfWholeLines(block, isLast);
        const int32_t reasonCode = rewriteText(block.text, block.text + length, output, session);
        if (reasonCode != 0)
            return reasonCode;
        block.length -= length;
        memmove(block.text, block.text + length, block.length);
    }
    return 0;
}

} // namespace runvekcred
