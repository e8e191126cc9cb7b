// The list container. What it does without memory is walked through in allocation_test.cpp.
#include "ztvek.h"

#include <gtest/gtest.h>
#include <sstream>

namespace {

// Items are the letters of this text, so that a list reads as a word.
char letters[] = "abc";

char *letter(char name) {
    return name < 'a' ? nullptr : &letters[name - 'a'];
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

// The word that a list holds, after a check of its links in both directions.
std::string wordOf(SztuList *list) {
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

class List : public ::testing::Test {
protected:
    SztuList *list = SztuListCreate();

    // One step: "+x" appends, "^x" prepends, ")xn" and "(xn" insert x after and before n, "-n"
    // removes n, "<" and ">" remove head and tail, "!" clears.
    void runStep(const std::string &step) {
        SztuListNode *const node = list->SztuListFindItem(list, letter(step.back()));
        char *const item = letter(step[1]);
        switch (step[0]) {
        case '+':
            return list->SztuListAppend(list, item);
        case '^':
            return list->SztuListPrepend(list, item);
        case ')':
            return list->SztuListInsertAfter(list, node, item);
        case '(':
            return list->SztuListInsertBefore(list, node, item);
        case '-':
            return list->SztuListRemoveNode(list, node);
        case '<':
            return list->SztuListRemoveHead(list);
        case '>':
            return list->SztuListRemoveTail(list);
        default:
            return list->SztuListClear(list);
        }
    }

    std::string run(const std::string &steps) {
        std::istringstream stream(steps);
        for (std::string step; stream >> step;)
            runStep(step);
        return wordOf(list);
    }

    void TearDown() override {
        list->SztuListClear(list);
        svcFreeMemFn(0, SVC_COMPONENT_VEK, 0, list);
    }
};

TEST_F(List, KeepsItsOrderAndItsLinks) {
    const char *const cases[][2] = {
        {"+a +b +c", "abc"},    {"^a ^b ^c", "cba"},   {"+a )ba", "ab"},
        {"+a +c )ba", "abc"},   {"+b (ab", "ab"},      {"+a +c (bc", "abc"},
        {"< > !", ""},          {"+a <", ""},          {"+a >", ""},
        {"+a -a", ""},          {"+a +b <", "b"},      {"+a +b >", "a"},
        {"+a +b +c -a", "bc"},  {"+a +b +c -b", "ac"}, {"+a +b +c -c", "ab"},
        {"+a +b ! ^c +a", "ca"}};
    for (const auto &row : cases) {
        EXPECT_EQ(row[1], run(row[0])) << row[0];
        list->SztuListClear(list);
    }
}

TEST_F(List, SearchesFromTheHeadAndTreatsNullCallbacksAsNoMatch) {
    run("+a +b +c +b");
    char stranger = 'b';
    EXPECT_EQ(list->tail->prev, list->SztuListFindItem(list, letter('c')));
    EXPECT_EQ(nullptr, list->SztuListFindItem(list, &stranger));
    EXPECT_EQ(list->head->next, list->SztuListFind(list, isNotA));
    EXPECT_EQ(nullptr, list->SztuListFind(list, nullptr));
    for (const auto find : {list->SztuListFindWith, list->SztuListFindWithData}) {
        EXPECT_EQ(list->head->next, find(list, isLetter, letter('b')));
        EXPECT_EQ(nullptr, find(list, nullptr, letter('b')));
    }
    EXPECT_EQ(3U, list->SztuListCountIf(list, isNotA));
    EXPECT_EQ(0U, list->SztuListCountIf(list, nullptr));
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
    static std::string word;
    list->SztuListRemoveAll(
        list, 1, [](void *item) { word += item == nullptr ? '0' : *static_cast<char *>(item); });
    EXPECT_EQ("x0", word);
    EXPECT_EQ("", wordOf(list));
}

} // namespace
