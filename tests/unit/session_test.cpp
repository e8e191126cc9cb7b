// Sessions: what they accept and refuse besides the vectors, and what they leave behind.
#include "support/cipher_session.h"

#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using Session = CipherSession;

// Texts of other lengths go there and back in fuzz/value_fuzzer.cpp.
TEST(Save, WritesWhatRestoreTakesUpToTheLimit) {
    const std::pair<int, size_t> limits[] = {{SVC_PBE_ALGORITHM_CBC_HMAC, 703},
                                             {SVC_PBE_ALGORITHM_GCM, SVC_PBE_CLEAR_TEXT_LIMIT}};
    for (const auto &[algorithm, limit] : limits) {
        Session session(algorithm);
        ASSERT_EQ(0U, session.open());
        const std::string clear(limit, '#'), stored = session.save(clear);
        EXPECT_GE(SVC_PBE_STORED_LIMIT + 0U, stored.size());
        EXPECT_EQ(clear, session.restore(stored));
        EXPECT_NE(stored, session.save(clear));
        Session shortest(algorithm, "k");
        shortest.record.saltLength = 1;
        ASSERT_EQ(0U, shortest.open());
        for (const size_t length : {size_t{0}, limit + 1, size_t{100000}}) {
            (void)session.save(std::string(length, 'x'));
            EXPECT_EQ(SVC_PBE_CLEAR_TEXT_LENGTH + 0U, session.reason);
        }
    }
    Session full(SVC_PBE_ALGORITHM_GCM); // a label with which the longest text has the last length
    full.record.label = "<LABELS>";
    ASSERT_EQ(0U, full.open());
    const std::string clear(SVC_PBE_CLEAR_TEXT_LIMIT, '#'), stored = full.save(clear);
    EXPECT_EQ(SVC_PBE_STORED_LIMIT + 0U, stored.size());
    EXPECT_EQ(clear, full.restore(stored));
}

// The texts that are refused are in vectors_test.cpp.
TEST(Restore, LeavesTheErrorQueueAloneWhenItRefuses) {
    const std::string tag = "!AAAAAAAAAAAAAAAAAAAAAA==", longTag = '!' + std::string(43, 'A') + "=";
    Session session(SVC_PBE_ALGORITHM_GCM);
    ASSERT_EQ(0U, session.open());
    ERR_raise(ERR_LIB_USER, 1);
    for (const std::string &text :
         {"<VEK>2!AAAAAAAAAAAAAAAA!AA==" + tag, "<VEK>1" + tag + tag + longTag}) {
        (void)session.restore(text);
        EXPECT_EQ(SVC_PBE_AUTHENTICATION_FAILED + 0U, session.reason) << text;
    }
    EXPECT_EQ(1, ERR_GET_REASON(ERR_get_error())); // the caller's own entry
    EXPECT_EQ(0U, ERR_get_error());
}

TEST(Session, RefusesAnUnusableRecord) {
    const std::string longLabel(64, 'l');
    std::vector<std::function<void(SvcPBESession *)>> spoilers = {
        [](SvcPBESession *record) { record->algorithm = 0; },
        [](SvcPBESession *record) { record->algorithm = 3; },
        [](SvcPBESession *record) { record->key = nullptr; },
        [](SvcPBESession *record) { record->keyLength = 0; },
        [](SvcPBESession *record) { record->salt = nullptr; },
        [](SvcPBESession *record) { record->saltLength = 0; },
        [](SvcPBESession *record) { record->serviceState = record; },
        [](SvcPBESession *record) { record->serviceWord = 1; }};
    for (const char *const label :
         {static_cast<const char *>(nullptr), "", "a!b", "a b", "a#b", "a\x7F", longLabel.c_str()})
        spoilers.push_back([label](SvcPBESession *record) { record->label = label; });
    for (const auto &spoil : spoilers) {
        Session session(SVC_PBE_ALGORITHM_GCM);
        spoil(&session.record);
        EXPECT_EQ(session.record.algorithm == SVC_PBE_ALGORITHM_GCM
                      ? SVC_PBE_BAD_ARGUMENTS + 0U
                      : SVC_PBE_UNSUPPORTED_ALGORITHM + 0U,
                  session.open());
        EXPECT_EQ("", session.save("x"));
    }
}

