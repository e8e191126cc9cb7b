// The rules that every text of the catalogue keeps.
#include "common/catalogue.h"
#include "ztpbe.h"

#include <gtest/gtest.h>
#include <regex>
#include <string>

namespace {

constexpr size_t LONGEST_TEXT = 240; // without its inserts

// Only the command shows these; all others reach the callers of the library too.
bool isOfTheCommandAlone(uint32_t number) {
    return number == SVC_MSG_FIPS_NOT_AVAILABLE || number == SVC_MSG_BAD_ARGUMENT ||
           number == SVC_MSG_PROTECTED || number == SVC_MSG_CANNOT_OPEN;
}

TEST(Catalogue, TextsAreShortWholeSentencesOfWhoeverShowsThem) {
    for (const ztm::CatalogueEntry &entry : ztm::messageCatalogue()) {
        if (entry.number == SVC_MSG_USAGE)
            continue;
        const std::string text = entry.text;
        EXPECT_GE(LONGEST_TEXT, std::regex_replace(text, std::regex("%[12cner]"), "").size())
            << text;
        EXPECT_TRUE(std::regex_match(text, std::regex("['A-Z][ -~]*\\.([^%]|%[12cner])*\\.")))
            << text << ": what happened, then what to do";
        EXPECT_EQ(std::string::npos, text.find("  ")) << text;
        if (!isOfTheCommandAlone(entry.number)) {
            EXPECT_FALSE(std::regex_search(text, std::regex("runvekcred| -[fos]"))) << text;
        }
    }
}

} // namespace
