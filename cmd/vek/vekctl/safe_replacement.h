/*
 * safe_replacement.h - gives a file new content: at every moment the old file or the new one is
 * there, whole.
 *
 * Everything happens relative to one open and locked folder, so that nobody who moves folders or
 * links about can lead a step elsewhere. The steps of a change are open, read, and replaceWith or
 * nothing; what became of the file between open and replaceWith is looked at again before the old
 * one goes.
 */
#ifndef VEKCTL_SAFE_REPLACEMENT_H
#define VEKCTL_SAFE_REPLACEMENT_H

#include "shared/locked_directory.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace vekctl {

struct ReplacementRules {
    bool breakLinks = false; // a file with a second hard link is replaced under this name only
    bool dryRun = false;     // nothing is removed and nothing will be replaced
};

// The temporary name beside the file `path`, the same for each run, so that the next one finds it.
[[nodiscard]] std::string temporaryPathOf(const std::string &path);

class SafeReplacement {
public:
    // Follows the symbolic links at the end of `path`, opens and locks the folder of the file that
    // they lead to, removes what a killed run left there, and opens the file.
    [[nodiscard]] bool open(const std::string &path, const ReplacementRules &rules);

    // Bytes of the file as they were at opening.
    [[nodiscard]] size_t size() const;

    // Whether `path` leads to the file that was opened.
    [[nodiscard]] bool isFile(const std::string &path) const;

    // Reads the file; `content` has its size.
    [[nodiscard]] bool read(std::span<char> content);

    // Puts a new file with this content, and with owner, group, mode and extended attributes
    // (access lists among them) of the old one, in the old one's place. A signal that ends the
    // program waits for the end of a step; the old file is then kept, and the temporary one
    // removed.
    [[nodiscard]] bool replaceWith(std::string_view content);

    // Why the last step failed: what happened, and what to do; without the name of the file.
    [[nodiscard]] const std::string &problem() const {
        return failure;
    }

private:
    [[nodiscard]] bool fail(std::string problem);
    [[nodiscard]] bool failWith(int error, const char *step);
    [[nodiscard]] bool followLinks();
    [[nodiscard]] bool openFolder();
    [[nodiscard]] bool openFile(bool breakLinks);
    [[nodiscard]] bool build(std::string_view content);
    [[nodiscard]] bool write(std::string_view content);
    [[nodiscard]] bool verify(std::string_view content);
    [[nodiscard]] bool copyAttributes();
    [[nodiscard]] bool checkUnchanged();
    [[nodiscard]] bool putInPlace();

    std::string filePath; // of the file itself, no link
    std::string temporaryPath;
    std::optional<replacement::LockedDirectory> folder;
    ztm::Descriptor file;
    ztm::Descriptor temporary;
    struct stat opened = {}; // of the file at opening
    std::string failure;
};

} // namespace vekctl

#endif
