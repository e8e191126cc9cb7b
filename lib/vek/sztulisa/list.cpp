/*
 * list.cpp - doubly linked list of untyped items that carries its operations.
 */
#include "allocation.h"
#include "trace_numbers.h"
#include "zttrc.h"
#include "ztvek.h"

#define TRC_SOURCE "lib/vek/sztulisa"

namespace vek {
namespace {

// ---- Adding ----------------------------------------------------------------------------------

// Links a new node between two neighbours; null stands for the end of the list. Without memory the
// list stays as it is.
void linkNode(SztuList *list, SztuListNode *prev, SztuListNode *next, void *item,
              VekFunction allocation) {
    SztuListNode *const node =
        static_cast<SztuListNode *>(allocate(TRC_SOURCE, allocation, sizeof(SztuListNode)));
    if (node == nullptr)
        return;
    *node = {item, next, prev};
    (prev == nullptr ? list->head : prev->next) = node;
    (next == nullptr ? list->tail : next->prev) = node;
    ++list->count;
}

uint64_t countNodes(SztuList *list) {
    ztm::TraceScope trace(FUNCTION_LIST_COUNT);
    return trace.returns(list->count);
}

void append(SztuList *list, void *item) {
    const ztm::TraceScope trace(FUNCTION_LIST_APPEND);
    linkNode(list, list->tail, /* next= */ nullptr, item, FUNCTION_LIST_APPEND);
}

void prepend(SztuList *list, void *item) {
    const ztm::TraceScope trace(FUNCTION_LIST_PREPEND);
    linkNode(list, /* prev= */ nullptr, list->head, item, FUNCTION_LIST_PREPEND);
}

void insertAfter(SztuList *list, SztuListNode *node, void *item) {
    if (node == list->tail)
        return append(list, item);
    const ztm::TraceScope trace(FUNCTION_LIST_INSERT_AFTER);
    linkNode(list, node, node->next, item, FUNCTION_LIST_INSERT_AFTER);
}

void insertBefore(SztuList *list, SztuListNode *node, void *item) {
    if (node == list->head)
        return prepend(list, item);
    const ztm::TraceScope trace(FUNCTION_LIST_INSERT_BEFORE);
    linkNode(list, node->prev, node, item, FUNCTION_LIST_INSERT_BEFORE);
}

// ---- Removing --------------------------------------------------------------------------------

// Unlinks and frees a node; null, the end of an empty list, does nothing.
void removeNode(SztuList *list, SztuListNode *node) {
    const ztm::TraceScope trace(FUNCTION_LIST_REMOVE);
    if (node == nullptr)
        return;
    (node->prev == nullptr ? list->head : node->prev->next) = node->next;
    (node->next == nullptr ? list->tail : node->next->prev) = node->prev;
    release(FUNCTION_LIST_REMOVE, node);
    --list->count;
}

void removeHead(SztuList *list) {
    removeNode(list, list->head);
}

void removeTail(SztuList *list) {
    removeNode(list, list->tail);
}

void removeAll(SztuList *list, int32_t freeItems, SztuVisitor *destructor) {
    const ztm::TraceScope trace(FUNCTION_LIST_REMOVE);
    for (SztuListNode *node = list->head, *next; node != nullptr; node = next) {
        next = node->next;
        if (destructor != nullptr)
            destructor(node->item);
        if (freeItems != 0)
            release(FUNCTION_LIST_REMOVE, node->item);
        release(FUNCTION_LIST_REMOVE, node);
    }
    list->head = nullptr;
    list->tail = nullptr;
    list->count = 0;
}

void clear(SztuList *list) {
    removeAll(list, /* freeItems= */ 0, /* destructor= */ nullptr);
}

// ---- Searching -------------------------------------------------------------------------------

// The next pointer is read after the callback returns: a callback may add nodes, but must not
// remove the node that it is given.

SztuListNode *findWith(SztuList *list, SztuPredicateWith *predicate, void *data) {
    ztm::TraceScope trace(FUNCTION_LIST_SEARCH);
    SztuListNode *node = predicate == nullptr ? nullptr : list->head;
    while (node != nullptr && predicate(node->item, data) == 0)
        node = node->next;
    (void)trace.returns(node != nullptr);
    return node;
}

uint32_t countIfWith(SztuList *list, SztuPredicateWith *predicate, void *data) {
    ztm::TraceScope trace(FUNCTION_LIST_SEARCH);
    uint32_t count = 0;
    for (SztuListNode *node = predicate == nullptr ? nullptr : list->head; node != nullptr;
         node = node->next)
        count += predicate(node->item, data) != 0 ? 1U : 0U;
    return trace.returns(count);
}

void forEachWith(SztuList *list, SztuVisitorWith *visitor, void *data) {
    const ztm::TraceScope trace(FUNCTION_LIST_SEARCH);
    for (SztuListNode *node = visitor == nullptr ? nullptr : list->head; node != nullptr;
         node = node->next)
        visitor(node->item, data);
}

// A callback without data is handed on as data of one of these.
int32_t callPredicate(void *item, void *predicate) {
    return (*static_cast<SztuPredicate **>(predicate))(item);
}

void callVisitor(void *item, void *visitor) {
    (*static_cast<SztuVisitor **>(visitor))(item);
}

int32_t isSameItem(void *item, void *wanted) {
    return item == wanted ? 1 : 0;
}

SztuListNode *find(SztuList *list, SztuPredicate *predicate) {
    return findWith(list, predicate == nullptr ? nullptr : callPredicate, &predicate);
}

SztuListNode *findItem(SztuList *list, void *item) {
    return findWith(list, isSameItem, item);
}

void forEach(SztuList *list, SztuVisitor *visitor) {
    forEachWith(list, visitor == nullptr ? nullptr : callVisitor, &visitor);
}

uint32_t countIf(SztuList *list, SztuPredicate *predicate) {
    return countIfWith(list, predicate == nullptr ? nullptr : callPredicate, &predicate);
}

// ---- Creation --------------------------------------------------------------------------------

// Each ...With and its ...WithData are two entries of one operation, and stay two: callers use
// both.
constexpr SztuList EMPTY_LIST = {
    .count = 0,
    .head = nullptr,
    .tail = nullptr,
    .SztuListCount = countNodes,
    .SztuListAppend = append,
    .SztuListPrepend = prepend,
    .SztuListInsertAfter = insertAfter,
    .SztuListInsertBefore = insertBefore,
    .SztuListRemoveHead = removeHead,
    .SztuListRemoveTail = removeTail,
    .SztuListRemoveNode = removeNode,
    .SztuListRemoveAll = removeAll,
    .SztuListClear = clear,
    .SztuListFind = find,
    .SztuListFindWith = findWith,
    .SztuListFindWithData = findWith,
    .SztuListFindItem = findItem,
    .SztuListForEach = forEach,
    .SztuListForEachWith = forEachWith,
    .SztuListForEachWithData = forEachWith,
    .SztuListCountIf = countIf,
    .SztuListCountIfWith = countIfWith,
    .SztuListCountIfWithData = countIfWith,
};

} // namespace
} // namespace vek

SztuList *SztuListCreate(void) {
    ztm::TraceScope trace(vek::FUNCTION_LIST_CREATE);
    SztuList *const list = static_cast<SztuList *>(
        vek::allocate(TRC_SOURCE, vek::FUNCTION_LIST_CREATE, sizeof(SztuList)));
    if (list != nullptr)
        *list = vek::EMPTY_LIST;
    (void)trace.returns(list != nullptr);
    return list;
}
