/*
 * parse.cpp - cuts the text of keystore.conf into items.
 *
 *   file     = line *( 1*LF line )         LF is "\n"; a run of LF makes no empty lines
 *   line     = [ comment / setting ]       stripped before it is looked at
 *   comment  = "#" anything
 *   setting  = key "=" value [ "#" anything ]
 *   key      = section "." name            stripped; up to the first "=", which stands among the
 *                                          first 256 characters of the line; may hold "#"
 *   value    = 1*character                 stripped; may hold "=", never "#"
 *
 * White space is what isspace() says, so that a carriage return before LF is stripped like a blank.
 * The parser takes any key, an empty one too; section and name come apart in the prefix filter.
 * Keys that stand in several lines give several items.
 */
#include "sztucona/parse.h"

#include "allocation.h"
#include "common/guards.h"
#include "trace_numbers.h"
#include "zttrc.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#define TRC_SOURCE "lib/vek/sztucona"

namespace vek {
namespace {

// Every locale calls a space white space and no other printable character of ASCII; nearly all
// characters are of these, and are not looked up.
bool isBlank(char character) {
    if (character >= ' ' && character <= '~')
        return character == ' ';
    return isspace(static_cast<unsigned char>(character)) != 0;
}

// The part of a text that stripping keeps. The end stays as it is when the last character that is
// not white space equals the first one, deliberately: "aba " and "k " keep their blank, "abc " does
// not.
std::string_view stripped(std::string_view text) {
    const char *start = text.data();
    const char *const end = start + text.size();
    while (start != end && isBlank(*start))
        ++start;
    const char *last = end;
    while (last != start && isBlank(last[-1]))
        --last;
    if (last == start || last[-1] == *start)
        last = end;
    return {start, static_cast<size_t>(last - start)};
}

char *copyText(std::string_view text) {
    void *const copy = allocate(TRC_SOURCE, FUNCTION_PARSE_CONFIG_FILE, text.size() + 1);
    if (copy != nullptr)
        memcpy(copy, text.data(), text.size());
    return static_cast<char *>(copy);
}

void freeItem(SztucConfigItem *item) {
    sztucFreeConfigItem(item);
    release(FUNCTION_PARSE_CONFIG_FILE, item);
}

using OwnedItem = ztm::Handle<SztucConfigItem, freeItem>;

OwnedItem makeItem(std::string_view key, std::string_view value) {
    OwnedItem item(static_cast<SztucConfigItem *>(
        allocate(TRC_SOURCE, FUNCTION_PARSE_CONFIG_FILE, sizeof(SztucConfigItem))));
    if (!item)
        return item;
    item.get()->key = copyText(key);
    item.get()->value = item.get()->key == nullptr ? nullptr : copyText(value);
    if (item.get()->value == nullptr)
        item.reset();
    return item;
}

uint32_t parseText(const char *text, SztuList *list) {
    if (text == nullptr || list == nullptr)
        return SZTU_CANNOT_PARSE;
    for (std::string_view content; nextLine(&text, &content);) {
        const Line line = parseLine(content);
        if (line.kind == LineKind::nothing)
            continue;
        if (line.kind != LineKind::setting)
            return SZTU_CANNOT_PARSE;
        const uint32_t result = appendItem(list, line.key, line.value);
        if (result != SZTU_OK)
            return result;
    }
    return list->SztuListCount(list) != 0 ? SZTU_OK : SZTU_CANNOT_PARSE;
}

} // namespace

// As strtok_r() with "\n" does.
bool nextLine(const char **position, std::string_view *line) {
    const char *start = *position;
    while (*start == '\n')
        ++start;
    *position = strchrnul(start, '\n');
    *line = {start, static_cast<size_t>(*position - start)};
    return !line->empty();
}

Line parseLine(std::string_view line) {
    const std::string_view content = stripped(line);
    if (content.empty() || content.front() == '#')
        return {LineKind::nothing, {}, {}};
    const size_t keyLength = content.find('=');
    if (keyLength == std::string_view::npos)
        return {LineKind::noEquals, {}, {}};
    if (keyLength >= SZTUC_KEY_CAPACITY)
        return {LineKind::keyTooLong, {}, {}};
    const std::string_view key = stripped({content.data(), keyLength});

    const std::string_view rest = {content.data() + keyLength + 1, content.size() - keyLength - 1};
    const std::string_view value = stripped({rest.data(), std::min(rest.find('#'), rest.size())});
    return {value.empty() ? LineKind::noValue : LineKind::setting, key, value};
}

// An item for which memory is short fails the file: a credential or a switch that silently went
// missing would be worse.
uint32_t appendItem(SztuList *list, std::string_view key, std::string_view value) {
    OwnedItem item = makeItem(key, value);
    if (!item)
        return SZTU_CANNOT_PARSE;
    TRC_PARMS("Read config line: Key: '%s' , Value: '%s'", item.get()->key, item.get()->value);
    const uint64_t countBefore = list->SztuListCount(list);
    list->SztuListAppend(list, item.get());
    if (list->SztuListCount(list) == countBefore)
        return SZTU_CANNOT_PARSE;
    (void)item.take(); // the list's now
    return SZTU_OK;
}

} // namespace vek

void sztucStrip(char **text) {
    const ztm::TraceScope trace(vek::FUNCTION_STRIP);
    const std::string_view kept = vek::stripped({*text, strlen(*text)});
    *text += kept.data() - *text;
    (*text)[kept.size()] = '\0';
}

uint32_t sztucParseConfigFile(char *text, SztuList *list) {
    ztm::TraceScope trace(vek::FUNCTION_PARSE_CONFIG_FILE);
    return trace.returns(vek::parseText(text, list));
}