TEST(Session, RefusesMissingArguments) {
    Session session(SVC_PBE_ALGORITHM_GCM);
    ASSERT_EQ(0U, session.open());
    SvcPBESession *const open = &session.record;
    const char *const text = "x";
    char *out, fingerprint[SVC_PBE_FINGERPRINT_LENGTH + 1];
    uint8_t *key;
    int32_t length;
    const uint32_t reasons[] = {svcPBEInit(0, 0, nullptr),
                                svcPBETerm(nullptr, SVC_PBE_TERM_CLOSE),
                                svcPBESave(nullptr, text, 1, &out, &length),
                                svcPBESave(open, nullptr, 1, &out, &length),
                                svcPBESave(open, text, -1, &out, &length),
                                svcPBESave(open, text, 1, nullptr, &length),
                                svcPBESave(open, text, 1, &out, nullptr),
                                svcPBERestore(nullptr, text, 1, nullptr, &out, &length),
                                svcPBERestore(open, nullptr, 1, nullptr, &out, &length),
                                svcPBERestore(open, text, -1, nullptr, &out, &length),
                                svcPBERestore(open, text, 1, nullptr, nullptr, &length),
                                svcPBERestore(open, text, 1, nullptr, &out, nullptr),
                                svcPBEFingerprint(nullptr, fingerprint),
                                svcPBEFingerprint(open, nullptr),
                                svcPBEReadInitialKeyFile(nullptr, &key, &length),
                                svcPBEReadInitialKeyFile("/", nullptr, &length),
                                svcPBEReadInitialKeyFile("/", &key, nullptr)};
    for (const uint32_t reason : reasons)
        EXPECT_EQ(SVC_PBE_BAD_ARGUMENTS + 0U, reason) << &reason - reasons;
    session.record.key = nullptr; // needed until the first value
    (void)session.save("x");
    EXPECT_EQ(SVC_PBE_BAD_ARGUMENTS + 0U, session.reason);
    session.record.saltLength = 0;
    EXPECT_EQ(0U, svcPBETerm(open, SVC_PBE_TERM_WIPE));
    EXPECT_EQ(nullptr, svcPBEReasonText(0x12345678));
}

TEST(Session, IsOpenedOnceAndWipesWhatItIsToldTo) {
    Session session(SVC_PBE_ALGORITHM_GCM);
    ASSERT_EQ(0U, session.open());
    EXPECT_EQ(SVC_PBE_BAD_ARGUMENTS + 0U, session.open());
    const std::string stored = session.save("x");
    EXPECT_EQ(0U, svcPBETerm(&session.record, SVC_PBE_TERM_CLOSE));
    EXPECT_EQ("", session.restore(stored));
    ASSERT_EQ(0U, session.open());
    EXPECT_EQ("x", session.restore(stored)); // key and salt were left alone
    EXPECT_EQ(0U, svcPBETerm(&session.record, SVC_PBE_TERM_WIPE));
    EXPECT_EQ(std::string(SVC_PBE_KEY_LENGTH, '\0'), session.key);
    EXPECT_EQ(std::string(SVC_PBE_SALT_LENGTH, '\0'), session.salt);
}

// The child is made past the C library, which then tells nobody.
TEST(Session, SharesNoNonceWithAChildProcess) {
    constexpr size_t LENGTH = 23; // label, digit, "!", nonce
    for (const int algorithm : {SVC_PBE_ALGORITHM_CBC_HMAC, SVC_PBE_ALGORITHM_GCM}) {
        Session session(algorithm);
        ASSERT_EQ(0U, session.open());
        (void)session.save("before the child");
        int ends[2];
        ASSERT_EQ(0, pipe(ends));
        const auto child = static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0));
        ASSERT_GE(child, 0);
        const std::string nonce = session.save("x").substr(0, LENGTH);
        if (child == 0)
            _exit(write(ends[1], nonce.data(), LENGTH) == LENGTH ? 0 : 1);
        char childNonce[LENGTH] = {};
        EXPECT_EQ(static_cast<ssize_t>(LENGTH), read(ends[0], childNonce, LENGTH));
        EXPECT_NE(nonce, std::string(childNonce, LENGTH));
        EXPECT_EQ(child, waitpid(child, nullptr, 0));
    }
}

// With a provider the mode is tried in fips_test.sh.
TEST(Session, HasFipsModeOrLeavesTheErrorQueueEmpty) {
    for (const std::string passphrase : {"13 characters", "14 characters."}) {
        Session session(SVC_PBE_ALGORITHM_GCM, passphrase);
        session.record.fips = 1;
        (void)session.open();
        EXPECT_EQ(0U, ERR_peek_error());
        EXPECT_TRUE(session.reason == SVC_PBE_FIPS_NOT_AVAILABLE || passphrase.size() == 14);
    }
    // The provider stretches no passphrase with so short a salt.
    Session salted(SVC_PBE_ALGORITHM_GCM, "14 characters.", "8 bytes.");
    salted.record.fips = 1;
    if (salted.open() == SVC_PBE_OK) {
        (void)salted.save("value");
        EXPECT_EQ(SVC_PBE_CRYPTO_FAILED + 0U, salted.reason);
    }
}

} // namespace
