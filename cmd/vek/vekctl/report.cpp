/*
 * report.cpp - lines, colours, progress and the JSON document.
 */
#include "vekctl/report.h"

#include "common/printable.h"
#include "vekctl/known_keys.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <new>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace vekctl {

namespace {

constexpr std::array<const char *, 5> OUTCOME_WORDS = {"clean", "with findings", "changed",
                                                       "already", "failed"};
constexpr std::array<const char *, 5> OUTCOME_NAMES = {"clean", "findings", "changed", "already",
                                                       "failed"};

bool mayColour() {
    const char *const terminal = getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && getenv("NO_COLOR") == nullptr && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

// The text that was copied or searched last is still in vector registers, and the dynamic linker
// puts those on the stack when an output or the end of the program calls a function for the first
// time. As many zeros take the same ways. Through the pointers it is the library's functions that
// are called, and they are not left out.
__attribute__((noinline)) void overwriteRegisters() {
    static constexpr char ZEROS[512] = {};
    char copy[sizeof ZEROS];
    void *(*const volatile libraryCopy)(void *, const void *, size_t) = memcpy;
    const void *(*const volatile librarySearch)(const void *, int, size_t) = memchr;
    for (size_t length = 1; length <= sizeof ZEROS; length += length / 4 + 1) {
        (void)libraryCopy(copy, ZEROS, length);
        (void)librarySearch(ZEROS, '\n', length);
    }
}

std::string place(const std::string &file, size_t line) {
    return line == 0 ? shown(file) : shown(file) + ":" + std::to_string(line);
}

// Most texts of findings go on from the key, which is left out when it may not be shown; one with
// an article is a sentence of its own.
std::string sentence(const std::string &key, const std::string &text) {
    const bool isWhole = text.starts_with("the ") || text.starts_with("a ");
    if (key.empty())
        return text.starts_with("is ") ? "the key of this line " + text : text;
    return key + (isWhole ? ": " : " ") + text;
}

int statusOf(const std::vector<size_t> &counts) {
    const bool allWell = counts[static_cast<size_t>(Outcome::findings)] == 0 &&
                         counts[static_cast<size_t>(Outcome::failed)] == 0;
    return allWell ? STATUS_WELL : STATUS_FINDINGS;
}

} // namespace

std::string shown(std::string_view text) {
    const std::string whole(text); // with a NUL at its end
    std::string result;
    for (size_t i = 0; i < whole.size();) {
        const size_t length = ztm::printableLength(&whole[i]);
        result += length == 0 ? "?" : whole.substr(i, length);
        i += std::max<size_t>(length, 1);
    }
    return result;
}

std::string standardPlace() {
    char path[SZTUC_PATH_CAPACITY];
    const bool known = sztucGetConfigFilePath(path, vek::FILE_VARIABLE, vek::FILE_NAME) == SZTU_OK;
    return known ? path : "";
}

Report::Report(const char *commandName, const CommonOptions &options)
    : command(commandName), asJson(options.json), quiet(options.quiet), coloured(mayColour()),
      withProgress(isatty(STDERR_FILENO) != 0 && !options.quiet),
      document(std::make_unique<nlohmann::json>(nlohmann::json{
          {"version", JSON_VERSION},
          {"command", commandName},
          {"files", nlohmann::json::array()},
      })),
      fileDocument(std::make_unique<nlohmann::json>()) {}

Report::~Report() = default;

int Report::overFiles(std::vector<std::string> files,
                      const std::function<Outcome(const std::string &)> &treat) {
    if (files.empty())
        files.push_back(standardPlace());
    std::vector<size_t> counts(OUTCOME_WORDS.size());
    for (size_t i = 0; i < files.size(); ++i) {
        showProgress(i, files.size());
        file = files[i];
        *fileDocument = {{"file", shown(file)}};
        const size_t outcome = static_cast<size_t>(treatOne(treat));
        overwriteRegisters();
        std::cout.flush(); // a run that is stopped has told what it changed
        ++counts[outcome];
        (*fileDocument)["outcome"] = OUTCOME_NAMES[outcome];
        if (asJson)
            (*document)["files"].push_back(std::move(*fileDocument));
    }
    clearProgress();
    countUp(counts);
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "vekctl: standard output cannot be written\n";
        return STATUS_FINDINGS;
    }
    return statusOf(counts);
}

