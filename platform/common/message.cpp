/*
 * message.cpp - numbered messages: one line of the catalogue, filled in, in one write.
 */
#include "common/catalogue.h"
#include "common/printable.h"
#include "ztpbe.h"
#include "ztsvc.h"
#include "zttrc.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace ztm {

namespace {

constexpr size_t ERROR_TEXT_LENGTH = 256;

// Room for the longest text with two paths of 4,096 characters; what does not fit is cut.
struct MessageLine {
    char text[10240];
    size_t length;
};

const char *findText(uint32_t number) {
    for (const CatalogueEntry &entry : messageCatalogue())
        if (entry.number == number)
            return entry.text;
    return nullptr;
}

// The last byte is kept for the newline.
void addCharacter(MessageLine *line, char character) {
    if (line->length < sizeof line->text - 1)
        line->text[line->length++] = character;
}

void addText(MessageLine *line, const char *text) {
    for (; *text != '\0'; ++text)
        addCharacter(line, *text);
}

// An insert comes from the user: it must not forge another line or drive a terminal. A character is
// added whole or not at all.
void addInsert(MessageLine *line, const char *insert, const char *whenNull) {
    const char *text = insert != nullptr ? insert : whenNull;
    while (*text != '\0') {
        const size_t length = printableLength(text);
        if (length == 0)
            addCharacter(line, '?');
        else if (line->length + length < sizeof line->text)
            for (size_t i = 0; i < length; ++i)
                addCharacter(line, text[i]);
        text += length == 0 ? 1 : length;
    }
}

void addReason(MessageLine *line, const char *reason) {
    if (reason == nullptr)
        return;
    addText(line, ": ");
    addText(line, reason);
}

void addErrorText(MessageLine *line, int64_t errorNumber) {
    if (errorNumber == 0)
        return;
    char text[ERROR_TEXT_LENGTH];
    (void)svcStrerrorEx(static_cast<int32_t>(errorNumber), text, sizeof text, /* options= */ 0,
                        /* style= */ 1);
    addReason(line, text);
}

__attribute__((format(printf, 2, 3))) void addFormatted(MessageLine *line, const char *format,
                                                        ...) {
    char text[16];
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    addText(line, text);
}

void addPlaceholder(MessageLine *line, char placeholder, const SvcMessageInserts &inserts) {
    const uint32_t code = static_cast<uint32_t>(inserts.numeric1);
    switch (placeholder) {
    case '1':
        return addInsert(line, inserts.string1, "keystore.conf in its standard place");
    case '2':
        return addInsert(line, inserts.string2, "not named");
    case 'c':
        return addFormatted(line, "0x%08" PRIx32, code);
    case 'n':
        return addFormatted(line, "%" PRIu32, code);
    case 'e':
        return addErrorText(line, inserts.numeric1);
    case 'r':
        return addReason(line, svcPBEReasonText(code));
    default:
        return addCharacter(line, placeholder);
    }
}

char severityLetter(uint32_t number) {
    switch (number >> 28) {
    case 2:
        return 'E';
    case 1:
        return 'W';
    default:
        return 'I';
    }
}

void formatMessage(MessageLine *line, uint32_t number, const char *text,
                   const SvcMessageInserts &inserts) {
    addFormatted(line, "ZTM%04" PRIX32, number & 0xFFFF);
    addCharacter(line, severityLetter(number));
    addCharacter(line, ' ');
    for (; *text != '\0'; ++text) {
        if (*text == '%' && text[1] != '\0')
            addPlaceholder(line, *++text, inserts);
        else
            addCharacter(line, *text);
    }
    line->text[line->length++] = '\n';
}

} // namespace

} // namespace ztm

using namespace ztm;

uint32_t svcDisplayMessageForError(uint64_t handle, uint32_t word, uint32_t number,
                                   SvcMessageInserts inserts, uint32_t options, const char *source,
                                   int32_t line) {
    if (memcmp(inserts.eyeCatcher, "SMIB", sizeof inserts.eyeCatcher) != 0)
        return SVC_BAD_ARGUMENTS;
    const char *const text = findText(number);
    if (text == nullptr)
        return SVC_BAD_ARGUMENTS;

    MessageLine message;
    message.length = 0;
    formatMessage(&message, number, text, inserts);
    // A message that cannot be written has nobody left to tell.
    (void)!write(STDERR_FILENO, message.text, message.length);
    if (trcActive(TRC_PARAMETERS))
        trc_parms(source, line,
                  "Message 0x%08" PRIx32 " shown, context %" PRIu64 ".%" PRIu32
                  ", options 0x%" PRIx32,
                  number, handle, word, options);
    return SVC_OK;
}
