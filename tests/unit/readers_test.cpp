// The section readers. Each is described once, as the table of its keys; the same situations are
// then walked through for every key of every reader. A record is filled with 0xFF before each call,
// so that the bytes a reader must not touch are seen.
#include "shared.h"
#include "support/keystore_file.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

namespace {

// 20 characters of a channel name count.
#define CHANNEL "CHANNEL.OF.TWENTY.XY"
constexpr char CHANNEL_NAME[] = CHANNEL ".AND.MORE";
constexpr size_t ALL = SIZE_MAX;
constexpr size_t NONE = SIZE_MAX;

enum class Kind {
    text,
    number,
    logical,
    word,
    zeroed,             // no key: the reader clears the field
    zeroedWithPrevious, // no key: cleared when the key before it is present
};

struct Key {
    Kind kind;
    const char *name;
    size_t offset;
    size_t size;
    uint32_t absentResult = 0; // 0: the key is optional
    bool named = false;        // a failure names the key in the error key
    const char *value = nullptr;
    int32_t stored = 0;
    int32_t no = 0;
    int32_t absent = 0;
    int32_t failed = 0;
};

Key text(const char *name, size_t offset, size_t size, uint32_t absentResult, bool named = true) {
    return {Kind::text, name, offset, size, absentResult, named, name};
}

Key optionalText(const char *name, size_t offset, size_t size) {
    return text(name, offset, size, 0, false);
}

Key number(const char *name, size_t offset, size_t size, const char *value) {
    return {Kind::number, name, offset, size, 0, false, value, atoi(value), 0, -1};
}

Key logical(const char *name, size_t offset, size_t size, int32_t yes, int32_t no, int32_t absent,
            int32_t failed) {
    return {Kind::logical, name, offset, size, 0, true, "Yes", yes, no, absent, failed};
}

Key word(const char *name, size_t offset, size_t size, const char *value, int32_t stored) {
    return {Kind::word, name, offset, size, 0, false, value, stored};
}

struct Reader {
    const char *name;
    const char *section;
    uint32_t (*call)(void *record, const char *path, char *errorKey);
    size_t recordSize;
    size_t errorKeySize; // what the header asks for
    bool quiet;          // shows no message for a missing file or key
    std::vector<Key> keys;
    const char *secret = nullptr;        // the key that may be encrypted
    const char *secretFailure = nullptr; // error key when it cannot be decrypted
};

template <typename Record, auto reader>
uint32_t general(void *record, const char *path, char *errorKey) {
    return reader(static_cast<Record *>(record), path, errorKey);
}

template <typename Record, auto reader>
uint32_t channel(void *record, const char *path, char *errorKey) {
    return reader(static_cast<Record *>(record), CHANNEL_NAME, path, errorKey);
}

uint32_t crlWithoutFips(SztouCrlConfig *config, const char *path, char *errorKey) {
    return sztouGetCrlConfig(config, path, errorKey, /* fips= */ 0);
}

#define FIELD(record, field) offsetof(record, field), sizeof(record::field)
#define SERVER(field)                                                                              \
    offsetof(SztouCrlConfig, ldapServers) + offsetof(SztouLdapServer, field),                      \
        sizeof(SztouLdapServer::field)

const std::vector<Key> KEY_STORE_KEYS = {
    text("keystore", FIELD(SztouKsConfig, keystore), 15),
    text("certificate", FIELD(SztouKsConfig, certificate), 15),
    logical("fips", FIELD(SztouKsConfig, fips), 1, 0, 0, 0),
};

const std::vector<Key> CHANNEL_KEY_STORE_KEYS = {
    text("keystore", FIELD(SztouKsConfig, keystore), 1),
    text("certificate.channel." CHANNEL, FIELD(SztouKsConfig, certificate), 1),
    logical("fips", FIELD(SztouKsConfig, fips), 1, 0, 0, 0),
    logical("forceFipsOff", FIELD(SztouKsConfig, forceFipsOff), 1, 0, 0, 0),
};

const std::vector<Key> OCSP_KEYS = {
    logical("enable", FIELD(SztouOcspConfig, enable), 2, 1, 0, 0),
    optionalText("url", FIELD(SztouOcspConfig, url)),
    optionalText("http.proxy.host", FIELD(SztouOcspConfig, httpProxyHost)),
    number("http.proxy.port", FIELD(SztouOcspConfig, httpProxyPort), "3128"),
    word("unknown", FIELD(SztouOcspConfig, unknown), "Warn", 3),
    logical("nonce.generation", FIELD(SztouOcspConfig, nonceGeneration), 1, 0, -1, -1),
    logical("nonce.check", FIELD(SztouOcspConfig, nonceCheck), 1, 0, -1, -1),
    number("nonce.size", FIELD(SztouOcspConfig, nonceSize), "16"),
    logical("http.get", FIELD(SztouOcspConfig, httpGet), 1, 0, -1, -1),
    number("max_response_size", FIELD(SztouOcspConfig, maxResponseSize), "20480"),
    number("cache_size", FIELD(SztouOcspConfig, cacheSize), "256"),
    number("timeout", FIELD(SztouOcspConfig, timeout), "30"),
    number("signature", FIELD(SztouOcspConfig, signature), "2"),
    logical("log", FIELD(SztouOcspConfig, log), 1, 0, 0, 0),
};

const std::vector<Key> PEM_KEYS = {
    word("encrypted", FIELD(SztouPemConfig, encrypted), "no", 0),
    text("private", FIELD(SztouPemConfig, privateKey), 15),
    text("public", FIELD(SztouPemConfig, publicKey), 15),
    logical("fips", FIELD(SztouPemConfig, fips), 1, 0, 0, 0),
    text("password", FIELD(SztouPemConfig, password), 15),
    logical("checkpurpose", FIELD(SztouPemConfig, checkpurpose), 2, 1, 1, 0),
};

const std::vector<Key> CHANNEL_PEM_KEYS = {
    word("encrypted.channel." CHANNEL, FIELD(SztouPemConfig, encrypted), "no", 0),
    text("private.channel." CHANNEL, FIELD(SztouPemConfig, privateKey), 1),
    text("public.channel." CHANNEL, FIELD(SztouPemConfig, publicKey), 1),
    logical("fips", FIELD(SztouPemConfig, fips), 1, 0, 0, 0),
    logical("forceFipsOff", FIELD(SztouPemConfig, forceFipsOff), 1, 0, 0, 0),
    text("password.channel." CHANNEL, FIELD(SztouPemConfig, password), 1),
    logical("checkpurpose.channel." CHANNEL, FIELD(SztouPemConfig, checkpurpose), 2, 1, 0, 0),
};

const std::vector<Key> PKCS11_KEYS = {
    word("encrypted", FIELD(SztouPkcs11Config, encrypted), "no", 0),
    text("library", FIELD(SztouPkcs11Config, library), 15),
    text("certificate", FIELD(SztouPkcs11Config, certificate), 15),
    text("token", FIELD(SztouPkcs11Config, token), 15),
    logical("fips", FIELD(SztouPkcs11Config, fips), 1, 0, 0, 0),
    text("token_pin", FIELD(SztouPkcs11Config, token_pin), 15),
    text("secondary_keystore", FIELD(SztouPkcs11Config, secondary_keystore), 0),
    {Kind::zeroedWithPrevious, "", FIELD(SztouPkcs11Config, secondaryKeystoreState)},
};

const std::vector<Key> CRL_KEYS = {
    word("encrypted", FIELD(SztouCrlConfig, encrypted), "no", 0),
    logical("cdp", FIELD(SztouCrlConfig, cdp), 2, 1, 0, 0),
    optionalText("ldap.host", SERVER(host)),
    number("ldap.port", SERVER(port), "636"),
    optionalText("ldap.user", SERVER(user)),
    optionalText("ldap.pass", SERVER(pass)),
    number("ldap.version", SERVER(version), "3"),
    optionalText("ldap.library", FIELD(SztouCrlConfig, ldapLibrary)),
    number("ldap.cache_lifetime", FIELD(SztouCrlConfig, ldapCacheLifetime), "3600"),
    number("ldap.cache_size", FIELD(SztouCrlConfig, ldapCacheSize), "64"),
    optionalText("http.proxy.host", FIELD(SztouCrlConfig, httpProxyHost)),
    number("http.proxy.port", FIELD(SztouCrlConfig, httpProxyPort), "8080"),
    number("http.max_response_size", FIELD(SztouCrlConfig, httpMaxResponseSize), "204800"),
    number("http.timeout", FIELD(SztouCrlConfig, httpTimeout), "20"),
    number("http.cache_size", FIELD(SztouCrlConfig, httpCacheSize), "10"),
    {Kind::zeroed, "", FIELD(SztouCrlConfig, reserved)},
    logical("log", FIELD(SztouCrlConfig, log), 1, 0, 0, 0),
};

const std::vector<Reader> READERS = {
    {"KeyStore", "cms", general<SztouKsConfig, sztouGetKsConfig>, sizeof(SztouKsConfig), 16, false,
     KEY_STORE_KEYS},
    {"ChannelKeyStore", "cms", channel<SztouKsConfig, sztouGetMCAConfig>, sizeof(SztouKsConfig), 45,
     true, CHANNEL_KEY_STORE_KEYS},
    {"Ocsp", "ocsp", general<SztouOcspConfig, sztouGetOcspConfig>, sizeof(SztouOcspConfig), 24,
     false, OCSP_KEYS},
    {"Pem", "pem", general<SztouPemConfig, sztouGetPemConfig>, sizeof(SztouPemConfig), 25, false,
     PEM_KEYS, "password", "pem.password"},
    {"ChannelPem", "pem", channel<SztouPemConfig, sztouGetMCAPemConfig>, sizeof(SztouPemConfig), 46,
     true, CHANNEL_PEM_KEYS, "password.channel." CHANNEL, "pem.password.channel." CHANNEL},
    {"Pkcs11", "pkcs11", general<SztouPkcs11Config, sztouGetPkcs11Config>,
     sizeof(SztouPkcs11Config), 28, false, PKCS11_KEYS, "token_pin", "pkcs11.token_pin"},
    {"Crl", "crl", general<SztouCrlConfig, crlWithoutFips>, sizeof(SztouCrlConfig), 25, false,
     CRL_KEYS, "ldap.pass", "crl.token_pin"},
};

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>; // of a file, one for each key

void putNumber(Bytes &record, const Key &key, int32_t value) {
    memcpy(record.data() + key.offset, &value, sizeof value);
}

void putText(Bytes &record, const Key &key, const std::string &value) {
    memset(record.data() + key.offset, 0, key.size);
    memcpy(record.data() + key.offset, value.data(), std::min(value.size(), key.size));
}

class Readers : public testing::TestWithParam<Reader> {
protected:
    Readers() : reader(GetParam()) {
        sztUseLogErrorMessage = 0;
        setenv("ZTS_VEKCRED_KEYFILE", keyFile.path.c_str(), 1);
        for (const Key &key : reader.keys)
            lines.push_back(key.value == nullptr ? "" : line(key.name, key.value));
    }
    ~Readers() override {
        sztUseLogErrorMessage = 1;
        unsetenv("ZTS_VEKCRED_KEYFILE");
    }

