// Every text of up to seven characters out of nine that mean something, as the value of a
// credential; and every one of up to five right behind its key and in front of it. The line is
// given to the code of each side. What runvekcred would encrypt is what the readers take for that
// credential, or check finds an error in the line: `ambiguous`, where the readers take another
// value. Where both take the same, check does not find that (tried up to four characters). Of all
// longer texts that are the same up to a NUL, which check sees no further than, it is asked once.
//
// The letter "p" is the one that the key begins with: the readers keep blanks behind it.
#include "runvekcred/credential_line.h"
#include "shared/line_words.h"
#include "sztucona/parse.h"
#include "vekctl/verdict.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

namespace {

using vekctl::Code;

constexpr char CHARACTERS[] = {' ', '#', '=', '.', 'p', 'a', '"', '\r', '\0'};
constexpr char KEY[] = "pem.password";
constexpr size_t LONGEST_THAT_AGREES = 4, LONGEST_WITH_HIDDEN_PART = 5;

class Line {
public:
    explicit Line(const std::string &wholeText) : text(wholeText) {
        // processConfigLine ends the text of a line like this.
        isWritten = vek::cutWords({text.data(), strcspn(text.c_str(), "\n")}, &written) &&
                    runvekcred::beginsWithTableKey(text.c_str());
        const char *position = text.c_str();
        if (std::string_view content; vek::nextLine(&position, &content))
            read = vek::parseLine(content);
        isRead = read.kind == vek::LineKind::setting && read.key == KEY;
    }
    [[nodiscard]] bool isSame() const {
        return isWritten == isRead &&
               (!isRead || (written.key == read.key && written.value == read.value));
    }
    [[nodiscard]] bool isFound(Code code) const {
        vekctl::FileText file;
        file.take(vekctl::Secret(text));
        vekctl::KeyRing keys(/* withFips= */ false);
        return std::ranges::any_of(vekctl::judge(file, keys, {.opens = false}).findings,
                                   [&](const vekctl::Finding &finding) {
                                       return finding.code == code &&
                                              finding.level == vekctl::Level::error;
                                   });
    }
    // What check must find in a line that is not the same to both.
    [[nodiscard]] Code difference() const {
        if (isRead)
            return Code::ambiguous;
        return read.kind == vek::LineKind::setting ? Code::lookAlike : Code::unparsable;
    }

private:
    const std::string &text;
    vek::LineWords written;
    vek::Line read = {vek::LineKind::nothing, {}, {}};
    bool isWritten, isRead;
};

struct Place {
    const char *before, *behind;
    size_t longest; // of the texts
    size_t count;   // of them
    size_t atLeast; // so many are not the same to both
};
constexpr Place PLACES[] = {{"pem.password=", "\n", 7, 5'380'840, 1'000'000},
                            {KEY, "\n", 5, 66'430, 10'000},
                            {"", "pem.password=ap a\n", 5, 66'430, 1}};

class Walk {
public:
    explicit Walk(const Place &whichPlace) : place(whichPlace) {}

    void go(std::string text) {
        check(text);
        for (const char character : CHARACTERS)
            if (text.size() < place.longest && !testing::Test::HasFailure())
                go(text + character);
    }
    size_t lines = 0, differences = 0;

private:
    void check(const std::string &text) {
        const std::string whole = place.before + text + place.behind;
        const Line line(whole);
        ++lines;
        const bool hidesPart = text.find('\0') < text.size() - 1;
        if (!line.isSame()) {
            ++differences;
            if (!hidesPart || text.size() <= LONGEST_WITH_HIDDEN_PART) {
                EXPECT_TRUE(line.isFound(line.difference())) << testing::PrintToString(whole);
            }
        } else if (text.size() <= LONGEST_THAT_AGREES) {
            EXPECT_FALSE(line.isFound(Code::ambiguous)) << testing::PrintToString(whole);
        }
    }

    const Place &place;
};

TEST(EveryLine, IsTheSameToBothSidesOrFoundByCheck) {
    sztUseLogErrorMessage = 0;
    (void)unsetenv("ZTS_TRACE"); // it would take gigabytes
    for (const Place &place : PLACES) {
        Walk walk(place);
        walk.go("");
        EXPECT_EQ(place.count, walk.lines);
        EXPECT_LE(place.atLeast, walk.differences);
        printf("%zu lines, %zu of them not the same to both\n", walk.lines, walk.differences);
    }
}

} // namespace
