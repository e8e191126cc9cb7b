// check and the readers agree, over all small files that can be made of a set of lines: check finds
// an error of reading exactly when a reader of the library, run on the file itself, fails or hands
// a wrong text over.
#include "support/keystore_file.h"
#include "support/reader_judge.h"
#include "vekctl/verdict.h"

#include <algorithm>
#include <functional>
#include <set>

namespace {

using vekctl::Finding;

// A line, and the reader that it shows to be there. `reader` is "pem", "pem shop" for a channel's;
// "" when it shows none: its key is hidden, unknown, or shared by all readers of the section.
struct TestLine {
    TestLine(const char *written) : TestLine(std::string(written)) {}
    // "~" stands in front of a line that shows no reader.
    TestLine(const std::string &written)
        : text(written.substr(written.front() == '~' ? 1 : 0)), key(text.substr(0, text.find('='))),
          section(text.substr(0, text.find('.'))), reader(text == written ? section : "") {
        key.erase(key.find_last_not_of(' ') + 1);
        const size_t channel = key.find(CHANNEL);
        if (channel != std::string::npos && !reader.empty())
            reader += " " + key.substr(channel + CHANNEL.size());
    }

    static constexpr std::string_view CHANNEL = ".channel.";
    std::string text, key, section, reader;
};

using Lines = std::vector<TestLine>;
enum class Repeats { none, wanted };

class Agreement : public testing::Test {
protected:
    Agreement() {
        sztUseLogErrorMessage = 0;
    }
    ~Agreement() override {
        EXPECT_GT(cleanFiles, count / 20);
        printf("%zu files, all readers are content with %zu\n", count, cleanFiles);
    }

    // All sets of up to `most` lines. A chosen line takes the place of one of the base that has its
    // key, and no two have one; where repeats are wanted, a line may also be chosen again.
    void enumerate(const Lines &lines, size_t most, const Lines &base, Repeats repeats) {
        std::vector<const TestLine *> chosen;
        const auto isFree = [&](const TestLine &line) {
            return repeats == Repeats::wanted ||
                   std::ranges::none_of(
                       chosen, [&](const TestLine *other) { return other->key == line.key; });
        };
        const std::function<void(size_t)> extend = [&](size_t from) {
            std::vector<const TestLine *> all;
            for (const TestLine &line : base)
                if (isFree(line))
                    all.push_back(&line);
            all.insert(all.end(), chosen.begin(), chosen.end());
            check(all);
            for (size_t i = from; chosen.size() < most && i < lines.size() && !HasFatalFailure();
                 ++i) {
                if (!isFree(lines[i]))
                    continue;
                chosen.push_back(&lines[i]);
                extend(repeats == Repeats::wanted ? i : i + 1);
                chosen.pop_back();
            }
        };
        extend(0);
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
        const ReaderJudge judged = askReaders(lines);
        cleanFiles += judged.isBad ? 0 : 1;

        vekctl::FileText content;
        content.take(vekctl::Secret(text));
        const std::vector<Finding> findings = vekctl::judge(content, keys, {}).findings;
        const bool readingFails = std::ranges::any_of(findings, vekctl::isReadingError);
        const bool anyError = std::ranges::any_of(
            findings, [](const Finding &finding) { return finding.level == vekctl::Level::error; });
        ASSERT_EQ(judged.isBad, readingFails) << text;
        ASSERT_TRUE(anyError || !judged.handsClearText) << text;
    }

    // The judges are the readers of the sections and channels that the file has. A section with
    // keys of channels only has no general reader. A file that cannot be parsed is refused by any.
    ReaderJudge askReaders(const std::vector<const TestLine *> &lines) const {
        ReaderJudge judge(file.path.c_str());
        std::set<std::string> readers, sections;
        for (const TestLine *const line : lines) {
            readers.insert(line->reader);
            sections.insert(line->section);
        }
        judge.ask("vekcred");
        for (const std::string section : {"cms", "crl", "ocsp", "pem", "pkcs11"})
            if (sections.contains(section) &&
                (readers.contains(section) ||
                 std::ranges::none_of(readers, [&](const std::string &reader) {
                     return reader.starts_with(section + " ");
                 })))
                judge.ask(section);
        for (const std::string &reader : readers)
            if (const size_t blank = reader.find(' '); blank != std::string::npos)
                judge.ask(reader.substr(0, blank), reader.c_str() + blank + 1);
        return judge;
    }

