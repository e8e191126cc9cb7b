// check and the readers agree, over all small files that can be made of a set of lines: check finds
// an error of reading exactly when a reader of the library, run on the file itself, fails or hands
// a wrong text over.
#include "support/keystore_file.h"
#include "support/reader_judge.h"
#include "vekctl/verdict.h"

#include <algorithm>
#include <array>
#include <functional>

namespace {

using vekctl::Finding;

// Whose readers a line concerns; a line with a hidden or unknown key concerns none.
enum class Whose { nobody, general, channel, shared };

struct TestLine {
    std::string text;
    const char *section;
    Whose whose = Whose::nobody;
};

// The readers of the sections, and of three channels, are the judges. A section with keys of
// channels only has no general reader.
void askReaders(ReaderJudge *judge, bool hasGeneralPem, bool hasGeneralCms) {
    for (const char *const section : {"vekcred", "ocsp", "pkcs11", "crl"})
        judge->ask(section);
    if (hasGeneralPem)
        judge->ask("pem");
    if (hasGeneralCms)
        judge->ask("cms");
    for (const char *const channel : {"shop", "ORDERS", "encrypted"}) {
        judge->ask("cms", channel);
        judge->ask("pem", channel);
    }
}

class Agreement : public testing::Test {
protected:
    Agreement() : otherKey("0123456789abcdef0123456789ABCDEF") {
        sztUseLogErrorMessage = 0;
    }
    ~Agreement() override {
        EXPECT_GT(badFiles, 500U);
        EXPECT_GT(count - badFiles, 500U);
        printf("%zu files, %zu of them with a reader that fails\n", count, badFiles);
    }

    // All multisets of up to `most` lines behind the base, each with one of three line ends.
    void enumerate(const std::vector<TestLine> &lines, size_t most,
                   const std::vector<TestLine> &base) {
        std::vector<const TestLine *> chosen;
        for (const TestLine &line : base)
            chosen.push_back(&line);
        const std::function<void(size_t, size_t)> extend = [&](size_t from, size_t left) {
            check(chosen);
            for (size_t i = from; left > 0 && i < lines.size() && !HasFatalFailure(); ++i) {
                chosen.push_back(&lines[i]);
                extend(i, left - 1);
                chosen.pop_back();
            }
        };
        extend(0, most);
    }

    void check(const std::vector<const TestLine *> &lines) {
        if (lines.empty())
            return;
        const char *const end = count % 3 == 1 ? "\r\n" : "\n";
        std::string text;
        for (const TestLine *const line : lines)
            text += line->text + end;
        if (count % 3 == 2)
            text.pop_back();
        ++count;
        ASSERT_TRUE(file.write(text));
        ReaderJudge judged(file.path.c_str());
        askReaders(&judged, hasGeneral(lines, "pem"), hasGeneral(lines, "cms"));
        badFiles += judged.isBad ? 1 : 0;

        vekctl::FileText content;
        content.take(vekctl::Secret(text));
        const std::vector<Finding> findings = vekctl::judge(content, keys, {}).findings;
        const bool readingFails = std::ranges::any_of(findings, vekctl::isReadingError);
        const bool anyError = std::ranges::any_of(
            findings, [](const Finding &finding) { return finding.level == vekctl::Level::error; });
        ASSERT_EQ(judged.isBad, readingFails) << text;
        ASSERT_TRUE(anyError || !judged.handsClearText) << text;
    }

    static bool hasGeneral(const std::vector<const TestLine *> &lines, std::string_view section) {
        const auto has = [&](Whose whose) {
            return std::ranges::any_of(lines, [&](const TestLine *line) {
                return line->section == section && line->whose == whose;
            });
        };
        return has(Whose::general) || !has(Whose::channel);
    }

    TestLine key(const char *text, Whose whose = Whose::general) {
        const std::string_view whole = text;
        const size_t dot = whole.find('.');
        static const std::array<const char *, 6> SECTIONS = {"cms", "crl",    "ocsp",
                                                             "pem", "pkcs11", "vekcred"};
        for (const char *const section : SECTIONS)
            if (whole.substr(0, dot) == section)
                return {text, section, whose};
        return {text, "", Whose::nobody};
    }

