// Reading keystore.conf: the library, the least memory work that its items need, and a parser of
// GLib.
#include "sztoumaa/load.h"
#include "ztvek.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <string>
#include <unistd.h>
#include <vector>
#ifdef HAVE_GLIB
#include <glib.h>
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
std::string makeText(int64_t lines, bool withGroups = false) {
    std::string text;
    char line[64];
    for (const std::string section : SECTIONS) {
        text += withGroups ? "[" + section + "]\n" : "";
        for (int i = 0; i < lines / static_cast<int64_t>(std::size(SECTIONS)); ++i) {
            (void)snprintf(line, sizeof line, "key_%06d = /etc/ztm/value_%06d\n", i, i);
            text += (withGroups ? "" : section + ".") + line;
        }
    }
    return text;
}

// A file on the disk that goes with the object.
struct File {
    char path[32] = "/tmp/section_XXXXXX";
    explicit File(const std::string &text) {
        const int file = mkstemp(path);
        require(write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
        (void)close(file);
    }
    ~File() {
        (void)unlink(path);
    }
};

// The memory of a long list comes from the system, as in a process that reads a large file once;
// that of a short one is what the process has used before.
void settle(benchmark::State &state) {
    if (state.range(0) == FEW_LINES)
        return;
    state.PauseTiming();
    (void)malloc_trim(0);
    state.ResumeTiming();
}

// The parser may change its text, but does not do so: it is parsed again and again.
void parseAndFree(benchmark::State &state) {
    std::string text = makeText(state.range(0));
    for (auto _ : state) {
        settle(state);
        SztuList *const list = SztuListCreate();
        require(sztucParseConfigFile(text.data(), list) == SZTU_OK);
        sztucFreeConfigList(list);
    }
}
BENCHMARK(parseAndFree)->Arg(FEW_LINES)->Arg(MANY_LINES);

// The list node, the item and its two texts, taken for all lines and then given back.
void fourAllocations(benchmark::State &state) {
    constexpr size_t LENGTHS[] = {sizeof(SztuListNode), sizeof(SztucConfigItem),
                                  sizeof "ocsp.key_000000", sizeof "/etc/ztm/value_000000"};
    std::vector<void *> pieces(static_cast<size_t>(state.range(0)) * std::size(LENGTHS));
    for (auto _ : state) {
        settle(state);
        for (size_t i = 0; i < pieces.size(); ++i)
            pieces[i] = malloc(LENGTHS[i % std::size(LENGTHS)]);
        benchmark::ClobberMemory();
        for (void *const piece : pieces)
            free(piece);
    }
}
BENCHMARK(fourAllocations)->Arg(FEW_LINES)->Arg(MANY_LINES);

void loadSection(benchmark::State &state) {
    const File file(makeText(state.range(0)));
    for (auto _ : state) {
        settle(state);
        SztuList *list = nullptr;
        require(vek::loadSection(file.path, &list, "pem", /* reportErrors= */ 0) == SZTU_OK);
        sztucFreeConfigList(list);
    }
}
BENCHMARK(loadSection)->Arg(FEW_LINES)->Arg(HALF_OF_MANY)->Arg(MANY_LINES);

#ifdef HAVE_GLIB
void loadKeyFile(benchmark::State &state) {
    const File file(makeText(FEW_LINES, /* withGroups= */ true));
    for (auto _ : state) {
        GKeyFile *const keyFile = g_key_file_new();
        require(g_key_file_load_from_file(keyFile, file.path, G_KEY_FILE_NONE, nullptr) != 0);
        g_key_file_free(keyFile);
    }
}
BENCHMARK(loadKeyFile);
#endif

} // namespace
