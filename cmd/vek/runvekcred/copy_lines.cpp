/*
 * copy_lines.cpp - cuts the file into lines and copies those that stay as they are.
 *
 * The result is that of reading line by line with fgets: a line of LINE_CAPACITY characters or more comes
 * in pieces, and a NUL ends the text of its piece. But the file is read in blocks, and a run of lines
 * that begin with no key of the table is written in one call.
 */
#include "runvekcred/runvekcred.h"

#include "zttrc.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t PIECE_LENGTH = LINE_CAPACITY - 1;

// A block begins where a piece begins and holds whole pieces of a line without an end.
struct Block {
    size_t length;
    char text[8 * PIECE_LENGTH];
};

// The characters up to the last newline. All of them, when no more follow or when there is no newline.
size_t lengthOfWholeLines(const Block &block, bool isLast) {
    const void *const newline = memrchr(block.text, '\n', block.length);
    if (isLast || newline == nullptr)
        return block.length;
    return static_cast<size_t>(static_cast<const char *>(newline) + 1 - block.text);
}

int32_t rewriteLine(const char *line, const char *end, FILE *output, SvcPBESession *session) {
    char piece[LINE_CAPACITY];
    int32_t reasonCode = 0;
    while (reasonCode == 0 && line < end) {
        const size_t length = std::min(static_cast<size_t>(end - line), PIECE_LENGTH);
        memcpy(piece, line, length);
        piece[length] = '\0';
        line += length;
        reasonCode = processConfigLine(piece, output, session);
    }
    svcWipe(piece, sizeof piece);
    return reasonCode;
}

void copyRun(const char *run, const char *end, FILE *output) {
    (void)fwrite_unlocked(run, 1, static_cast<size_t>(end - run), output);
}

bool staysAsItIs(const char *line, const char *end) {
    return end[-1] == '\n' && end - line <= static_cast<ptrdiff_t>(PIECE_LENGTH) &&
           !beginsWithTableKey(line);
}

int32_t rewriteText(const char *text, const char *end, FILE *output, SvcPBESession *session) {
    // A trace names every line.
    const bool hasRuns =
        !trcActive(TRC_FUNCTIONS) && memchr(text, '\0', static_cast<size_t>(end - text)) == nullptr;
    const char *run = text;
    for (const char *line = text, *next; line < end; line = next) {
        const void *const newline = memchr(line, '\n', static_cast<size_t>(end - line));
        next = newline == nullptr ? end : static_cast<const char *>(newline) + 1;
        if (hasRuns && staysAsItIs(line, next))
            continue;
        copyRun(run, line, output);
        run = next;
        const int32_t reasonCode = rewriteLine(line, next, output, session);
        if (reasonCode != 0)
            return reasonCode;
    }
    copyRun(run, end, output);
    return 0;
}

// End of file and a read error are treated alike.
int32_t rewriteBlocks(FILE *input, Block *block, FILE *output, SvcPBESession *session) {
    for (bool isLast = false; !isLast;) {
        block->length += fread_unlocked(block->text + block->length, 1,
                                        sizeof block->text - block->length, input);
        isLast = block->length < sizeof block->text;
        const size_t length = lengthOfWholeLines(*block, isLast);
        const int32_t reasonCode = rewriteText(block->text, block->text + length, output, session);
        if (reasonCode != 0)
            return reasonCode;
        block->length -= length;
        memmove(block->text, block->text + length, block->length);
    }
    return 0;
}

} // namespace

int32_t rewriteLines(FILE *input, FILE *output, SvcPBESession *session) {
    // The stream has no buffer, so that no copy of a credential is left in one.
    (void)setvbuf(input, nullptr, _IONBF, 0);
    Block block;
    block.length = 0;
    const int32_t reasonCode = rewriteBlocks(input, &block, output, session);
    svcWipe(&block, sizeof block);
    return reasonCode;
}