    std::string line(const char *key, const std::string &value) const {
        return std::string(reader.section) + "." + key + " = " + value + "\n";
    }

    // The record after the keys before `end` were read from the full section, less one absent key.
    Bytes recordOf(size_t end = ALL, size_t absent = NONE) const {
        Bytes record(reader.recordSize, 0xFF);
        for (size_t i = 0; i < std::min(end, reader.keys.size()); ++i) {
            const Key &key = reader.keys[i];
            const bool found = i != absent;
            if (key.kind == Kind::text)
                putText(record, key, found ? key.value : "");
            else if (key.kind == Kind::zeroed ||
                     (key.kind == Kind::zeroedWithPrevious && absent != i - 1))
                putText(record, key, "");
            else if (key.kind != Kind::zeroedWithPrevious)
                putNumber(record, key, found ? key.stored : key.absent);
        }
        return record;
    }

    // Calls visit(index, key, lines) with fresh lines for every key.
    template <typename Visit> void forEachKey(Visit visit) const {
        for (size_t i = 0; i < lines.size(); ++i)
            if (reader.keys[i].value != nullptr)
                visit(i, reader.keys[i], lines);
    }

    // Calls the reader without and with an error key.
    void expectReadingOf(const char *path, uint32_t result, const std::string &errorKey,
                         const Bytes &record) const {
        std::vector<char> key(reader.errorKeySize, '?');
        for (char *const errorKeyOut : {static_cast<char *>(nullptr), key.data()}) {
            Bytes actual(reader.recordSize, 0xFF);
            EXPECT_EQ(result, reader.call(actual.data(), path, errorKeyOut));
            EXPECT_TRUE(record == actual)
                << "first difference at offset "
                << std::mismatch(record.begin(), record.end(), actual.begin()).first -
                       record.begin();
        }
        EXPECT_STREQ(errorKey.c_str(), key.data());
    }