    size_t count = 0;
    size_t cleanFiles = 0;
    FileInMemory file;
    vekctl::KeyRing keys{/* withFips= */ false};
    const std::string stored = protect("Winter-Harbour-42");
};

TEST_F(Agreement, HoldsForEachCombinationOfTheSettingsOfAPasswordAndAChannel) {
    const Lines general = {"pem.private = k", "pem.public = c"};
    const Lines channel = {"pem.private.channel.shop=k", "pem.public.channel.shop=c"};
    Lines lines = {
        "pem.password = Winter",
        "pem.password=" + stored,
        "pem.password = <VEK>2!x!y!z",
        "pem.encrypted = YES",
        "pem.encrypted = no",
        "pem.encrypted = MAYBE # YES",
        "pem.password.channel.shop=Winter",
        "~pem.password.channel.shop = " + stored, // hidden
        "pem.password.channel.shop=" + stored,
        "pem.encrypted.channel.shop=Yes",
        "~pem.encrypted.channel.shop = YES",     // hidden
        "~pem.password.channel.encrypted = YES", // no reader's marker
        "~pem.fips = perhaps",
        "~pem.fips = no",
        "pem.private.channel.encrypted = k",
        "pem.public.channel.encrypted = c",
    };
    const Lines crl = {"crl.ldap.host = h", "crl.encrypted = YES", "crl.ldap.pass = " + stored};
    for (const bool hasGeneral : {false, true}) {
        for (const bool hasChannel : {false, true}) {
            Lines base = crl;
            if (hasGeneral)
                base.insert(base.end(), general.begin(), general.end());
            if (hasChannel)
                base.insert(base.end(), channel.begin(), channel.end());
            enumerate(lines, lines.size(), base, Repeats::none);
        }
    }
    for (const Lines &more : {general, channel, crl})
        lines.insert(lines.end(), more.begin(), more.end());
    enumerate(lines, 3, {}, Repeats::wanted);
}

TEST_F(Agreement, HoldsForAllFilesOfAFewLinesBehindCompleteSections) {
    const TemporaryFile otherKey("0123456789abcdef0123456789ABCDEF");
    const std::string longClear(300, 'a');
    const Lines base = {
        "pem.private = k",           "pem.public = c",         "pkcs11.library = l",
        "pkcs11.token = t",          "pkcs11.certificate = c", "crl.ldap.host = h",
        "~cms.keystore = s",         "cms.certificate = c",    "pem.private.channel.shop=k",
        "pem.public.channel.shop=c",
    };
    Lines filled = base;
    filled.insert(filled.end(), {"pem.password = " + stored, "pem.encrypted = YES",
                                 "pkcs11.token_pin = " + stored, "pkcs11.encrypted = yes"});
    Lines lines = {
        "pem.password = Winter",
        "pem.password = Winter Harbour # x",
        "pem.password = " + stored,
        "pem.password = " + stored + " # x",
        "pem.password = <VEK>2!x!y!z",
        "pem.password = <VEK>2!x",
        "pem.password = " + longClear,
        "pem.password = " + protect(longClear),
        "~pem.password2 = x",
        "~PEM.PASSWORD = x",
        "pem.encrypted = YES",
        "pem.encrypted = no",
        "pem.encrypted = MAYBE # YES",
        "~pem.encrypted2 = YES",
        "~pem.fips = perhaps",
        "pem.checkpurpose = 1 # on",
        "pem.password.channel.shop=Winter",
        "pem.password.channel.shop=" + stored,
        "pem.encrypted.channel.shop=YES",
        "~pem.encrypted.channel.shop = YES",
        "~pem.password.channel.encrypted = YES",
        "pem.private.channel.encrypted = k",
        "pem.public.channel.encrypted = k",
        "~pem.password.channel.A-NAME-OF-MORE-THAN-20 = x",
        // The first 24 are about "pem".
        "pkcs11.token_pin = " + stored,
        "pkcs11.token_pin = 42",
        "pkcs11.encrypted = yes",
        "crl.ldap.pass = " + stored,
        "crl.ldap.pass = Winter",
        "crl.encrypted = YES",
        "~crl.ldap.password = Winter",
        "cms.certificate.channel.ORDERS = c",
        "~cms.keystore = s",
        "ocsp.log = yes",
        "ocsp.url = u",
        "~pem.fips = no",
        "~# pem.password = x",
        "~x.y = 1",
        "ocsp.unknown = warning",
        "~vekcred.keyfile = " + otherKey.path,
        "~vekcred.keyfile = /nowhere/at/all",
    };
    const char *const most = getenv("VEK_AGREEMENT_LINES");
    for (const Lines &sections : {base, filled}) {
        enumerate(lines, most == nullptr ? 3 : strtoul(most, nullptr, 10), sections, Repeats::none);
        enumerate({lines.begin(), lines.begin() + 24}, 4, sections, Repeats::none);
    }
    // Lines that make the readers refuse the file, and one that begins with a byte order mark.
    lines.insert(lines.end(), {"~just words", "~pem.public = # nothing", "~[pem]",
                               "~; pem.password = x", "~\xef\xbb\xbfpem.fips = yes"});
    const Lines channel = {"pem.private.channel.shop=k", "pem.public.channel.shop=c"};
    for (const Lines &sections : {Lines(), channel, base, filled})
        enumerate(lines, 2, sections, Repeats::wanted);
}

} // namespace
