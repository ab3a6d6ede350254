/** Stands in for the configuration-file helper: keeps contents in memory. Not thread-safe. */
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace tovrel::test {

/** A file as it was last written. */
struct FakeFile {
    std::string contents;
    int mode = 0;
};

/** The scripted helper. Its calls are recorded as "confutils_... PATH". */
struct FakeConfutils {
    /** Files that were written, by path. */
    std::map<std::string, FakeFile> files;
    /** Message of a failure that failCall() asks for; none: the error stays unset. */
    std::optional<std::string> failureMessage = "Failed to write";
    /** Called when a file is to be written, before anything else. */
    std::function<void()> onWrite;
};

/** The one helper of the process. */
FakeConfutils &fakeConfutils();

} // namespace tovrel::test
