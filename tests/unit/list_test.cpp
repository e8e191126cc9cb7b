// The list container. What it does without memory is walked through in allocation_test.cpp.
#include "ztvek.h"

#include <gtest/gtest.h>

namespace {

// Items are the letters of this text, so that a list reads as a word.
char letters[] = "abcdefghijklmnopqrstuvwxyz";

char *letter(char name) {
    return &letters[name - 'a'];
}

int32_t isLetter(void *item, void *wanted) {
    return *static_cast<char *>(item) == *static_cast<char *>(wanted) ? 7 : 0;
}

int32_t isNotA(void *item) {
    return *static_cast<char *>(item) != 'a' ? -1 : 0;
}

void addTo(void *item, void *word) {
    *static_cast<std::string *>(word) += *static_cast<char *>(item);
}

class List : public ::testing::Test {
protected:
    SztuList *list = SztuListCreate();

    // The word that the list holds, after a check of its links in both directions.
    std::string word() const {
        std::string word;
        SztuListNode *prev = nullptr;
        for (SztuListNode *node = list->head; node != nullptr; prev = node, node = node->next) {
            EXPECT_EQ(prev, node->prev);
            addTo(node->item, &word);
        }
        EXPECT_EQ(prev, list->tail);
        EXPECT_EQ(word.size(), list->SztuListCount(list));
        return word;
    }

    void TearDown() override {
        list->SztuListClear(list);
        svcFreeMemFn(0, SVC_COMPONENT_VEK, 0, list);
    }
};

TEST_F(List, KeepsItsOrderAndItsLinks) {
    // Between, at the ends, and with no node to insert at.
    list->SztuListAppend(list, letter('o'));
    list->SztuListAppend(list, letter('x'));
    list->SztuListPrepend(list, letter('f'));
    EXPECT_EQ("fox", word());
    list->SztuListInsertAfter(list, list->head, letter('l'));
    list->SztuListInsertAfter(list, list->tail, letter('y'));
    list->SztuListInsertBefore(list, list->tail, letter('e'));
    list->SztuListInsertBefore(list, list->head, letter('a'));
    EXPECT_EQ("afloxey", word());
    list->SztuListRemoveNode(list, list->tail->prev);
    list->SztuListRemoveNode(list, list->tail);
    list->SztuListRemoveNode(list, list->head);
    EXPECT_EQ("flox", word());
    list->SztuListRemoveHead(list);
    list->SztuListRemoveTail(list);
    EXPECT_EQ("lo", word());
    list->SztuListRemoveHead(list);
    list->SztuListRemoveTail(list);
    EXPECT_EQ("", word());
    list->SztuListRemoveHead(list);
    list->SztuListRemoveTail(list);
    list->SztuListClear(list);
    list->SztuListPrepend(list, letter('a'));
    EXPECT_EQ("a", word());
    list->SztuListRemoveNode(list, list->head);
    EXPECT_EQ("", word());
}

TEST_F(List, SearchesFromTheHeadAndTreatsNullCallbacksAsNoMatch) {
    for (const char name : {'a', 'b', 'c', 'b'})
        list->SztuListAppend(list, letter(name));
    char stranger = 'b';
    EXPECT_EQ(list->tail->prev, list->SztuListFindItem(list, letter('c')));
    EXPECT_EQ(nullptr, list->SztuListFindItem(list, &stranger));
    EXPECT_EQ(list->head->next, list->SztuListFind(list, isNotA));
    EXPECT_EQ(nullptr, list->SztuListFind(list, nullptr));
    EXPECT_EQ(3U, list->SztuListCountIf(list, isNotA));
    EXPECT_EQ(0U, list->SztuListCountIf(list, nullptr));
    for (const auto find : {list->SztuListFindWith, list->SztuListFindWithData}) {
        EXPECT_EQ(list->head->next, find(list, isLetter, letter('b')));
        EXPECT_EQ(nullptr, find(list, nullptr, letter('b')));
    }
    for (const auto countIf : {list->SztuListCountIfWith, list->SztuListCountIfWithData}) {
        EXPECT_EQ(2U, countIf(list, isLetter, letter('b')));
        EXPECT_EQ(0U, countIf(list, nullptr, letter('b')));
    }
    static std::string word;
    list->SztuListForEach(list, [](void *item) { addTo(item, &word); });
    list->SztuListForEach(list, nullptr);
    for (const auto forEach : {list->SztuListForEachWith, list->SztuListForEachWithData}) {
        forEach(list, addTo, &word);
        forEach(list, nullptr, &word);
    }
    EXPECT_EQ("abcbabcbabcb", word);
}

TEST_F(List, HandsOutItsItemsBeforeItReleasesThem) {
    void *record = nullptr;
    ASSERT_EQ(SVC_OK, svcGetMemFn(0, SVC_COMPONENT_VEK, 0, sizeof(void *), 0, &record));
    list->SztuListAppend(list, record);
    list->SztuListAppend(list, nullptr);
    *static_cast<char *>(record) = 'x';
    static std::string seen;
    list->SztuListRemoveAll(
        list, 1, [](void *item) { seen += item == nullptr ? '0' : *static_cast<char *>(item); });
    EXPECT_EQ("x0", seen);
    EXPECT_EQ("", word());
}

} // namespace
