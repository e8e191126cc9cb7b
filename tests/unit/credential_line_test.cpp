// The line transformation of runvekcred: text in, text out. In the expected text "@" stands for the
// encrypted form of what follows it.
#include "fuzz_support.h"
#include "runvekcred/copy_lines.h"
#include "runvekcred/credential_line.h"

#include <gtest/gtest.h>
#include <random>
#include <regex>

namespace {

using namespace runvekcred;

#define PEM_YES "pem.encrypted = YES\n"
#define CHANNEL_YES "pem.password.channel.encrypted = YES\n"

const std::string LONG_KEY = "pem.password" + std::string(1012, 'k');    // 1,024 characters
const std::string FITTING_KEY = "pem.password" + std::string(1011, 'k'); // 1,023 characters

const struct {
    std::string in;
    std::string out; // empty: the same
    const char *shows;
} CASES[] = {
    {"pem.password = secret\n", PEM_YES "pem.password = @secret\n", "the main job"},
    {"  pem.password=secret # note\n", PEM_YES "pem.password = @secret\n",
     "indentation and comment go"},
    {"pem.password = secret words\n", PEM_YES "pem.password = @secret\n", "cut at its first blank"},
    {"pem.password = se#cret\n", PEM_YES "pem.password = @se#cret\n", "# is part of a credential"},
    {"pkcs11.token_pin=1234\r\n", "pkcs11.encrypted = YES\npkcs11.token_pin = @1234\n", "CRLF"},
    {"crl.ldap.pass\t=\t=x=", "crl.encrypted = YES\ncrl.ldap.pass = @=x=\n",
     "no last newline; later = belong to the value"},
    {"pem.password some = x\n", PEM_YES "pem.password = @x\n", "words before = are dropped"},
    {"pem.password.channel = x\n", CHANNEL_YES "pem.password.channel = @x\n",
     "the channel password has a marker of its own"},
    {"pem.password.channel.A = x\n", CHANNEL_YES "pem.password.channel.A = @x\n", "every channel"},
    {"pem.password2 = x\n", PEM_YES "pem.password2 = @x\n", "keys match as prefixes"},
    {"pem.encrypted = NO\npem.password = x\n", PEM_YES "pem.password = @x\n",
     "a marker that does not say YES is dropped"},
    {"#\npem.encrypted = YESS\n", "#\n", "also without a credential, and for a longer word"},
    {"pem.encrypted = yes\npem.password = x\n", "", "a YES marker keeps a clear credential"},
    {"pem.encrypted = yes\ncrl.ldap.pass = x\n",
     "pem.encrypted = yes\ncrl.encrypted = YES\ncrl.ldap.pass = @x\n", "of its own section"},
    {"pem.password = x\n" PEM_YES, PEM_YES "pem.password = @x\n" PEM_YES,
     "a marker behind the credential is copied too"},
    {"pem.encrypted = NO\n" PEM_YES "pem.password = x\n", PEM_YES "pem.password = x\n",
     "the last marker before the credential decides"},
    {CHANNEL_YES, CHANNEL_YES "pem.password.channel.encrypted = @YES\n",
     "the channel marker is itself taken for a credential on a second run"},
    {PEM_YES CHANNEL_YES, "", "unless a YES marker came first"},
    {"pem.password = <VEK>2!a!b!c\n", "", "an encrypted value is copied"},
    {"pem.password = <VEK>2!a!b\n", PEM_YES "pem.password = @<VEK>2!a!b\n", "two ! are none"},
    {"pem.password = <vek>2!a!b!c\n", PEM_YES "pem.password = @<vek>2!a!b!c\n", "nor other case"},
    {"PEM.password = x\n#pem.password = x\n", "", "keys in other case and comments are copied"},
    {"pem.password\n pem.password = \npem.password =\t\r\n", "", "no = or no value: copied"},
    {"\n \t\nx = y  \nlast", "\n \t\nx = y  \nlast\n", "the last line gets its newline"},
    {LONG_KEY + " = x\n", "", "a key that does not fit leaves the line unchanged"},
    {FITTING_KEY + " = x\n", PEM_YES + FITTING_KEY + " = @x\n", "one that fits"},
    {std::string("x\0lost\ny\n", 9), "x\ny\n", "a NUL ends the text of its line"},
};

class Lines : public ::testing::TestWithParam<int32_t> {
protected:
    CipherSession &session = openSession(GetParam());
    int32_t result = -1;

    // Rewrites a text in blocks, as the command does, or one line after another.
    std::string transform(const std::string &in, bool inBlocks = true) {
        forgetMarkers();
        int readError = -1;
        char *out = nullptr;
        size_t length = 0;
        FILE *const input = fmemopen(const_cast<char *>(in.data()), in.size(), "r");
        FILE *const output = open_memstream(&out, &length);
        char line[LINE_CAPACITY];
        while (!inBlocks && fgets(line, sizeof line, input) != nullptr)
            result = processConfigLine(line, output, &session.record);
        if (inBlocks)
            result =
                rewriteLines(input, output, &session.record, /* signals= */ nullptr, &readError);
        (void)fclose(input);
        (void)fclose(output);
        const std::string text(out, length);
        free(out);
        return text;
    }

    std::string reveal(std::string text) {
        static const std::regex pattern("<VEK>[12]![^! ]+![^! ]+![^! \n]+");
        for (std::smatch match; std::regex_search(text, match, pattern);) {
            const std::string clear = session.restore(match.str());
            if (clear.empty())
                break;
            text = match.prefix().str() + "@" + clear + match.suffix().str();
        }
        return text;
    }
};

TEST_P(Lines, FollowTheTable) {
    for (const auto &row : CASES) {
        EXPECT_EQ(row.out.empty() ? row.in : row.out, reveal(transform(row.in))) << row.shows;
        EXPECT_EQ(0, result) << row.shows;
    }
}

TEST_P(Lines, AreCutAtTheBuffer) {
    for (const size_t length : {8190U, 8191U, 8192U, 8193U, 20000U}) {
        const std::string in(length, 'a');
        std::string out;
        for (size_t at = 0; at < length; at += 8191)
            out += in.substr(at, 8191) + "\n";
        EXPECT_EQ(out, transform(in)) << length;
        EXPECT_EQ(length % 8191 == 0 ? out + "\n" : out, transform(in + "\n")) << length;
    }
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
        EXPECT_TRUE(transform(in, false) == transform(in)) << round;
    }
}

INSTANTIATE_TEST_SUITE_P(BothAlgorithms, Lines, ::testing::Values(1, 2));

} // namespace