    // Lets it read a file of these lines.
    void expectReading(const Lines &fileLines, uint32_t result, const std::string &errorKey,
                       const Bytes &record) const {
        std::string fileText = "other.key = 1\n";
        for (const std::string &fileLine : fileLines)
            fileText += fileLine;
        const TemporaryFile file(fileText);
        SCOPED_TRACE(fileText.substr(0, 2000));
        expectReadingOf(file.path.c_str(), result, errorKey, record);
    }

    // The reading of a failing key: what comes before it is stored, what comes after it is not.
    void expectFailure(size_t i, const Lines &fileLines, uint32_t result) const {
        const Key &key = reader.keys[i];
        Bytes record = recordOf(i);
        if (key.kind == Kind::logical)
            putNumber(record, key, key.failed);
        expectReading(fileLines, result,
                      reader.section + (key.named ? std::string(".") + key.name : ""), record);
    }

    const Reader &reader;
    const TemporaryFile keyFile{"0123456789abcdef0123456789ABCDEF"};
    Lines lines;
};

TEST_P(Readers, StoreEveryKeyInItsFieldAndNothingElse) {
    expectReading(lines, 0, reader.section, recordOf());
}

// Each key as the letter of its kind and its name.
TEST_P(Readers, ReadTheKeysThatProgramsAreTold) {
    std::vector<std::string> told, read;
    for (const vek::Key &key : vek::KEYS) {
        const bool isNamed = reader.quiet && key.form == vek::Form::generalOrNamed;
        if (key.section == std::string(reader.section) &&
            key.form != (reader.quiet ? vek::Form::general : vek::Form::channel))
            told.push_back("tilwmc"[static_cast<size_t>(key.kind)] + std::string(key.name) +
                           (isNamed ? vek::CHANNEL_PART + std::string(CHANNEL) : ""));
    }
    for (const Key &key : reader.keys) {
        const bool isSecret = reader.secret != nullptr && strcmp(key.name, reader.secret) == 0;
        const char textKind = isSecret ? 'c' : 't', wordKind = reader.secret != nullptr ? 'm' : 'w';
        const char kinds[] = {textKind, 'i', 'l', wordKind};
        if (key.value != nullptr)
            read.push_back(kinds[static_cast<size_t>(key.kind)] + std::string(key.name));
    }
    EXPECT_EQ(told, read);
}

TEST_P(Readers, RefuseAKeyThatIsMissingOrWrittenTwiceAndStopThere) {
    forEachKey([&](size_t i, const Key &key, Lines changed) {
        changed[i] += changed[i];
        expectFailure(i, changed, 15);
        changed[i].clear();
        if (key.absentResult != 0)
            expectFailure(i, changed, key.absentResult);
        else if (strcmp(key.name, "ldap.host") != 0) // its absence has rows of its own below
            expectReading(changed, 0, reader.section, recordOf(ALL, i));
    });
}

TEST_P(Readers, TakeLogicalWordsOnlyAndFillTextsToTheLastByte) {
    forEachKey([&](size_t i, const Key &key, Lines changed) {
        Bytes record = recordOf();
        if (key.kind == Kind::logical) {
            changed[i] = line(key.name, "maybe");
            expectFailure(i, changed, 15);
            changed[i] = line(key.name, "oFF");
            putNumber(record, key, key.no);
            expectReading(changed, 0, reader.section, record);
        }
        for (size_t length = key.size - 1; key.kind == Kind::text && length <= key.size + 1;
             ++length) {
            std::string value(length, 'b');
            value[0] = 'a'; // a value is not stripped when its ends are alike
            changed[i] = line(key.name, value);
            putText(record, key, value);
            expectReading(changed, 0, reader.section, record);
        }
    });
}

TEST_P(Readers, PassTheFailureOfTheFileOnAndLeaveTheRecord) {
    expectReading({}, SZTU_SECTION_EMPTY, reader.section, recordOf(0));
    expectReading({"no equals sign"}, SZTU_CANNOT_PARSE, reader.section, recordOf(0));
    expectReadingOf("/nonexistent", SZTU_CANNOT_READ, reader.section, recordOf(0));
    std::vector<char> errorKey(reader.errorKeySize, '?');
    EXPECT_EQ(uint32_t{SZTU_BAD_ARGUMENTS},
              reader.call(nullptr, keyFile.path.c_str(), &errorKey[0]));
    EXPECT_STREQ(reader.section, &errorKey[0]);
}

TEST_P(Readers, ShowMessagesUnlessTheyServeAChannel) {
    sztUseLogErrorMessage = 1;
    const TemporaryFile file(std::string(reader.section) + ".log = yes\n");
    Bytes record(reader.recordSize);
    const std::string shown = shownBy([&] {
        EXPECT_NE(0U, reader.call(record.data(), "/nonexistent", nullptr));
        EXPECT_NE(0U, reader.call(record.data(), file.path.c_str(), nullptr));
    });
    EXPECT_EQ(!reader.quiet, shown.find("ZTM9062E") == 0) << shown;
    const bool hasRequiredKey = !reader.quiet && reader.keys[1].absentResult != 0;
    EXPECT_EQ(hasRequiredKey, shown.find("ZTM9061E") != std::string::npos) << shown;
}

class CredentialReaders : public Readers {};

TEST_P(CredentialReaders, RefuseAMarkerThatIsNeitherYesNorNo) {
    const Key &marker = reader.keys[0];
    Bytes record = recordOf(0);
    putNumber(record, marker, 0);
    // Ten characters of the word are kept, and nine are turned to upper case.
    const char *const words[][2] = {{"PerhapsnotAndMore", "PERHAPSNOt"},
                                    {"YESS", "YESS"},
                                    {"Y", "Y"},
                                    {"not", "NOT"},
                                    {"1", "1"},
                                    {"true", "TRUE"}};
    for (const auto &[word, kept] : words) {
        lines[0] = line(marker.name, word);
        const std::string key = std::string(reader.section) + "." + marker.name;
        expectReading(lines, 15, reader.quiet ? key : key + "=" + kept, record);
    }
}

TEST_P(CredentialReaders, DecryptTheCredentialOrNameIt) {
    size_t secret = 0;
    while (strcmp(reader.keys[secret].name, reader.secret) != 0)
        ++secret;
    const Key &key = reader.keys[secret];
    const TemporaryFile otherKey(std::string(32, 'k'));
    const std::string clear = "Pass word=1", stored = protect(clear);
    const std::string tooLong(key.size < 512 ? key.size + 20 : 600, 'x');
    std::string damaged = stored;
    char &inTag = damaged[damaged.size() - 9];
    inTag = inTag == 'A' ? 'B' : 'A';
    const std::string ours = keyFile.path, again = line(reader.secret, stored);
    const uint32_t absentResult =
        key.absentResult != 0 ? key.absentResult : uint32_t{SVC_PBE_MALFORMED_TEXT};
    const struct {
        const char *word;
        std::string stored; // empty: the key is absent
        std::string clear;
        std::string keyFile;
        std::string more; // further lines of the file
        uint32_t result;
        const char *errorKey;
    } cases[] = {
        {"yEs", stored, clear, ours, "", 0, reader.section},
        {"YES", protect(tooLong), tooLong, ours, "", 0, reader.section},
        {"NO", stored, stored, ours, "", 0, reader.section},
        {"YES", damaged, "", ours, "", SVC_PBE_AUTHENTICATION_FAILED, reader.secretFailure},
        {"YES", stored, "", otherKey.path, "", SVC_PBE_AUTHENTICATION_FAILED, reader.secretFailure},
        {"YES", "plain", "", ours, "", SVC_PBE_MALFORMED_TEXT, reader.secretFailure},
        {"YES", "", "", ours, "", absentResult, reader.secretFailure},
        {"YES", stored, "", ours, again, 15, key.named ? reader.secretFailure : reader.section},
        {"YES", stored, "", "/nonexistent", "", SZTU_BAD_ARGUMENTS, "vekcred"},
        {"YES", stored, "", ours, "vekcred.keyfile = a\nvekcred.keyfile = b\n", SZTU_BAD_CONFIG,
         "vekcred.keyfile"},
    };
    for (const auto &row : cases) {
        setenv("ZTS_VEKCRED_KEYFILE", row.keyFile.c_str(), 1);
        Lines changed = lines;
        changed[0] = line(reader.keys[0].name, row.word);
        changed[secret] = row.stored.empty() ? "" : line(reader.secret, row.stored);
        changed.push_back(row.more);
        Bytes record = recordOf(row.result == 0 ? ALL : secret);
        putNumber(record, reader.keys[0], row.word[0] != 'N');
        if (row.result == 0)
            putText(record, key, row.clear);
        expectReading(changed, row.result, row.errorKey, record);
    }
}

std::vector<Reader> readersOfCredentials() {
    std::vector<Reader> readers;
    for (Reader reader : READERS) {
        // Not every machine has a FIPS provider, so "fips" is switched off.
        for (Key &key : reader.keys)
            if (strcmp(key.name, "fips") == 0) {
                key.value = "no";
                key.stored = 0;
            }
        if (reader.secret != nullptr)
            readers.push_back(reader);
    }
    return readers;
}

std::string nameOf(const testing::TestParamInfo<Reader> &section) {
    return section.param.name;
}

INSTANTIATE_TEST_SUITE_P(Section, Readers, testing::ValuesIn(READERS), nameOf);
INSTANTIATE_TEST_SUITE_P(Section, CredentialReaders, testing::ValuesIn(readersOfCredentials()),
                         nameOf);

TEST(ReaderRules, HoldForSectionsThatSayLittle) {
    const struct {
        const char *reader;
        const char *text;
        uint32_t result;
        const char *errorKey;
        size_t offset, size; // of a number to look at
        int32_t number;
    } cases[] = {
        // "unknown" does not count as setting something, "log" does.
        {"Ocsp", "ocsp.unknown = ACCEPT", 0, "ocsp", FIELD(SztouOcspConfig, unknown), 2},
        {"Ocsp", "ocsp.log = yes", 15, "ocsp.url", FIELD(SztouOcspConfig, log), 1},
        {"Ocsp", "ocsp.timeout = 5", 15, "ocsp.url", FIELD(SztouOcspConfig, timeout), 5},
        {"Ocsp", "ocsp.enable = no", 0, "ocsp", FIELD(SztouOcspConfig, enable), 1},
        {"Ocsp", "ocsp.http.proxy.host = p", 0, "ocsp", FIELD(SztouOcspConfig, enable), 0},
        {"Ocsp", "ocsp.unknown = rejecT", 0, "ocsp", FIELD(SztouOcspConfig, unknown), 1},
        {"Ocsp", "ocsp.unknown = REJECTED", 15, "ocsp.unknown=REJECTED",
         FIELD(SztouOcspConfig, unknown), 0},
        {"Ocsp", "ocsp.unknown = abcdefghijk", 15, "ocsp.unknown=ABCDEFGHIj",
         FIELD(SztouOcspConfig, unknown), 0},
        {"Ocsp", "ocsp.enable = on\nocsp.signature = -1", 0, "ocsp",
         FIELD(SztouOcspConfig, signature), -1},
        // A refused mode stays in the record.
        {"Ocsp", "ocsp.signature = 3", 15, "ocsp.signature", FIELD(SztouOcspConfig, signature), 3},
        {"Ocsp", "ocsp.signature = -2", 15, "ocsp.signature", FIELD(SztouOcspConfig, signature),
         -2},
        {"Crl", "crl.encrypted = NO", 0, "crl", FIELD(SztouCrlConfig, httpTimeout), -1},
        {"Crl", "crl.log = true", 15, "crl.ldap.host", FIELD(SztouCrlConfig, log), 1},
        {"Crl", "crl.http.timeout = 9", 15, "crl.ldap.host", FIELD(SztouCrlConfig, httpTimeout), 9},
        {"Crl", "crl.cdp = false", 0, "crl", FIELD(SztouCrlConfig, cdp), 1},
        // Port, user, password and version without a host are dropped.
        {"Crl", "crl.cdp = 1\ncrl.ldap.port = 3\ncrl.ldap.version = 3", 0, "crl", SERVER(port), -1},
        {"Crl", "crl.cdp = 1\ncrl.ldap.version = 3", 0, "crl", SERVER(version), -1},
        {"Crl", "crl.cdp = 1\ncrl.ldap.user = uuuu", 0, "crl", SERVER(user), 0},
        {"Crl", "crl.cdp = 1\ncrl.ldap.pass = pppp", 0, "crl", SERVER(pass), 0},
        // An absent password is decrypted all the same, and named like the PIN of a token.
        {"Crl", "crl.encrypted = YES", SVC_PBE_MALFORMED_TEXT, "crl.token_pin", SERVER(port), -1},
    };
    sztUseLogErrorMessage = 0;
    for (const auto &row : cases) {
        const Reader &reader =
            *std::find_if(READERS.begin(), READERS.end(), [&](const Reader &candidate) {
                return strcmp(candidate.name, row.reader) == 0;
            });
        const TemporaryFile file(row.text);
        Bytes record(reader.recordSize);
        char errorKey[SZTOU_ERROR_KEY_CAPACITY];
        EXPECT_EQ(row.result, reader.call(record.data(), file.path.c_str(), errorKey)) << row.text;
        EXPECT_STREQ(row.errorKey, errorKey);
        int32_t number = 0;
        memcpy(&number, record.data() + row.offset, sizeof number);
        EXPECT_EQ(row.number, number) << row.text;
    }
    sztUseLogErrorMessage = 1;
}

TEST(ReaderRules, RefuseANullChannelName) {
    SztouKsConfig keyStore;
    SztouPemConfig pem;
    EXPECT_EQ(uint32_t{SZTU_BAD_ARGUMENTS}, sztouGetMCAConfig(&keyStore, nullptr, "/", nullptr));
    EXPECT_EQ(uint32_t{SZTU_BAD_ARGUMENTS}, sztouGetMCAPemConfig(&pem, nullptr, "/", nullptr));
}

} // namespace
