/** A file that tests save, in a fresh folder, and what can be seen of it from outside. */
#pragma once

#include "support/temp_directory.h"

#include <glib.h>

#include <string>
#include <vector>

/** The file "saved.conf" alone in a folder. */
class SavedFile {
public:
    /** Without the file at first, or with `content` in mode 0640. */
    SavedFile() = default;
    explicit SavedFile(const std::string &content);

    /** Path of the file. */
    [[nodiscard]] std::string path() const { return directory.file("saved.conf"); }
    /** The folder. */
    [[nodiscard]] const std::string &folder() const { return directory.path(); }
    /** Path of another file in the folder. */
    [[nodiscard]] std::string other(const std::string &name) const { return directory.file(name); }
    /** Whole content; "(absent)" when there is no file. */
    [[nodiscard]] std::string content() const;
    /** Permission bits of the file, -1 when there is none. */
    [[nodiscard]] int mode() const;
    /** Names of everything else in the folder. */
    [[nodiscard]] std::vector<std::string> otherNames() const;

private:
    test_support::TempDirectory directory;
};

/** What SavedFile::content() gives when there is no file. */
inline constexpr const char *ABSENT = "(absent)";

/** The mode that services use for their files. */
inline constexpr int CONFIGURATION_MODE = 0640;

/** Writes a file by plain means, in mode 0640 whatever the umask is. */
void writePlainly(const std::string &path, const std::string &content);

/** What writePlainly() wrote, or whoever else. */
std::string readWhole(const std::string &path);

/** A GError that a test looks at. */
struct ErrorRecord {
    ErrorRecord() = default;
    ErrorRecord(const ErrorRecord &) = delete;
    ErrorRecord &operator=(const ErrorRecord &) = delete;
    ~ErrorRecord() { g_clear_error(&error); }

    /** Message, empty without an error. */
    [[nodiscard]] std::string message() const { return error != nullptr ? error->message : ""; }

    GError *error = nullptr;
};
