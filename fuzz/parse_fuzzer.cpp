// The parser of keystore.conf, the section filter and the lookups. The input is the text of a file.
#include "fuzz_support.h"
#include "sztoumaa/lookup.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

struct Item {
    std::string key, value;
    bool operator==(const Item &) const = default;
};

std::vector<Item> itemsOf(const SztuList &list) {
    std::vector<Item> items;
    for (const SztuListNode *node = list.head; node != nullptr; node = node->next) {
        const SztucConfigItem &item = *static_cast<const SztucConfigItem *>(node->item);
        items.push_back({item.key, item.value});
    }
    return items;
}

void checkStrip(std::string text) {
    char *start = text.data();
    sztucStrip(&start);
    const std::string once = start;
    sztucStrip(&start);
    require(once == start && (once.empty() || strcspn(start, " \t\n\v\f\r") > 0));
}

// What is printed is parsed to the same items. A value whose last letter matches its first keeps
// the blanks behind it, so a "#" says where it ends.
void checkPrinted(const std::vector<Item> &items) {
    std::string text;
    for (const Item &item : items) {
        require(item.key.size() < SZTUC_KEY_CAPACITY && item.key[0] != '#' && !item.value.empty());
        text += item.key + "=" + item.value + "#\n";
    }
    SztuList *const list = SztuListCreate();
    require((sztucParseConfigFile(text.data(), list) == SZTU_OK) == !items.empty());
    require(itemsOf(*list) == items);
    sztucFreeConfigList(list);
}

// What the lookup says about a key that stands `count` times.
void checkLookup(SztuList *list, const Item &item, int64_t count) {
    char value[] = "untouched";
    constexpr size_t LIMIT = sizeof value - 2;
    const uint32_t code = vek::getText(list, nullptr, item.key.c_str(), {value, LIMIT}, 1);
    require(code == (item.key.empty() ? 2 : count == 1 ? 0 : 15) && value[LIMIT] == 'd');
    require(code != 0 || item.value.substr(0, LIMIT) == std::string(value, strnlen(value, LIMIT)));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    sztUseLogErrorMessage = 0;
    std::string text(asText(data, size));
    checkStrip(text);
    SztuList *const list = SztuListCreate();
    const uint32_t result = sztucParseConfigFile(text.data(), list);
    const std::vector<Item> items = itemsOf(*list);
    require(result == SZTU_CANNOT_PARSE || (result == SZTU_OK && !items.empty()));
    checkPrinted(items);

    const std::string section =
        items.empty() ? "pem" : items[0].key.substr(0, items[0].key.find('.'));
    sztucFilterPrefix(list, section.c_str());
    const std::vector<Item> kept = itemsOf(*list);
    const int64_t expected = std::count_if(items.begin(), items.end(), [&](const Item &item) {
        return item.key.starts_with(section + ".") && section.size() < SZTUC_PREFIX_CAPACITY;
    });
    require(static_cast<int64_t>(kept.size()) == expected);
    for (const Item &item : kept)
        require(std::count(items.begin(), items.end(), Item{section + "." + item.key, item.value}));
    for (size_t i = 0; i < kept.size() && i < 16; ++i)
        checkLookup(list, kept[i], std::count_if(kept.begin(), kept.end(), [&](const Item &other) {
                        return other.key == kept[i].key;
                    }));
    sztucFreeConfigList(list);
    return 0;
}
