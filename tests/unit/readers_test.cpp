// The section readers. A record is filled with 0xFF before each reading, so that the bytes a reader
// must not touch are seen.
#include "shared.h"
#include "support/keystore_file.h"
#include "support/record_fields.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <sstream>
#include <vector>

namespace {

using std::string;
using Bytes = std::vector<unsigned char>;
using Words = std::vector<string>;

// 20 characters of a channel name count.
#define CHANNEL "CHANNEL.OF.TWENTY.XY"

struct Reader {
    string name; // the section; "@" behind it: of a channel
    size_t recordSize;
    size_t errorKeySize; // what the header asks for
    uint32_t (*call)(void *record, const char *path, char *errorKey);

    bool isOfChannel() const {
        return name.back() == '@';
    }
    string section() const {
        return name.substr(0, name.find('@'));
    }
};

uint32_t crlWithoutFips(SztouCrlConfig *config, const char *path, char *errorKey) {
    return sztouGetCrlConfig(config, path, errorKey, /* fips= */ 0);
}

template <typename Record, auto read> Reader readerOf(const char *name, size_t errorKeySize) {
    return {.name = name,
            .recordSize = sizeof(Record),
            .errorKeySize = errorKeySize,
            .call = [](void *record, const char *path, char *errorKey) {
                Record *const config = static_cast<Record *>(record);
                if constexpr (std::is_invocable_v<decltype(read), Record *, const char *, char *>)
                    return read(config, path, errorKey);
                else
                    return read(config, CHANNEL ".AND.MORE", path, errorKey);
            }};
}

const Reader READERS[] = {
    readerOf<SztouKsConfig, sztouGetKsConfig>("cms", /* errorKeySize= */ 16),
    readerOf<SztouKsConfig, sztouGetMCAConfig>("cms@", /* errorKeySize= */ 45),
    readerOf<SztouOcspConfig, sztouGetOcspConfig>("ocsp", /* errorKeySize= */ 24),
    readerOf<SztouPemConfig, sztouGetPemConfig>("pem", /* errorKeySize= */ 25),
    readerOf<SztouPemConfig, sztouGetMCAPemConfig>("pem@", /* errorKeySize= */ 46),
    readerOf<SztouPkcs11Config, sztouGetPkcs11Config>("pkcs11", /* errorKeySize= */ 28),
    readerOf<SztouCrlConfig, crlWithoutFips>("crl", /* errorKeySize= */ 25),
};

const Reader &readerNamed(const string &name) {
    return *std::find_if(std::begin(READERS), std::end(READERS),
                         [&](const Reader &reader) { return reader.name == name; });
}

// ---- The rows of tests/data/readings.txt, whose top tells how they are written ------------------

using File = std::vector<std::pair<string, string>>;

const char *valueOf(const vek::Key &key) {
    switch (key.kind) {
    case vek::Kind::integer:
        return "2";
    case vek::Kind::logical:
        return "Yes";
    case vek::Kind::word:
        return "Warn";
    case vek::Kind::marker:
        return "no";
    default:
        return key.name;
    }
}

// Every key that programs are told of.
File wholeFile(const Reader &reader) {
    const vek::Form foreign = reader.isOfChannel() ? vek::Form::general : vek::Form::channel;
    File file;
    for (const vek::Key &key : vek::KEYS) {
        const bool isNamed = reader.isOfChannel() && key.form == vek::Form::generalOrNamed;
        if (key.section == reader.section() && key.form != foreign)
            file.emplace_back(string(key.name) + (isNamed ? "@" : ""), valueOf(key));
    }
    return file;
}

string expanded(const string &written) {
    const size_t star = written.find('*');
    return star == string::npos
               ? written
               : written.substr(0, star) +
                     string(std::stoul(written.substr(star + 1)) - 1, written[star - 1]);
}

string valueOf(const string &written) {
    if (written[0] != '{')
        return expanded(written);
    const size_t end = written.find('}');
    string stored = protect(expanded(written.substr(1, end - 1)));
    if (end + 1 < written.size()) {
        char &inTag = stored[stored.size() - 9];
        inTag = inTag == 'A' ? 'B' : 'A';
    }
    return stored;
}

void change(File *file, const string &word) {
    const size_t equals = word.find('=');
    const string key = equals != string::npos ? word.substr(0, equals) : word.substr(1);
    const auto line = std::find_if(file->begin(), file->end(),
                                   [&](const auto &other) { return other.first == key; });
    if (word == "only")
        file->clear();
    else if (word[0] == '$')
        setenv("ZTS_VEKCRED_KEYFILE", key.c_str(), 1);
    else if (word[0] == '-')
        file->erase(line);
    else if (word[0] == '+')
        file->insert(line, File::value_type(*line));
    else if (line != file->end())
        line->second = valueOf(word.substr(equals + 1));
    else if (equals != string::npos)
        file->emplace_back(key, valueOf(word.substr(equals + 1)));
}

string named(string key) {
    const size_t at = key.find('@');
    return at == string::npos ? key : key.replace(at, 1, vek::CHANNEL_PART + string(CHANNEL));
}

void put(const Reader &reader, Bytes *record, const string &word) {
    const size_t equals = word.find('=');
    const Field &field = *std::find_if(FIELDS, FIELDS + FIELD_COUNT, [&](const Field &candidate) {
        return candidate.section == reader.section() && candidate.name == word.substr(0, equals);
    });
    string bytes = expanded(word.substr(equals + 1));
    if (field.size == sizeof(int32_t)) {
        const int32_t number = std::stoi(bytes);
        bytes.assign(reinterpret_cast<const char *>(&number), sizeof number);
    }
    bytes.resize(field.size);
    std::copy(bytes.begin(), bytes.end(), record->begin() + static_cast<ptrdiff_t>(field.offset));
}

Bytes recordOf(const Reader &reader, const Words &whole, const Words &fields) {
    Bytes record(reader.recordSize, 0xFF);
    for (const string &word : fields) {
        const bool isPart = word.starts_with("..");
        if (!isPart && word != "all")
            put(reader, &record, word);
        for (size_t i = 0; (isPart || word == "all") && i < whole.size(); ++i) {
            put(reader, &record, whole[i]);
            if (isPart && whole[i].starts_with(word.substr(2) + "="))
                break;
        }
    }
    return record;
}

class Readers : public testing::Test {
protected:
    Readers() {
        sztUseLogErrorMessage = 0;
    }
    ~Readers() override {
        sztUseLogErrorMessage = 1;
        unsetenv("ZTS_VEKCRED_KEYFILE");
    }