    size_t count = 0;
    size_t badFiles = 0;
    FileInMemory file;
    TemporaryFile otherKey;
    vekctl::KeyRing keys{/* withFips= */ false};
    const std::string stored = protect("Winter-Harbour-42");
};

TEST_F(Agreement, HoldsForAllFilesOfUpToSixLinesAboutTwoCredentials) {
    const Whose CHANNEL = Whose::channel;
    const std::vector<TestLine> lines = {
        key("pem.private = k"),
        key("pem.public = c"),
        key("pem.password = Winter"),
        key(("pem.password=" + stored).c_str()),
        key("pem.encrypted = YES"),
        key("pem.encrypted = no"),
        key("pem.private.channel.shop=k", CHANNEL),
        key("pem.public.channel.shop=c", CHANNEL),
        key("pem.password.channel.shop=Winter", CHANNEL),
        key(("pem.password.channel.shop = " + stored).c_str(), Whose::nobody), // hidden
        key(("pem.password.channel.shop=" + stored).c_str(), CHANNEL),
        key("pem.encrypted.channel.shop=Yes", CHANNEL),
        key("pem.encrypted.channel.shop = YES", Whose::nobody),     // hidden
        key("pem.password.channel.encrypted = YES", Whose::nobody), // no reader's marker
        key("pem.fips = perhaps", Whose::shared),
        key("crl.ldap.host = h"),
        key("crl.encrypted = YES"),
        key(("crl.ldap.pass = " + stored).c_str()),
    };
    enumerate(lines, 6, {});
}

TEST_F(Agreement, HoldsForAllFilesOfUpToThreeLinesBehindCompleteSections) {
    const std::string other = "vekcred.keyfile = " + otherKey.path;
    const std::string longClear(300, 'a');
    const std::vector<TestLine> base = {
        key("pem.private = k"),
        key("pem.public = c"),
        key("pkcs11.library = l"),
        key("pkcs11.token = t"),
        key("pkcs11.certificate = c"),
        key("crl.ldap.host = h"),
        key("cms.keystore = s", Whose::shared),
        key("cms.certificate = c"),
        key("pem.private.channel.shop=k", Whose::channel),
        key("pem.public.channel.shop=c", Whose::channel),
    };
    const std::vector<TestLine> fill = {
        key(("pem.password = " + stored).c_str()),
        key("pem.encrypted = YES"),
        key(("pkcs11.token_pin = " + stored).c_str()),
        key("pkcs11.encrypted = yes"),
    };
    std::vector<TestLine> lines = {
        key("pem.password = Winter"),
        key("pem.password = Winter Harbour # x"),
        key(("pem.password = " + stored).c_str()),
        key(("pem.password = " + stored + " # x").c_str()),
        key("pem.password = <VEK>2!x!y!z"),
        key("pem.password = <VEK>2!x"),
        key(("pem.password = " + longClear).c_str()),
        key(("pem.password = " + protect(longClear)).c_str()),
        key("pem.password2 = x", Whose::nobody),
        key("PEM.PASSWORD = x", Whose::nobody),
        key("pem.encrypted = YES"),
        key("pem.encrypted = no"),
        key("pem.encrypted = MAYBE # YES"),
        key("pem.encrypted2 = YES", Whose::nobody),
        key("pem.fips = perhaps", Whose::shared),
        key("pem.checkpurpose = 1 # on"),
        key("pem.private = k"),
        key("pem.password.channel.shop=Winter", Whose::channel),
        key(("pem.password.channel.shop=" + stored).c_str(), Whose::channel),
        key("pem.encrypted.channel.shop=YES", Whose::channel),
        key("pem.encrypted.channel.shop = YES", Whose::nobody),
        key("pem.password.channel.encrypted = YES", Whose::nobody),
        key("pem.private.channel.encrypted = k", Whose::channel),
        key("pem.public.channel.encrypted = k", Whose::channel),
        key("pem.password.channel.A-NAME-OF-MORE-THAN-20 = x", Whose::nobody),
        key(("pkcs11.token_pin = " + stored).c_str()),
        key("pkcs11.token_pin = 42"),
        key("pkcs11.encrypted = yes"),
        key(("crl.ldap.pass = " + stored).c_str()),
        key("crl.ldap.pass = Winter"),
        key("crl.encrypted = YES"),
        key("crl.ldap.host = h"),
        key("crl.ldap.password = Winter", Whose::nobody),
        key("cms.certificate.channel.ORDERS = c", Whose::channel),
        key("cms.keystore = s", Whose::shared),
        key("ocsp.log = yes"),
        key("ocsp.unknown = warning"),
        key(other.c_str()),
        key("vekcred.keyfile = /nowhere/at/all"),
        key("just words"),
        key("pem.public = # nothing"),
        key("[pem]"),
        key("; pem.password = x"),
        key("\xef\xbb\xbfpem.fips = yes", Whose::nobody),
    };
    enumerate(lines, 3, base);
    std::vector<TestLine> filled = base;
    filled.insert(filled.end(), fill.begin(), fill.end());
    enumerate(lines, 3, filled);
    enumerate(lines, 2, {});
    lines.resize(25); // those about "pem" meet in fours
    enumerate(lines, 4, filled);
    enumerate(lines, 4, base);
}

} // namespace
