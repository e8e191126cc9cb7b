// Reading keystore.conf: the library, the least memory work that its items need, and other parsers.
#include "sztoumaa/load.h"
#include "ztvek.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <malloc.h>
#include <string>
#include <unistd.h>
#include <vector>
#ifdef HAVE_GLIB
#include <glib.h>
#endif
#ifdef HAVE_INIH
#include <ini.h>
#endif

namespace {

constexpr int64_t FEW_LINES = 40;
constexpr int64_t HALF_OF_MANY = 500'000;
constexpr int64_t MANY_LINES = 1'000'000;

constexpr const char *SECTIONS[] = {"cms", "crl", "ocsp", "pem", "pkcs11"};

// A step that fails would make a benchmark of nothing.
void require(bool succeeded) {
    if (!succeeded)
        abort();
}

// Lines of 40 characters, as many of each section. With groups the section stands in a line of its
// own in front of its keys, else in front of each key.
std::string makeText(int64_t lines, bool withGroups) {
    std::string text;
    char line[64];
    const int64_t each = lines / static_cast<int64_t>(std::size(SECTIONS));
    for (const char *section : SECTIONS) {
        if (withGroups)
            text += std::string("[") + section + "]\n";
        for (int64_t i = 0; i < each; ++i) {
            (void)snprintf(line, sizeof line, "%s%skey_%06lld = /etc/ztm/value_%06lld",
                           withGroups ? "" : section, withGroups ? "" : ".",
                           static_cast<long long>(i), static_cast<long long>(i));
            text += line;
            text += '\n';
        }
    }
    return text;
}

// The parser may change its text, but does not do so: it is parsed again and again.
SztuList *parse(std::string *text) {
    SztuList *const list = SztuListCreate();
    require(sztucParseConfigFile(text->data(), list) == SZTU_OK);
    return list;
}

// Where the memory of a list comes from: the system, as in a process that reads a large file once,
// or what the process has used before.
enum class Memory { fresh, used };

void settle(benchmark::State &state, Memory memory) {
    if (memory == Memory::used)
        return;
    state.PauseTiming();
    (void)malloc_trim(0);
    state.ResumeTiming();
}

// ---- Parsing, filtering, freeing -------------------------------------------------------------

void parseAndFree(benchmark::State &state, Memory memory) {
    std::string text = makeText(state.range(0), /* withGroups= */ false);
    for (auto _ : state) {
        settle(state, memory);
        sztucFreeConfigList(parse(&text));
    }
}
BENCHMARK_CAPTURE(parseAndFree, used, Memory::used)->Arg(FEW_LINES)->Arg(MANY_LINES);
BENCHMARK_CAPTURE(parseAndFree, fresh, Memory::fresh)->Arg(MANY_LINES);

// The list node, the item and its two texts, taken for all lines and then given back.
void fourAllocations(benchmark::State &state, Memory memory) {
    constexpr size_t LENGTHS[] = {sizeof(SztuListNode), sizeof(SztucConfigItem),
                                  sizeof "ocsp.key_000000", sizeof "/etc/ztm/value_000000"};
    std::vector<void *> pieces(static_cast<size_t>(state.range(0)) * std::size(LENGTHS));
    for (auto _ : state) {
        settle(state, memory);
        for (size_t i = 0; i < pieces.size(); ++i)
            pieces[i] = malloc(LENGTHS[i % std::size(LENGTHS)]);
        benchmark::ClobberMemory();
        for (void *const piece : pieces)
            free(piece);
    }
}
BENCHMARK_CAPTURE(fourAllocations, used, Memory::used)->Arg(FEW_LINES)->Arg(MANY_LINES);
BENCHMARK_CAPTURE(fourAllocations, fresh, Memory::fresh)->Arg(MANY_LINES);

// Times one of the three steps that a list goes through.
enum class Step { parse, filter, free };

void timeStep(benchmark::State &state, Step step) {
    std::string text = makeText(state.range(0), /* withGroups= */ false);
    for (auto _ : state) {
        settle(state, Memory::fresh);
        const clock_t start = clock();
        SztuList *const list = parse(&text);
        const clock_t parsed = clock();
        if (step == Step::filter)
            sztucFilterPrefix(list, "pem");
        const clock_t filtered = clock();
        sztucFreeConfigList(list);
        const clock_t times[] = {parsed - start, filtered - parsed, clock() - filtered};
        state.SetIterationTime(static_cast<double>(times[static_cast<size_t>(step)]) /
                               CLOCKS_PER_SEC);
    }
}
BENCHMARK_CAPTURE(timeStep, parse, Step::parse)
    ->Arg(HALF_OF_MANY)
    ->Arg(MANY_LINES)
    ->UseManualTime();
BENCHMARK_CAPTURE(timeStep, filter, Step::filter)
    ->Arg(HALF_OF_MANY)
    ->Arg(MANY_LINES)
    ->UseManualTime();
BENCHMARK_CAPTURE(timeStep, free, Step::free)->Arg(HALF_OF_MANY)->Arg(MANY_LINES)->UseManualTime();

// ---- A file on the disk ----------------------------------------------------------------------

std::string makeFile(bool withGroups) {
    char path[] = "/tmp/section_XXXXXX";
    const int file = mkstemp(path);
    const std::string text = makeText(FEW_LINES, withGroups);
    require(write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    (void)close(file);
    return path;
}

void loadSection(benchmark::State &state) {
    const std::string path = makeFile(/* withGroups= */ false);
    for (auto _ : state) {
        SztuList *list = nullptr;
        require(vek::loadSection(path.c_str(), &list, "pem", /* reportErrors= */ 0) == SZTU_OK);
        sztucFreeConfigList(list);
    }
    (void)unlink(path.c_str());
}
BENCHMARK(loadSection);

#ifdef HAVE_GLIB
void parseKeyFile(benchmark::State &state) {
    const std::string text = makeText(FEW_LINES, /* withGroups= */ true);
    for (auto _ : state) {
        GKeyFile *const file = g_key_file_new();
        require(g_key_file_load_from_data(file, text.data(), text.size(), G_KEY_FILE_NONE,
                                          nullptr) != 0);
        g_key_file_free(file);
    }
}
BENCHMARK(parseKeyFile);

void loadKeyFile(benchmark::State &state) {
    const std::string path = makeFile(/* withGroups= */ true);
    for (auto _ : state) {
        GKeyFile *const file = g_key_file_new();
        require(g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr) != 0);
        g_key_file_free(file);
    }
    (void)unlink(path.c_str());
}
BENCHMARK(loadKeyFile);
#endif

#ifdef HAVE_INIH
struct Entry {
    char *key;
    char *value;
};

struct Node {
    Entry *entry;
    Node *next;
    Node *previous;
};

struct Entries {
    Node *first;
    Node *last;
};

int appendEntry(void *data, const char * /*section*/, const char *key, const char *value) {
    Entries *const entries = static_cast<Entries *>(data);
    Entry *const entry = static_cast<Entry *>(malloc(sizeof(Entry)));
    Node *const node = static_cast<Node *>(malloc(sizeof(Node)));
    *entry = {strdup(key), strdup(value)};
    *node = {entry, nullptr, entries->last};
    (entries->last == nullptr ? entries->first : entries->last->next) = node;
    entries->last = node;
    return 1;
}

void freeEntries(const Entries &entries) {
    for (Node *node = entries.first, *next; node != nullptr; node = next) {
        next = node->next;
        free(node->entry->key);
        free(node->entry->value);
        free(node->entry);
        free(node);
    }
}

void parseInih(benchmark::State &state) {
    const std::string text = makeText(FEW_LINES, /* withGroups= */ false);
    for (auto _ : state) {
        Entries entries = {};
        require(ini_parse_string(text.c_str(), appendEntry, &entries) == 0);
        freeEntries(entries);
    }
}
BENCHMARK(parseInih);
#endif

} // namespace
