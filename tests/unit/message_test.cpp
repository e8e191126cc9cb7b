// Numbered messages.
#include "common/catalogue.h"
#include "support/keystore_file.h"
#include "ztpbe.h"

#include <cerrno>
#include <set>

namespace {

std::string message(uint32_t number, int64_t numeric, const char *string1, const char *string2) {
    const SvcMessageInserts inserts = svcMakeInserts(numeric, string1, string2);
    return shownBy(
        [&] { EXPECT_EQ(0U, svcDisplayMessageForError(0, 0, number, inserts, 0, "t", 1)); });
}

TEST(Messages, BeginWithNumberAndSeverityAndEndTheLine) {
    std::set<uint32_t> shortNumbers;
    for (const ztm::CatalogueEntry &entry : ztm::messageCatalogue()) {
        const std::string text = message(entry.number, 0, "one", "two");
        char prefix[16];
        (void)snprintf(prefix, sizeof prefix, "ZTM%04X%c ", entry.number & 0xFFFF,
                       "IWE"[entry.number >> 28]);
        EXPECT_EQ(0U, text.find(prefix)) << text;
        EXPECT_EQ('\n', text.back());
        EXPECT_EQ(std::string::npos, text.find('%')) << text;
        EXPECT_TRUE(shortNumbers.insert(entry.number & 0xFFFF).second) << text;
    }
}

// recorded_runs_test.py has what else they name.
TEST(Messages, NameAReasonWithoutATextAndAFileWithoutAPath) {
    const std::string reason = message(SVC_MSG_PBE_FAILED, 0x12345678, nullptr, nullptr);
    EXPECT_NE(std::string::npos, reason.find("0x12345678")) << reason;
    const std::string file = message(SVC_MSG_DUPLICATE_KEY, 0, nullptr, "k");
    EXPECT_NE(std::string::npos, file.find("keystore.conf in its standard place")) << file;
}

TEST(Messages, AreCutAndNotOverrun) {
    const std::string text =
        message(SVC_MSG_CANNOT_OPEN, ENOENT, std::string(20000, 'p').c_str(), nullptr);
    EXPECT_LT(text.size(), 10241U);
    EXPECT_EQ('\n', text.back());
}

TEST(Messages, RefuseUnknownNumbersAndForeignBlocks) {
    SvcMessageInserts inserts = svcMakeInserts(0, "", "");
    EXPECT_EQ(uint32_t{SVC_BAD_ARGUMENTS},
              svcDisplayMessageForError(0, 0, 0x20001234, inserts, 0, "t", 1));
    inserts.eyeCatcher[0] = 'X';
    EXPECT_EQ(uint32_t{SVC_BAD_ARGUMENTS},
              svcDisplayMessageForError(0, 0, SVC_MSG_USAGE, inserts, 0, "t", 1));
}

TEST(Messages, ShowOfAnInsertWhatDrivesNoTerminal) {
    const std::pair<const char *, const char *> rows[] = {
        {"forged\nZTM9105I \x1b[1m\x7f", "forged?ZTM9105I ?[1m?"},
        {"M\u00FCller \u20AC \U0001F512 \u00A0", "M\u00FCller \u20AC \U0001F512 \u00A0"},
        {"\xC2\x80\xC2\x9F\xC2\x9B", "??????"},                    // C1, byte by byte
        {"a\u202Eb\u202Ac", "a???b???c"},                          // written backwards
        {"\u2066\u2069\u2029\u206A", "??????\u2029\u206A"},        // isolates, and their neighbours
        {"\xFC\xE4 \xE2\x82", "?? ??"},                            // Latin-1; cut off
        {"\xC0\xAF \xE0\x80\xAF \xF0\x80\x80\xAF", "?? ??? ????"}, // longer than needed
        {"\xED\xA0\x80 \xF4\x90\x80\x80 \xF8\x88\x80\x80\x80", "??? ???? ?????"},
    };
    for (const auto &[insert, shown] : rows)
        EXPECT_NE(
            std::string::npos,
            message(SVC_MSG_NO_LOCATION, 0, insert, nullptr).find("\'" + std::string(shown) + "\'"))
            << shown;
}

} // namespace
