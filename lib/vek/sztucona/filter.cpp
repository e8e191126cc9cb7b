/*
 * filter.cpp - keeps the items of one section, compares keys, releases items.
 */
#include "sztucona/filter.h"

#include "allocation.h"
#include "trace_numbers.h"
#include "zttrc.h"
#include "ztvek.h"

#include <algorithm>
#include <cstring>

#define TRC_SOURCE "lib/vek/sztucona"

namespace vek {

// A prefix that fills the area has no terminator in it and belongs to no section.
int32_t matchPrefix(const char *key, const char *section) {
    constexpr size_t SECTION_LIMIT = 1024;
    char prefix[SZTUC_PREFIX_CAPACITY] = {};
    const int32_t length = sztucGetPrefix(prefix, key);
    if (length > SZTUC_PREFIX_CAPACITY || strncmp(prefix, section, SECTION_LIMIT) != 0)
        return 0;
    return length;
}

namespace {

void dropNode(SztuList *list, SztuListNode *node) {
    sztucFreeConfigItem(node->item);
    release(FUNCTION_FILTER_PREFIX, node->item);
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
} // namespace vek

int32_t sztucFindKey(void *item, void *key) {
    ztm::TraceScope trace(vek::FUNCTION_FIND_KEY);
    const char *const itemKey = static_cast<const SztucConfigItem *>(item)->key;
    return trace.returns(strcmp(itemKey, static_cast<const char *>(key)) == 0 ? 1 : 0);
}

int32_t sztucGetPrefix(char *prefix, const char *key) {
    ztm::TraceScope trace(vek::FUNCTION_GET_PREFIX);
    const char *const dot = strchr(key, '.');
    if (dot == nullptr)
        return trace.returns(0);
    const size_t length = static_cast<size_t>(dot - key);
    memcpy(prefix, key, std::min<size_t>(length, SZTUC_PREFIX_CAPACITY));
    return trace.returns(static_cast<int32_t>(length + 1));
}

void sztucFilterPrefix(SztuList *list, const char *section) {
    const ztm::TraceScope trace(vek::FUNCTION_FILTER_PREFIX);
    if (list != nullptr && section != nullptr)
        vek::filterItems(list, section);
}

void sztucFreeConfigItem(void *item) {
    const ztm::TraceScope trace(vek::FUNCTION_FREE_CONFIG_ITEM);
    if (item == nullptr)
        return;
    SztucConfigItem *const texts = static_cast<SztucConfigItem *>(item);
    vek::release(vek::FUNCTION_FREE_CONFIG_ITEM, texts->key);
    texts->key = nullptr;
    vek::release(vek::FUNCTION_FREE_CONFIG_ITEM, texts->value);
    texts->value = nullptr;
}

void sztucFreeConfigList(void *list) {
    const ztm::TraceScope trace(vek::FUNCTION_FREE_CONFIG_LIST);
    if (list == nullptr)
        return;
    SztuList *const items = static_cast<SztuList *>(list);
    items->SztuListRemoveAll(items, /* freeItems= */ 1, sztucFreeConfigItem);
    vek::release(vek::FUNCTION_FREE_CONFIG_LIST, items);
}
