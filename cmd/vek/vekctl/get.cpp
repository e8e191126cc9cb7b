/*
 * get.cpp - the command that prints one credential, also where its reader would fail.
 */
#include "vekctl/commands.h"
#include "vekctl/credential_lines.h"
#include "vekctl/error_text.h"
#include "vekctl/loaded_file.h"

#include "shared/line_words.h"
#include "shared/new_bytes.h"

#include <memory>
#include <unistd.h>

namespace vekctl {

namespace {

struct Options {
    CommonOptions common;
    std::string file;
    std::string key;
};

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
                return refuse(textOf(duplicateKey(item.line, options.key, found->line)), item.line);
            found = &item;
        }
        if (found == nullptr)
            return refuse("is not in the file for its reader; vekctl set stores it, and vekctl "
                          "check tells why a line that is meant so does not count");
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
            return refuse("does not open with " + session->source().describe() + ": " +
                              svcPBEReasonText(reason) +
                              (reason == SVC_PBE_AUTHENTICATION_FAILED
                                   ? "; name the right key with --key"
                                   : "; vekctl check tells more"),
                          item.line);
        return hand(std::move(clear));
    }

    Outcome hand(Secret value) {
        value.append("\n");
        // Written directly: a stream would keep a copy.
        if (const int error = replacement::writeBytes(STDOUT_FILENO, value.view()); error != 0)
            return refuse("standard output cannot be written: " + errorText(error));
        return Outcome::clean;
    }

    const Options &options;
    Report report;
    LoadedFile file;
};

} // namespace

void addGet(Command &command) {
    const auto options = std::make_shared<Options>();
    command.keyOptions(&options->common);
    command.operand("FILE", &options->file, Need::required, "keystore.conf");
    command.operand("KEY", &options->key, Need::required, "the whole key, as pem.password");
    command.work([options] {
        (void)credentialCalled(options->key);
        return Get(*options).run();
    });
}

} // namespace vekctl
