// The line transformation of runvekcred: text in, text out. In the expected text "@" stands for an
// encrypted value, which must restore to `clear`.
#include "runvekcred.h"
#include "sztoumaa.h"

#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <regex>
#include <string>
#include <vector>

namespace {

const std::string LONG_KEY = "pem.password" + std::string(1012, 'k');    // 1,024 characters
const std::string FITTING_KEY = "pem.password" + std::string(1011, 'k'); // 1,023 characters
const std::string ENCRYPTED = "<VEK>2!a!b!c";

struct Case {
    std::string in;
    std::string out;
    std::vector<std::string> clear;
    const char *shows;
};

const Case CASES[] = {
    {"pem.password = secret\n",
     "pem.encrypted = YES\npem.password = @\n",
     {"secret"},
     "the main job"},
    {"  pem.password=secret # note\n",
     "pem.encrypted = YES\npem.password = @\n",
     {"secret"},
     "indentation and comment go"},
    {"pem.password = secret words\n",
     "pem.encrypted = YES\npem.password = @\n",
     {"secret"},
     "a credential is cut at its first blank"},
    {"pem.password = se#cret\n",
     "pem.encrypted = YES\npem.password = @\n",
     {"se#cret"},
     "# is part of a credential for the writer"},
    {"pkcs11.token_pin=1234\r\n",
     "pkcs11.encrypted = YES\npkcs11.token_pin = @\n",
     {"1234"},
     "CRLF"},
    {"crl.ldap.pass\t=\t=x=",
     "crl.encrypted = YES\ncrl.ldap.pass = @\n",
     {"=x="},
     "no last newline; later = belong to the value"},
    {"pem.password some = secret\n",
     "pem.encrypted = YES\npem.password = @\n",
     {"secret"},
     "words between key and = are dropped"},
    {"pem.password.channel = x\n",
     "pem.password.channel.encrypted = YES\npem.password.channel = @\n",
     {"x"},
     "the channel password has a marker of its own"},
    {"pem.password.channel.A = x\n",
     "pem.password.channel.encrypted = YES\npem.password.channel.A = @\n",
     {"x"},
     "for every channel"},
    {"pem.password2 = x\n",
     "pem.encrypted = YES\npem.password2 = @\n",
     {"x"},
     "keys match as prefixes"},
    {"pem.encrypted = NO\npem.password = x\n",
     "pem.encrypted = YES\npem.password = @\n",
     {"x"},
     "a marker that does not say YES is dropped"},
    {"pem.encrypted = YESS\n", "", {}, "also without a credential, and for a longer word"},
    {"pem.encrypted = yes\npem.password = x\n",
     "pem.encrypted = yes\npem.password = x\n",
     {},
     "a YES marker keeps a clear credential as it stands"},
    {"pem.encrypted = yes\ncrl.ldap.pass = x\n",
     "pem.encrypted = yes\ncrl.encrypted = YES\ncrl.ldap.pass = @\n",
     {"x"},
     "a marker speaks for its own section"},
    {"pem.password = x\npem.encrypted = YES\n",
     "pem.encrypted = YES\npem.password = @\npem.encrypted = YES\n",
     {"x"},
     "a marker behind the credential is copied too"},
    {"pem.encrypted = NO\npem.encrypted = YES\npem.password = x\n",
     "pem.encrypted = YES\npem.password = x\n",
     {},
     "the last marker before the credential decides"},
    {"pem.password.channel.encrypted = YES\n",
     "pem.password.channel.encrypted = YES\npem.password.channel.encrypted = @\n",
     {"YES"},
     "the channel marker is itself taken for a credential on a second run"},
    {"pem.encrypted = YES\npem.password.channel.encrypted = YES\n",
     "pem.encrypted = YES\npem.password.channel.encrypted = YES\n",
     {},
     "unless a YES marker came first"},
    {"pem.password = " + ENCRYPTED + "\n",
     "pem.password = " + ENCRYPTED + "\n",
     {},
     "an encrypted value is copied"},
    {"pem.password = <VEK>2!a!b\n",
     "pem.encrypted = YES\npem.password = @\n",
     {"<VEK>2!a!b"},
     "two ! are not an encrypted value"},
    {"pem.password = <vek>2!a!b!c\n",
     "pem.encrypted = YES\npem.password = @\n",
     {"<vek>2!a!b!c"},
     "the prefix is case-sensitive"},
    {"PEM.password = x\n#pem.password = x\n",
     "PEM.password = x\n#pem.password = x\n",
     {},
     "other case and comments are copied"},
    {"pem.password\n pem.password = \npem.password =\t\r\n",
     "pem.password\n pem.password = \npem.password =\t\r\n",
     {},
     "no = or no value: copied"},
    {"\n \t\nx = y  \nlast", "\n \t\nx = y  \nlast\n", {}, "the last line gets its newline"},
    {LONG_KEY + " = x\n",
     LONG_KEY + " = x\n",
     {},
     "a key that does not fit leaves the line unchanged"},
    {FITTING_KEY + " = x\n",
     "pem.encrypted = YES\n" + FITTING_KEY + " = @\n",
     {"x"},
     "one that fits"},
};

class Lines : public ::testing::TestWithParam<int32_t> {
protected:
    void SetUp() override {
        for (CredentialKeyEntry &row : credentialKeyTable)
            row.markerState = -1;
        sztouBuildDefaultKey(key);
        sztouBuildFixedSalt(salt);
        session.algorithm = GetParam();
        session.label = SZTOU_PBE_LABEL;
        session.key = key;
        session.keyLength = sizeof key;
        session.salt = salt;
        session.saltLength = sizeof salt;
        ASSERT_EQ(0U, svcPBEInit(svcIC_MINI_SUBPOOL.handle, svcIC_MINI_SUBPOOL.word, &session));
    }

