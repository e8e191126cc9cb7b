// Loading a section.
#include "support/keystore_file.h"
#include "sztoumaa/load.h"

namespace {

using std::string;

TEST(LoadSection, HandsOverTheSectionOrNothing) {
    EXPECT_EQ(1U, sztUseLogErrorMessage); // before anybody sets it
    const TemporaryFile file("");
    const string atFault = "ZTM9062E The file '" + file.path + "'";
    const struct {
        const char *content;
        const char *section;
        uint32_t result;
        string message;
    } cases[] = {{"x.a=1\ny.b=2", "x", 0, ""},
                 {"x.a=1\ny.b=2", "z", 7, ""},
                 {"x.a=1\nword", "x", 11, atFault},
                 {"", "x", 12, atFault},
                 {"x.a=1", "", 2, ""}};
    for (const auto &row : cases) {
        file.write(row.content);
        for (const uint32_t switches : {0U, 1U, 2U, 3U}) {
            SztuList *list = loaded("old.a=1", "old"); // goes, whatever happens
            sztUseLogErrorMessage = switches & 1;
            const string shown = shownBy([&] {
                EXPECT_EQ(row.result, vek::loadSection(file.path.c_str(), &list, row.section,
                                                       (switches & 2) != 0));
            });
            sztUseLogErrorMessage = 1;
            expectMessage(switches == 3 ? row.message : "", shown);
            EXPECT_EQ(row.result != 0, list == nullptr) << row.content;
            sztucFreeConfigList(list);
        }
    }
}

} // namespace
