/*
 * filter.cpp - keeps the items of one section, compares keys, releases items.
 */
#include "trace_numbers.h"
#include "zttrc.h"
#include "ztvek.h"

#include <algorithm>
#include <cstring>

#define TRC_SOURCE "lib/vek/sztucona"

namespace {

constexpr size_t SECTION_LIMIT = 1024;

void freeMemory(void *memory, VekFunction function) {
    (void)svcFreeMemFn(/* subpool= */ 0, SVC_COMPONENT_VEK, function, memory);
}

int32_t getPrefix(char *prefix, const char *key) {
    const char *const dot = strchr(key, '.');
    if (dot == nullptr)
        return 0;
    const size_t length = static_cast<size_t>(dot - key);
    memcpy(prefix, key, std::min<size_t>(length, SZTUC_PREFIX_CAPACITY));
    return static_cast<int32_t>(length + 1);
}

// Returns the length of the key's section prefix with its dot, or 0 when the key belongs to another
// section. A prefix that fills the area has no terminator in it and belongs to no section.
int32_t matchPrefix(const char *key, const char *section) {
    char prefix[SZTUC_PREFIX_CAPACITY] = {};
    const int32_t length = sztucGetPrefix(prefix, key);
    if (length > SZTUC_PREFIX_CAPACITY || strncmp(prefix, section, SECTION_LIMIT) != 0)
        return 0;
    return length;
}

void freeTexts(SztucConfigItem *item) {
    freeMemory(item->key, FUNCTION_FREE_CONFIG_ITEM);
    item->key = nullptr;
    freeMemory(item->value, FUNCTION_FREE_CONFIG_ITEM);
    item->value = nullptr;
}

void dropNode(SztuList *list, SztuListNode *node) {
    sztucFreeConfigItem(node->item);
    freeMemory(node->item, FUNCTION_FILTER_PREFIX);
    node->item = nullptr;
    list->SztuListRemoveNode(list, node);
}

// The walk ends at a null item: no list of configuration items holds one.
void filterItems(SztuList *list, const char *section) {
    for (SztuListNode *node = list->head, *next; node != nullptr && node->item != nullptr;
         node = next) {
        next = node->next;
        char *const key = static_cast<SztucConfigItem *>(node->item)->key;
        const int32_t prefixLength = matchPrefix(key, section);
        if (prefixLength == 0)
            dropNode(list, node);
        else
            memmove(key, key + prefixLength, strlen(key + prefixLength) + 1);
    }
}

} // namespace

int32_t sztucFindKey(void *item, void *key) {
    TRC_ENTRY(FUNCTION_FIND_KEY);
    const char *const itemKey = static_cast<const SztucConfigItem *>(item)->key;
    const int32_t isEqual = strcmp(itemKey, static_cast<const char *>(key)) == 0 ? 1 : 0;
    TRC_RETCODE(FUNCTION_FIND_KEY, isEqual);
    return isEqual;
}

int32_t sztucGetPrefix(char *prefix, const char *key) {
    TRC_ENTRY(FUNCTION_GET_PREFIX);
    const int32_t length = getPrefix(prefix, key);
    TRC_RETCODE(FUNCTION_GET_PREFIX, length);
    return length;
}

void sztucFilterPrefix(SztuList *list, const char *section) {
    TRC_ENTRY(FUNCTION_FILTER_PREFIX);
    if (list != nullptr && section != nullptr)
        filterItems(list, section);
    TRC_RETCODE(FUNCTION_FILTER_PREFIX, SZTU_OK);
}

void sztucFreeConfigItem(void *item) {
    TRC_ENTRY(FUNCTION_FREE_CONFIG_ITEM);
    if (item != nullptr)
        freeTexts(static_cast<SztucConfigItem *>(item));
    TRC_RETCODE(FUNCTION_FREE_CONFIG_ITEM, SZTU_OK);
}

void sztucFreeConfigList(void *list) {
    TRC_ENTRY(FUNCTION_FREE_CONFIG_LIST);
    if (list != nullptr) {
        SztuList *const items = static_cast<SztuList *>(list);
        items->SztuListRemoveAll(items, /* freeItems= */ 1, sztucFreeConfigItem);
        freeMemory(items, FUNCTION_FREE_CONFIG_LIST);
    }
    TRC_RETCODE(FUNCTION_FREE_CONFIG_LIST, SZTU_OK);
}
