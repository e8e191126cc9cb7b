// The list container.
#include "failing_memory.h"
#include "ztvek.h"

#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace {

// Items are the letters of this text, so that a list reads as a word.
char letters[] = "abc";

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

// One step: "+x" appends, "^x" prepends, "xay" and "xby" insert y after and before x, "-x" removes x,
// "<" and ">" remove head and tail, "!" clears.
void run(SztuList *list, const std::string &step) {
    if (step == "<")
        list->SztuListRemoveHead(list);
    else if (step == ">")
        list->SztuListRemoveTail(list);
    else if (step == "!")
        list->SztuListClear(list);
    else if (step[0] == '+')
        list->SztuListAppend(list, letter(step[1]));
    else if (step[0] == '^')
        list->SztuListPrepend(list, letter(step[1]));
    else if (step[0] == '-')
        list->SztuListRemoveNode(list, list->SztuListFindItem(list, letter(step[1])));
    else if (step[1] == 'a')
        list->SztuListInsertAfter(list, list->SztuListFindItem(list, letter(step[0])),
                                  letter(step[2]));
    else
        list->SztuListInsertBefore(list, list->SztuListFindItem(list, letter(step[0])),
                                   letter(step[2]));
}

class List : public ::testing::Test {
protected:
    SztuList *list = SztuListCreate();

    void run(const std::string &steps) {
        std::istringstream stream(steps);
        for (std::string step; stream >> step;)
            ::run(list, step);
    }

    void TearDown() override {
        refusedAllocation = 0;
        list->SztuListClear(list);
        svcFreeMemFn(0, SVC_COMPONENT_VEK, 0, list);
    }
};

TEST_F(List, KeepsItsOrderAndItsLinks) {
    const struct {
        const char *steps;
        const char *word;
    } cases[] = {
        {"+a +b +c", "abc"},
        {"^a ^b ^c", "cba"},
        {"+a aab", "ab"},
        {"+a +c aab", "abc"},
        {"+b bba", "ab"},
        {"+a +c cbb", "abc"},
        {"< > !", ""},
        {"+a <", ""},
        {"+a >", ""},
        {"+a -a", ""},
        {"+a +b <", "b"},
        {"+a +b >", "a"},
        {"+a +b +c -a", "bc"},
        {"+a +b +c -b", "ac"},
        {"+a +b +c -c", "ab"},
        {"+a +b !", ""},
        {"+a +b ! ^c +a", "ca"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.steps);
        run(row.steps);
        EXPECT_EQ(row.word, wordOf(list));
        list->SztuListClear(list);
    }
}

TEST_F(List, SearchesFromTheHeadAndTreatsNullCallbacksAsNoMatch) {
    run("+a +b +c +b");
    void *const b = letter('b');
    EXPECT_EQ(list->head->next, list->SztuListFind(list, isNotA));
    EXPECT_EQ(list->head->next, list->SztuListFindWith(list, isLetter, b));
    EXPECT_EQ(list->head->next, list->SztuListFindWithData(list, isLetter, b));
    EXPECT_EQ(list->tail->prev, list->SztuListFindItem(list, letter('c')));
    char stranger = 'b';
    EXPECT_EQ(nullptr, list->SztuListFindItem(list, &stranger));
    EXPECT_EQ(3U, list->SztuListCountIf(list, isNotA));
    EXPECT_EQ(2U, list->SztuListCountIfWith(list, isLetter, b));
    EXPECT_EQ(2U, list->SztuListCountIfWithData(list, isLetter, b));
    std::string word;
    list->SztuListForEachWith(list, addTo, &word);
    list->SztuListForEachWithData(list, addTo, &word);
    EXPECT_EQ("abcbabcb", word);
    static std::string seen;
    list->SztuListForEach(list, [](void *item) { addTo(item, &seen); });
    EXPECT_EQ("abcb", seen);

    EXPECT_EQ(nullptr, list->SztuListFind(list, nullptr));
    EXPECT_EQ(nullptr, list->SztuListFindWithData(list, nullptr, b));
    EXPECT_EQ(0U, list->SztuListCountIf(list, nullptr));
    EXPECT_EQ(0U, list->SztuListCountIfWithData(list, nullptr, b));
    list->SztuListForEach(list, nullptr);
    list->SztuListForEachWithData(list, nullptr, b);
}

TEST_F(List, ReleasesContentsBeforeTheirRecords) {
    for (int i = 0; i < 2; ++i) {
        void *record = nullptr;
        ASSERT_EQ(SVC_OK, svcGetMemFn(0, SVC_COMPONENT_VEK, 0, sizeof(void *), 0, &record));
        *static_cast<void **>(record) = strdup("content");
        list->SztuListAppend(list, record);
    }
    list->SztuListAppend(list, nullptr);
    static int visits;
    visits = 0;
    list->SztuListRemoveAll(list, 1, [](void *record) {
        ++visits;
        if (record != nullptr)
            free(*static_cast<void **>(record));
    });
    EXPECT_EQ(3, visits); // the null item too
    EXPECT_EQ("", wordOf(list));
}

TEST_F(List, DropsAnItemWithoutMemoryAndRecordsIt) {
    run("+a +c");
    for (const char *step : {"+b", "^b", "aab", "cbb", "cab", "abb"}) {
        SvcFailureRecord before, after;
        svcGetFailureRecord(&before);
        refusedAllocation = 1;
        run(step);
        svcGetFailureRecord(&after);
        EXPECT_EQ("ac", wordOf(list)) << step;
        EXPECT_EQ(before.count + 1, after.count) << step;
        EXPECT_EQ(250U, after.failure);
        EXPECT_EQ(0x817U, after.probe);
        EXPECT_STREQ("lib/vek/sztulisa", after.source);
    }
    refusedAllocation = 1;
    EXPECT_EQ(nullptr, SztuListCreate());
}

} // namespace
