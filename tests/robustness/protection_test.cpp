// protect, over all small files that can be made of a set of lines.
#include "support/keystore_file.h"
#include "support/protection_judge.h"

#include <array>
#include <functional>

namespace {

class Protection : public testing::Test {
protected:
    Protection() {
        sztUseLogErrorMessage = 0;
    }
    ~Protection() override {
        EXPECT_GT(refused, 500U);
        EXPECT_GT(changed, 500U);
        EXPECT_GT(kept, 5U);
        printf("%zu files refused, %zu changed, %zu kept\n", refused, changed, kept);
    }

    void check(const std::string &text) {
        ProtectionJudge::Outcome outcome{};
        ASSERT_EQ("", judge.judge(text, &outcome)) << "of\n" << text;
        if (outcome != ProtectionJudge::Outcome::refused) {
            ASSERT_EQ(std::string::npos, judge.after.find("Winter")) << judge.after;
        }
        ++(outcome == ProtectionJudge::Outcome::refused   ? refused
           : outcome == ProtectionJudge::Outcome::changed ? changed
                                                          : kept);
    }

    // All sequences of up to `most` different lines behind the base, with one of three line ends
    // each.
    void enumerate(const std::vector<std::string> &lines, size_t most, const std::string &base) {
        std::vector<std::string> chosen;
        size_t count = 0;
        const std::function<void(size_t)> extend = [&](size_t left) {
            static const std::array<const char *, 2> ENDS = {"\n", "\r\n"};
            std::string text = base;
            for (const std::string &line : chosen)
                text += line + ENDS[count % 2];
            if (++count % 3 == 0 && !chosen.empty())
                text.pop_back();
            check(text);
            for (size_t i = 0; left > 0 && i < lines.size() && !HasFatalFailure(); ++i) {
                chosen.push_back(lines[i]);
                extend(left - 1);
                chosen.pop_back();
            }
        };
        extend(most);
    }

    ProtectionJudge judge;
    size_t refused = 0;
    size_t changed = 0;
    size_t kept = 0;
    const std::string stored = protect("Winter-Harbour-42");
};

TEST_F(Protection, KeepsWhatReadersGetInAllSmallFiles) {
    const std::vector<std::string> lines = {
        "pem.password = Winter",
        "  pem.password=Winter Harbour # x",
        "pem.password = Winter#Harbour",
        "pem.password = " + stored,
        "pem.encrypted = YES",
        "pem.encrypted = no",
        "pem.encrypted = YES#",
        "pem.encrypted2 = YES",
        "pem.password.channel.shop=Winter",
        "pem.password.channel.shop = Winter",
        "pem.encrypted.channel.shop=Yes",
        "pem.encrypted.channel.shop = YES",
        "pem.password.channel.A = " + stored,
        "pem.encrypted.channel.A = YES",
        "pem.password.channel.encrypted = YES",
        "crl.encrypted = YES",
        "crl.ldap.pass = Winter",
        "# pem.password",
    };
    const std::string base = "pem.private = k\npem.public = c\npem.private.channel.shop=k\n"
                             "pem.public.channel.shop=c\npem.private.channel.A=k\n"
                             "pem.public.channel.A=c\ncrl.ldap.host = h\n";
    enumerate(lines, 3, base);
    enumerate(lines, 2, "");
    enumerate({lines[0], lines[3], lines[4], lines[8], lines[9], lines[10], lines[14]}, 4, base);
    enumerate({lines[0], lines[4], lines[14], "pem.password.channel.encrypted = " + stored}, 4,
              base + "pem.private.channel.encrypted = k\npem.public.channel.encrypted = c\n");
}

} // namespace
