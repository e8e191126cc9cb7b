/*
 * get.cpp - the command that prints one credential, as its reader hands it to a program.
 */
#include "vekctl/commands.h"
#include "vekctl/loaded_file.h"

#include "shared/line_words.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <unistd.h>

namespace vekctl {

namespace {

struct Options {
    CommonOptions common;
    std::string file;
    std::string key;
};

// Standard output is written directly: a stream would keep a copy.
bool print(std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(STDOUT_FILENO, text.data(), text.size());
        if (count < 0 && errno != EINTR)
            return false;
        text.remove_prefix(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    }
    return true;
}

class Get {
public:
    explicit Get(const Options &given) : options(given), report("get", given.common) {}

    int run() {
        return report.overFiles({options.file},
                                [this](const std::string &path) { return find(path); });
    }

private:
    Outcome refuse(const std::string &text, size_t line = 0) {
        report.problem(text, line, options.key);
        return Outcome::failed;
    }

    Outcome find(const std::string &path) {
        if (!file.load(path, &report))
            return Outcome::failed;
        const Item *found = nullptr;
        for (const Item &item : file.settings().items()) {
            if (item.reading.key != options.key)
                continue;
            if (found != nullptr)
                return refuse("stands more than once, so its reader fails; keep one of the lines",
                              item.line);
            found = &item;
        }
        if (found == nullptr)
            return refuse("is not in the file");
        return tell(*found);
    }

    Outcome tell(const Item &item) {
        const std::string_view value = item.reading.value;
        if (file.settings().markerOf(item, /* isYes= */ true) == nullptr) {
            if (vek::isInEncryptedForm(value))
                return refuse("is encrypted, but no marker says YES; vekctl protect sets it",
                              item.line);
            return hand(Secret(value));
        }
        const auto session = file.openSession(options.common, item.section, &report);
        if (session == nullptr)
            return Outcome::failed;
        Secret clear;
        const uint32_t reason = session->restore(value.substr(0, SVC_PBE_STORED_LIMIT), &clear);
        if (reason != SVC_PBE_OK)
            return refuse("does not open with " + shown(session->source().describe()) + ": " +
                              svcPBEReasonText(reason),
                          item.line);
        return hand(std::move(clear));
    }

    Outcome hand(Secret value) {
        value.append("\n");
        if (print(value.view()))
            return Outcome::clean;
        return refuse("standard output cannot be written");
    }

    const Options &options;
    Report report;
    LoadedFile file;
};

int get(const Options &options) {
    const KnownKey known = findKey(options.key);
    if (known.isCredential())
        return Get(options).run();
    if (known.key != nullptr) {
        std::cerr << "vekctl: " << shown(options.key) << " is no credential; 'vekctl show "
                  << known.key->section << "' prints it\n";
        return STATUS_USAGE;
    }
    const std::string meant = meantKey(shownKey(options.key));
    std::cerr << "vekctl: that is the key of no credential"
              << (meant.empty() ? "" : "; did you mean '" + meant + "'?")
              << "; see 'vekctl help get'\n";
    return STATUS_USAGE;
}

} // namespace

void addGet(Program &program) {
    const auto options = std::make_shared<Options>();
    Command command(program, "get", "Prints one credential.");
    command.keyOptions(&options->common);
    command.operand("FILE", &options->file, Need::required, "keystore.conf");
    command.operand("KEY", &options->key, Need::required, "the whole key, as pem.password");
    command.work([options] { return get(*options); });
}

} // namespace vekctl