Outcome Report::treatOne(const std::function<Outcome(const std::string &)> &treat) {
    try {
        return treat(file);
    } catch (const std::bad_alloc &) {
        problem("there is not enough memory");
    } catch (const std::filesystem::filesystem_error &error) {
        problem(std::string("the working folder cannot be found: ") + error.code().message());
    }
    return Outcome::failed;
}

void Report::finding(const Finding &finding) {
    overwriteRegisters();
    const FindingKind &kind = kindOf(finding.code);
    const std::string key = shown(finding.key);
    const std::string text = sentence(key, shown(textOf(finding)));
    if (asJson) {
        nlohmann::json entry = {{"code", kind.name},
                                {"level", nameOf(finding.level)},
                                {"reading", kind.matter == Matter::reading},
                                {"text", text}};
        if (finding.line != 0)
            entry["line"] = finding.line;
        if (!key.empty())
            entry["key"] = key;
        (*fileDocument)["findings"].push_back(std::move(entry));
    } else if (!quiet) {
        clearProgress();
        const bool isError = finding.level == Level::error;
        const char *const start = !coloured ? "" : isError ? "\033[1;31m" : "\033[1;33m";
        std::cout << place(file, finding.line) << ": " << start << nameOf(finding.level)
                  << (coloured ? "\033[0m" : "") << ": " << text << " [" << kind.name << "]\n";
    }
}

void Report::problem(const std::string &text, size_t line, const std::string &key) {
    overwriteRegisters();
    if (asJson && !fileDocument->is_null()) {
        (*fileDocument)["problem"] = shown(text);
        if (line != 0)
            (*fileDocument)["line"] = line;
        if (!key.empty())
            (*fileDocument)["key"] = shown(key);
        return;
    }
    clearProgress();
    std::cerr << "vekctl: " << (file.empty() ? "" : place(file, line) + ": ")
              << shown(key.empty() ? text : key + ": " + text) << "\n";
}

void Report::unusable(const CipherSession &session, size_t line) {
    const bool isNamed = session.source().origin == KeyOrigin::section;
    problem(session.problem(), isNamed ? line : 0, isNamed ? KEY_FILE_KEY : "");
}

void Report::note(const std::string &text, size_t line, const std::string &key) {
    overwriteRegisters();
    const std::string whole = shown(key.empty() ? text : key + ": " + text);
    if (asJson) {
        (*fileDocument)["notes"].push_back(whole);
    } else if (!quiet) {
        clearProgress();
        std::cout << place(file, line) << ": " << whole << "\n";
    }
}

void Report::answer(const std::string &line) {
    clearProgress();
    if (!asJson)
        std::cout << shown(line) << "\n";
}

void Report::showProgress(size_t done, size_t all) {
    constexpr size_t STEP = 16;
    if (!withProgress || all == 1 || done % STEP != 0)
        return;
    std::cerr << "\r" << command << ": " << done << " of " << all << " files" << std::flush;
    progressShown = true;
}

void Report::clearProgress() {
    if (progressShown)
        std::cerr << "\r\033[K" << std::flush;
    progressShown = false;
}

void Report::countUp(const std::vector<size_t> &counts) {
    size_t all = 0;
    nlohmann::json summary;
    std::string words;
    for (size_t i = 0; i < counts.size(); ++i) {
        all += counts[i];
        summary[OUTCOME_NAMES[i]] = counts[i];
        if (counts[i] != 0)
            words +=
                (words.empty() ? "" : ", ") + std::to_string(counts[i]) + " " + OUTCOME_WORDS[i];
    }
    if (asJson) {
        (*document)["summary"] = std::move(summary);
        std::cout << document->dump(/* indent= */ 2, ' ', /* ensure_ascii= */ false,
                                    nlohmann::json::error_handler_t::replace)
                  << "\n";
    } else if (all > 1 && !quiet) {
        std::cout << all << " files: " << words << "\n";
    }
}

} // namespace vekctl