    // Reads with and without an error key.
    static void expectReading(const Reader &reader, const char *path, uint32_t result,
                              const string &errorKey, const Bytes &record) {
        std::vector<char> key(reader.errorKeySize, '?');
        for (char *const errorKeyOut : {static_cast<char *>(nullptr), key.data()}) {
            Bytes actual(reader.recordSize, 0xFF);
            EXPECT_EQ(result, reader.call(actual.data(), path, errorKeyOut));
            const auto differs = std::mismatch(record.begin(), record.end(), actual.begin()).first;
            EXPECT_TRUE(differs == record.end()) << "at byte " << differs - record.begin();
        }
        EXPECT_EQ(named(errorKey), key.data());
    }
};

TEST_F(Readers, ReadWhatTheRowsSay) {
    // The key files that rows name.
    std::ofstream("ours") << "0123456789abcdef0123456789ABCDEF";
    std::ofstream("other") << string(32, 'k');
    std::map<string, Words> whole;
    std::ifstream data(string(getenv("VEK_SOURCE")) + "/tests/data/readings.txt");
    for (string row; std::getline(data, row);) {
        SCOPED_TRACE(row);
        std::istringstream words(row);
        string name, changes, result, errorKey;
        if (row[0] == '#' || !(words >> name >> changes >> result >> errorKey))
            continue;
        const Words fields(std::istream_iterator<string>(words), {});
        const Reader &reader = readerNamed(name);
        setenv("ZTS_VEKCRED_KEYFILE", "ours", 1);
        File file = wholeFile(reader);
        std::istringstream list(changes);
        for (string word; std::getline(list, word, ';');)
            change(&file, word);
        string text = "other.key = 1\n";
        for (const auto &[key, value] : file)
            text += reader.section() + "." + named(key) + " = " + value + "\n";
        if (changes == "all")
            whole[name] = fields;
        expectReading(reader, TemporaryFile(text).path.c_str(),
                      static_cast<uint32_t>(std::stoul(result, nullptr, 0)), errorKey,
                      recordOf(reader, whole[name], fields));
    }
    EXPECT_EQ(std::size(READERS), whole.size());
}

TEST_F(Readers, TellWhatKeepsThemFromTheSection) {
    const TemporaryFile noEquals("no equals sign\n");
    for (const Reader &reader : READERS) {
        SCOPED_TRACE(reader.name);
        const Bytes untouched(reader.recordSize, 0xFF);
        expectReading(reader, noEquals.path.c_str(), SZTU_CANNOT_PARSE, reader.section(),
                      untouched);
        expectReading(reader, "/nonexistent", SZTU_CANNOT_READ, reader.section(), untouched);
        std::vector<char> errorKey(reader.errorKeySize, '?');
        EXPECT_EQ(uint32_t{SZTU_BAD_ARGUMENTS}, reader.call(nullptr, "/", errorKey.data()));
        EXPECT_EQ(reader.section(), errorKey.data());
    }
    SztouKsConfig keyStore;
    SztouPemConfig pem;
    EXPECT_EQ(uint32_t{SZTU_BAD_ARGUMENTS}, sztouGetMCAConfig(&keyStore, nullptr, "/", nullptr));
    EXPECT_EQ(uint32_t{SZTU_BAD_ARGUMENTS}, sztouGetMCAPemConfig(&pem, nullptr, "/", nullptr));
    EXPECT_EQ(uint32_t{SZTU_BAD_ARGUMENTS}, sztouGetVEKCredConfig(nullptr, "/", nullptr));
    EXPECT_EQ(uint32_t{SZTU_CANNOT_PARSE}, sztucParseConfigFile(nullptr, nullptr));
}

} // namespace
