// What protect must make of the text of a file. The readers of the library are the judges: whatever
// they handed out before, they hand out afterwards, and after a run of runvekcred behind it;
// nothing is left in clear, check finds no error in what protect has to do with, and a second run
// changes nothing. Or the file is refused with a reason.
#ifndef PROTECTION_JUDGE_H
#define PROTECTION_JUDGE_H

#include "runvekcred/copy_lines.h"
#include "runvekcred/credential_line.h"
#include "support/reader_judge.h"
#include "vekctl/protect.h"
#include "vekctl/verdict.h"

#include <map>

// All readers of sections and channels that a file has.
inline std::vector<vekctl::ReaderName> readersOf(std::string_view text) {
    vekctl::FileText lines;
    lines.take(vekctl::Secret(text));
    vekctl::Keystore keystore;
    for (vekctl::Line line; lines.next(&line);)
        keystore.add(line, vekctl::readLine(line));
    return keystore.readers();
}

inline std::vector<vekctl::Finding> findingsIn(std::string_view text, vekctl::KeyRing &keys) {
    vekctl::FileText content;
    content.take(vekctl::Secret(text));
    return vekctl::judge(content, keys, {}).findings;
}

class ProtectionJudge {
public:
    enum class Outcome { refused, changed, kept };

    // Result: what is wrong about it, or "".
    std::string judge(const std::string &text, Outcome *outcome) {
        std::string reason;
        if (!protect(text, &after, &reason)) {
            *outcome = Outcome::refused;
            return reason.empty() ? "refused without a reason and its line" : "";
        }
        *outcome = after == text ? Outcome::kept : Outcome::changed;
        const Passwords now = passwordsIn(after);
        // Handed out as it is stored: nobody can want that.
        for (const auto &[reader, password] : passwordsIn(text))
            if (!password.starts_with(vek::LABEL) &&
                (!now.contains(reader) || now.at(reader) != password))
                return reader + " gets another one in\n" + after;
        for (const auto &[reader, password] : now)
            if (password.starts_with(vek::LABEL))
                return reader + " gets an encrypted one in\n" + after;
        if (const std::string errors = errorsIn(after); !errors.empty())
            return errors + "in\n" + after;
        const std::string behind = rewritten(after);
        if (passwordsIn(behind) != now)
            return "another one after runvekcred:\n" + behind;
        std::string again;
        return protect(after, &again, &reason) && again == after ? ""
                                                                 : "not done in one run:\n" + again;
    }

    std::string after; // what protect made of the last one that was not refused

private:
    using Passwords = std::map<std::string, std::string>; // of the readers that succeed

    bool protect(const std::string &text, std::string *result, std::string *reason) {
        vekctl::FileText content;
        content.take(vekctl::Secret(text));
        vekctl::CredentialLines lines;
        if (!lines.take(std::move(content))) {
            *reason = lines.problem().text;
            return false;
        }
        vekctl::ChangePlan plan(lines, session);
        const bool isPlanned = planProtection(lines, &plan, &session);
        const vekctl::Secret made = isPlanned ? plan.text() : vekctl::Secret();
        result->assign(made.view());
        const bool isDone = isPlanned && plan.prove(made);
        // A plan that is not proved is a fault, but for a file that has nothing else.
        const bool isFault =
            isPlanned && plan.problem().text.find("nothing but") == std::string::npos;
        *reason = isDone || isFault || plan.problem().line == 0 ? "" : plan.problem().text;
        return isDone;
    }

    [[nodiscard]] Passwords passwordsIn(const std::string &text) const {
        Passwords passwords;
        if (!file.write(text))
            return {{"no file", ""}};
        for (const vekctl::ReaderName &reader : readersOf(text)) {
            ReaderJudge judge(file.path.c_str());
            judge.ask(reader.section, reader.isOfChannel ? reader.channel.c_str() : nullptr);
            if (!judge.credential.empty())
                passwords[std::string(reader.section) + " " + reader.channel] = judge.credential;
        }
        return passwords;
    }

    // All errors about credentials and markers, but what a reader says of other keys. A line that
    // the readers take for something else is left as it is, and protect says so.
    std::string errorsIn(const std::string &text) {
        std::string errors;
        for (const vekctl::Finding &finding : findingsIn(text, keys))
            if (finding.level == vekctl::Level::error && finding.line != 0 &&
                finding.code != vekctl::Code::notText &&
                vekctl::findKey(finding.key).credential != nullptr)
                errors += std::string(kindOf(finding.code).name) + " " + finding.key + "\n";
        return errors;
    }

    // The text behind a run of runvekcred with the same key.
    std::string rewritten(std::string text) {
        runvekcred::forgetMarkers();
        FILE *const input = fmemopen(text.data(), text.size(), "r");
        char *result = nullptr;
        size_t length = 0;
        FILE *const output = open_memstream(&result, &length);
        int readError = 0;
        (void)runvekcred::rewriteLines(input, output, session.record(), nullptr, &readError);
        (void)fclose(input);
        (void)fclose(output);
        const std::string behind(result, length);
        free(result);
        return behind;
    }

    FileInMemory file;
    vekctl::CipherSession session{vekctl::KeySource{}, /* fips= */ false};
    vekctl::KeyRing keys{/* withFips= */ false};
};

#endif
