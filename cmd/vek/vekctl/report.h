/*
 * report.h - what a command says: lines as compilers write them, or one JSON document with --json.
 *
 * Findings and answers go to standard output, problems to standard error. Names of files, of keys
 * and of channels come from outside and may hold anything, so every text that is handed over here
 * is shown with "?" in place of a control character, and is UTF-8. What goes into json() directly
 * is a number, a text of ours, or has been through shown().
 */
#ifndef VEKCTL_REPORT_H
#define VEKCTL_REPORT_H

#include "vekctl/findings.h"
#include "vekctl/options.h"

#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace vekctl {

inline constexpr int JSON_VERSION = 1;

// What became of one file.
enum class Outcome { clean, findings, changed, already, failed };

// A text as it may be shown: control characters and bytes that are not UTF-8 are "?".
[[nodiscard]] std::string shown(std::string_view text);

// The standard place of keystore.conf. Empty: none is known.
[[nodiscard]] std::string standardPlace();

class Report {
public:
    Report(const char *commandName, const CommonOptions &options);
    ~Report();
    Report(const Report &) = delete;
    Report &operator=(const Report &) = delete;

    // Treats each file (no file: the standard place), one after the other whatever becomes of it,
    // and says in a last line how many of several came out how. `treat` reports on its file with
    // the functions below. Result: the exit status.
    [[nodiscard]] int overFiles(std::vector<std::string> files,
                                const std::function<Outcome(const std::string &)> &treat);

    // ---- About the file that is being treated ----
    void finding(const Finding &finding);
    // Why the file could not be treated: what happened and what to do. `line` 0 and `key` "" are
    // left out. Before the first file it is said of the run, on standard error in any case.
    void problem(const std::string &text, size_t line = 0, const std::string &key = {});
    // The same of a key that cannot be used. `line` is the one in which the file names it, or 0.
    void unusable(const CipherSession &session, size_t line);
    // Something that was done, for a person who waits; not with --quiet.
    void note(const std::string &text, size_t line = 0, const std::string &key = {});
    // A line of the answer itself, also with --quiet; the document has it from json().
    void answer(const std::string &line);
    // The file's object in the document, for members of a command's own.
    [[nodiscard]] nlohmann::json &json() {
        return *fileDocument;
    }

private:
    [[nodiscard]] Outcome treatOne(const std::function<Outcome(const std::string &)> &treat);
    void showProgress(size_t done, size_t all);
    void clearProgress();
    void countUp(const std::vector<size_t> &counts);

    std::string command;
    bool asJson;
    bool quiet;
    bool coloured;
    bool withProgress;
    bool progressShown = false;
    std::string file;
    // Pointers, because this header goes without the library's own.
    std::unique_ptr<nlohmann::json> document;
    std::unique_ptr<nlohmann::json> fileDocument;
};

} // namespace vekctl

#endif
