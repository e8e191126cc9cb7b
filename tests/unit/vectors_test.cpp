// The frozen vectors of known_answers.txt, through the product; known_answers_test tries them
// through a program that shares no code with it.
#include "support/cipher_session.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <sstream>
#include <unistd.h>

namespace {

std::string bytesOf(const std::string &hexadecimal) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hexadecimal.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hexadecimal.substr(i, 2), nullptr, 16));
    return bytes;
}

std::string textOf(const std::string &written) {
    std::string text;
    for (size_t i = 0; i < written.size() && written != "-"; ++i) {
        if (written[i] == '%') {
            text += bytesOf(written.substr(i + 1, 2));
            i += 2;
        } else if (written[i] == '*') {
            size_t digits;
            text.append(std::stoul(written.substr(i + 1), &digits) - 1, text.back());
            i += digits;
        } else {
            text += written[i];
        }
    }
    return text;
}

using Fields = std::array<std::string, 4>;

std::vector<Fields> vectorsOf(const std::string &kind) {
    std::ifstream file(std::string(getenv("VEK_SOURCE")) + "/tests/data/known_answers.txt");
    std::vector<Fields> vectors;
    for (std::string line, word; std::getline(file, line);) {
        std::istringstream words(line);
        Fields fields;
        if (words >> word && word == kind) {
            EXPECT_TRUE(words >> fields[0] >> fields[1]) << line;
            words >> fields[2] >> fields[3];
            vectors.push_back(fields);
        }
    }
    return vectors;
}

// Reads a key file through a pipe, as a shell hands over the output of a command.
uint32_t readKey(const std::string &content, std::string *key) {
    int ends[2];
    EXPECT_EQ(0, pipe(ends));
    EXPECT_EQ(static_cast<ssize_t>(content.size()), write(ends[1], content.data(), content.size()));
    (void)close(ends[1]);
    uint8_t *buffer;
    int32_t length;
    const std::string path = "/dev/fd/" + std::to_string(ends[0]);
    const uint32_t reason = svcPBEReadInitialKeyFile(path.c_str(), &buffer, &length);
    (void)close(ends[0]);
    key->assign(reinterpret_cast<char *>(buffer), static_cast<size_t>(length));
    (void)svcPBEFreeBuf(buffer, length);
    return reason;
}

// The session of an answer, opened for the other algorithm than that of its value.
std::unique_ptr<CipherSession> sessionOf(const Fields &answer) {
    std::string key = builtIn(vek::buildDefaultKey);
    if (answer[1] != "default") {
        EXPECT_EQ(0U, readKey(bytesOf(answer[1]), &key));
    }
    auto session =
        std::make_unique<CipherSession>('3' - answer[3][5], key, builtIn(vek::buildFixedSalt));
    EXPECT_EQ(0U, session->open());
    return session;
}

TEST(Answers, ComeOutAndNoTextWithAnotherCharacterDoes) {
    const std::vector<Fields> answers = vectorsOf("answer");
    EXPECT_EQ(14U, answers.size());
    for (const Fields &answer : answers) {
        SCOPED_TRACE(answer[0]);
        const std::string &stored = answer[3];
        const auto session = sessionOf(answer);
        EXPECT_EQ(bytesOf(answer[2]), session->restore(stored));
        EXPECT_EQ(static_cast<uint32_t>(stored[5] - '0'), session->algorithm);
        for (size_t i = 0; i < stored.size(); ++i) {
            std::string changed = stored;
            changed[i] = changed[i] == 'A' ? 'B' : 'A';
            EXPECT_EQ("", session->restore(changed)) << changed;
        }
    }
}

TEST(Fingerprints, AreThoseOfTheInitialKeyWhateverTheAlgorithm) {
    std::map<std::string, Fields> answers;
    for (const Fields &answer : vectorsOf("answer"))
        answers[answer[0]] = answer;
    const std::vector<Fields> fingerprints = vectorsOf("fingerprint");
    EXPECT_EQ(answers.size(), fingerprints.size());
    for (const Fields &fingerprint : fingerprints) {
        const auto session = sessionOf(answers.at(fingerprint[0]));
        char text[SVC_PBE_FINGERPRINT_LENGTH + 1];
        EXPECT_EQ(0U, svcPBEFingerprint(&session->record, text));
        EXPECT_EQ(fingerprint[1], text) << fingerprint[0];
    }
}

TEST(Refusals, AreRefusedForTheirOneFault) {
    std::map<std::string, std::unique_ptr<CipherSession>> sessions;
    for (const Fields &answer : vectorsOf("answer"))
        if (answer[0].rfind("hexadecimal", 0) == 0 || answer[0].rfind("raw", 0) == 0)
            sessions[answer[0]] = sessionOf(answer);
    const std::vector<Fields> refusals = vectorsOf("refusal");
    EXPECT_EQ(129U, refusals.size());
    for (const auto &[name, answer, verdict, text] : refusals) {
        SCOPED_TRACE(name);
        CipherSession &session = *sessions.at(answer);
        EXPECT_EQ("", session.restore(textOf(text)));
        EXPECT_EQ(verdict == "forged" ? SVC_PBE_AUTHENTICATION_FAILED + 0U
                                      : SVC_PBE_MALFORMED_TEXT + 0U,
                  session.reason);
    }
}

TEST(KeyFiles, AreAKeyOrAPassphraseOrRefused) {
    const std::vector<Fields> keyFiles = vectorsOf("keyfile");
    EXPECT_EQ(77U, keyFiles.size());
    for (const auto &[name, written, kind, expected] : keyFiles) {
        SCOPED_TRACE(name);
        const std::string content = textOf(written);
        std::string key;
        const uint32_t reason = readKey(content, &key);
        if (kind == "refused") {
            EXPECT_EQ(SVC_PBE_KEY_FILE_BAD_LENGTH + 0U, reason);
            EXPECT_EQ("", key);
            continue;
        }
        EXPECT_EQ(0U, reason);
        if (kind == "key") {
            EXPECT_EQ(bytesOf(expected), key);
            continue;
        }
        std::string passphrase = content.substr(0, std::stoul(expected));
        passphrase.resize(std::max<size_t>(passphrase.size(), SVC_PBE_PASSPHRASE_PADDING), '\0');
        EXPECT_EQ(passphrase, key);
    }
}

} // namespace