    void TearDown() override {
        (void)svcPBETerm(&session, SVC_PBE_TERM_CLOSE);
    }

    // Rewrites a text in blocks, as the command does, or one line after another.
    std::string transform(const std::string &in, int32_t *result, bool inBlocks = true) {
        char *out = nullptr;
        size_t length = 0;
        FILE *const input = fmemopen(const_cast<char *>(in.data()), in.size(), "r");
        FILE *const output = open_memstream(&out, &length);
        char line[LINE_CAPACITY];
        while (!inBlocks && fgets(line, sizeof line, input) != nullptr)
            *result = processConfigLine(line, output, &session);
        if (inBlocks)
            *result = rewriteLines(input, output, &session);
        (void)fclose(input);
        (void)fclose(output);
        const std::string text(out, length);
        free(out);
        return text;
    }

    // Replaces every encrypted value that restores by "@", and collects the clear texts.
    std::string reveal(const std::string &text, std::vector<std::string> *clear) {
        static const std::regex pattern("<VEK>[12]![^! ]+![^! ]+![^! \n]+");
        std::string revealed;
        auto at = text.cbegin();
        for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end;
             ++match) {
            const std::string stored = match->str();
            char *plain = nullptr;
            int32_t length = 0;
            const uint32_t result =
                svcPBERestore(&session, stored.data(), static_cast<int32_t>(stored.size()), nullptr,
                              &plain, &length);
            revealed.append(at, (*match)[0].first);
            revealed.append(result == 0 ? "@" : stored);
            if (result == 0)
                clear->emplace_back(plain, static_cast<size_t>(length));
            (void)svcPBEFreeBuf(plain, length);
            at = (*match)[0].second;
        }
        return revealed.append(at, text.cend());
    }

    SvcPBESession session = {};
    uint8_t key[SVC_PBE_KEY_LENGTH] = {};
    uint8_t salt[SVC_PBE_SALT_LENGTH] = {};
};

TEST_P(Lines, FollowTheTable) {
    for (const Case &row : CASES) {
        SCOPED_TRACE(row.shows);
        for (CredentialKeyEntry &entry : credentialKeyTable)
            entry.markerState = -1;
        int32_t result = -1;
        std::vector<std::string> clear;
        EXPECT_EQ(row.out, reveal(transform(row.in, &result), &clear));
        EXPECT_EQ(row.clear, clear);
        EXPECT_EQ(0, result);
    }
}

TEST_P(Lines, KeepEncryptedValuesOnASecondRun) {
    int32_t result = -1;
    const std::string once =
        transform("pem.password = x\npkcs11.token_pin = y\ncrl.ldap.pass = z\n", &result);
    EXPECT_EQ(once, transform(once, &result));
}

TEST_P(Lines, ReportAndCopyWhatCannotBeEncrypted) {
    for (const size_t length : {size_t{800}, size_t{1023}, size_t{1024}, size_t{8100}}) {
        const std::string line = "pem.password = " + std::string(length, 'v') + "\n";
        int32_t result = 0;
        testing::internal::CaptureStderr();
        EXPECT_EQ(line, transform(line, &result)) << length;
        EXPECT_EQ(SVC_PBE_CLEAR_TEXT_LENGTH, static_cast<uint32_t>(result)) << length;
        EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find("ZTM6337E "))
            << length;
    }
}

TEST_P(Lines, AreCutAtTheBufferAndAtNul) {
    for (const size_t length :
         {size_t{8190}, size_t{8191}, size_t{8192}, size_t{8193}, size_t{20000}}) {
        const std::string in(length, 'a');
        std::string out;
        for (size_t at = 0; at < length; at += 8191)
            out += in.substr(at, 8191) + "\n";
        int32_t result = -1;
        EXPECT_EQ(out, transform(in, &result)) << length;
        EXPECT_EQ(length % 8191 == 0 ? out + "\n" : out, transform(in + "\n", &result)) << length;
    }
    int32_t result = -1;
    EXPECT_EQ("x\ny\n", transform(std::string("x\0lost\ny\n", 9), &result));
}

TEST_P(Lines, ComeOutOfBlocksAsOneByOne) {
    const std::string ends[] = {"\n", "\n\n", "", " \npem.encrypted = no\n",
                                std::string("\0z\n", 3)};
    std::minstd_rand random(1);
    for (int round = 0; round < 100; ++round) {
        std::string in;
        for (int line = 0; line < 40; ++line)
            in += std::string(random() % (random() % 8 == 0 ? 70000 : 3000), 'x') +
                  ends[random() % std::size(ends)];
        int32_t result = -1;
        EXPECT_TRUE(transform(in, &result, false) == transform(in, &result)) << round;
    }
}

INSTANTIATE_TEST_SUITE_P(BothAlgorithms, Lines, ::testing::Values(1, 2));

} // namespace
