// Texts in fields of a fixed size.
#include "ztutl.h"

#include <gtest/gtest.h>

namespace {

TEST(BoundedText, StaysInsideItsFieldAndFillsIt) {
    const std::pair<const char *, std::string> rows[] = {
        {"", {"\0\0\0\0!", 5}}, {"abc", {"abc\0!", 5}}, {"abcd", "abcd!"}, {"abcde", "abcd!"}};
    for (const auto &[text, field] : rows) {
        std::string bytes = "xxxx!";
        utlCopyBounded(bytes.data(), text, /* capacity= */ 4);
        EXPECT_EQ(field, bytes);
    }
    char buffer[] = "ab\0xxx!";
    utlAppendBounded(buffer, "c", /* limit= */ 2);
    utlAppendBounded(buffer, "def", /* limit= */ 2);
    EXPECT_EQ(std::string("abcde\0!", 8), std::string(buffer, sizeof buffer));
}

TEST(BoundedText, BecomesUpperCaseUpToALimitOrItsEnd) {
    char text[] = "ab\xE4z\0b";
    utlUpperCase(text, /* limit= */ 1);
    EXPECT_STREQ("Ab\xE4z", text);
    utlUpperCase(text, sizeof text);
    EXPECT_EQ(std::string("AB\xE4Z\0b", 7), std::string(text, sizeof text));
}

} // namespace
