// protect, over all small files that can be made of a set of lines. The readers of the library are
// the judges: whatever they handed out before, they hand out afterwards, and after a run of
// runvekcred behind it; nothing is left in clear, and check finds no error in what protect has to
// do with. Or the file is refused with a reason.
#include "runvekcred/copy_lines.h"
#include "runvekcred/credential_line.h"
#include "support/keystore_file.h"
#include "vekctl/known_keys.h"
#include "vekctl/protect.h"
#include "vekctl/verdict.h"

#include <array>
#include <cstring>
#include <functional>
#include <map>
#include <sys/mman.h>

namespace {

using namespace vekctl;

using Passwords = std::map<std::string, std::string>; // of the readers that succeed

template <size_t size> std::string textIn(const char (&field)[size]) {
    return {field, strnlen(field, size)};
}

Passwords askReaders(const char *path) {
    Passwords passwords;
    SztouPemConfig pem = {};
    if (sztouGetPemConfig(&pem, path, nullptr) == SZTU_OK)
        passwords["pem"] = textIn(pem.password);
    for (const char *const channel : {"shop", "A", "encrypted"}) {
        SztouPemConfig config = {};
        if (sztouGetMCAPemConfig(&config, channel, path, nullptr) == SZTU_OK)
            passwords[channel] = textIn(config.password);
    }
    SztouCrlConfig crl = {};
    if (sztouGetCrlConfig(&crl, path, nullptr, /* fips= */ 0) == SZTU_OK)
        passwords["crl"] = textIn(crl.ldapServers[0].pass);
    return passwords;
}

class Protection : public testing::Test {
protected:
    Protection() : descriptor(memfd_create("keystore", MFD_CLOEXEC)) {
        sztUseLogErrorMessage = 0;
        path = "/proc/self/fd/" + std::to_string(descriptor);
    }
    ~Protection() override {
        close(descriptor);
        EXPECT_GT(refused, 500U);
        EXPECT_GT(changed, 500U);
        EXPECT_GT(kept, 5U);
        printf("%zu files refused, %zu changed, %zu kept\n", refused, changed, kept);
    }

    Passwords passwordsIn(std::string_view text) const {
        EXPECT_EQ(0, ftruncate(descriptor, 0));
        EXPECT_EQ(static_cast<ssize_t>(text.size()),
                  pwrite(descriptor, text.data(), text.size(), 0));
        return askReaders(path.c_str());
    }

    // The text behind a run of runvekcred with the same key.
    std::string rewritten(std::string text) {
        runvekcred::forgetMarkers();
        FILE *const input = fmemopen(text.data(), text.size(), "r");
        char *result = nullptr;
        size_t length = 0;
        FILE *const output = open_memstream(&result, &length);
        int readError = 0;
        EXPECT_EQ(0,
                  runvekcred::rewriteLines(input, output, session.record(), nullptr, &readError));
        (void)fclose(input);
        (void)fclose(output);
        std::string after(result, length);
        free(result);
        return after;
    }

    // False: refused, with a reason.
    static bool protect(const std::string &text, CipherSession &key, std::string *after) {
        FileText content;
        content.take(Secret(text));
        CredentialLines lines;
        if (!lines.take(std::move(content))) {
            EXPECT_FALSE(lines.problem().text.empty());
            return false;
        }
        ChangePlan plan(lines, key);
        if (!planProtection(lines, &plan, &key)) {
            EXPECT_FALSE(plan.problem().text.empty());
            EXPECT_NE(0U, plan.problem().line);
            return false;
        }
        const Secret result = plan.text();
        after->assign(result.view());
        if (plan.prove(result))
            return true;
        EXPECT_NE(std::string::npos, plan.problem().text.find("nothing but markers")) << text;
        return false;
    }

    // All errors but what the readers say of other keys, and of those that are missing.
    std::string errorsIn(const std::string &text) {
        FileText content;
        content.take(Secret(text));
        std::string errors;
        for (const Finding &finding : judge(content, keys, {}).findings)
            if (finding.level == Level::error &&
                (finding.code != Code::reader ||
                 (finding.line != 0 && findKey(finding.key).credential != nullptr)))
                errors += std::string(kindOf(finding.code).name) + " " + finding.key + "\n";
        return errors;
    }

    void check(const std::string &text) {
        std::string after;
        if (!protect(text, session, &after)) {
            ++refused;
            return;
        }
        ++(after == text ? kept : changed);
        const Passwords before = passwordsIn(text);
        const Passwords now = passwordsIn(after);
        // Handed out as it is stored: nobody can want that.
        for (const auto &[reader, password] : before) {
            const bool isSame = now.contains(reader) && now.at(reader) == password;
            ASSERT_TRUE(isSame || password.starts_with("<VEK>")) << reader << " in\n"
                                                                 << text << "after\n"
                                                                 << after;
        }
        for (const auto &[reader, password] : now)
            ASSERT_FALSE(password.starts_with("<VEK>")) << reader << " in\n"
                                                        << text << "after\n"
                                                        << after;
        ASSERT_EQ(std::string::npos, after.find("Winter")) << after;
        ASSERT_EQ("", errorsIn(after)) << text << "after\n" << after;
        const std::string behind = rewritten(after);
        ASSERT_EQ(now, passwordsIn(behind)) << after << "became\n" << behind;
        std::string again;
        ASSERT_TRUE(protect(after, session, &again)) << after;
        ASSERT_EQ(after, again);
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

    int descriptor;
    std::string path;
    size_t refused = 0;
    size_t changed = 0;
    size_t kept = 0;
    CipherSession session{KeySource{}, /* fips= */ false};
    KeyRing keys{/* withFips= */ false};
    const std::string stored = ::protect("Winter-Harbour-42");
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
