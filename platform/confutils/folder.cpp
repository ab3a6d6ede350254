#include "confutils/folder.h"

#include "confutils/step_failure.h"

#include <fcntl.h>

namespace norq::confutils {

PathParts splitPath(std::string_view path)
{
    const auto slash = path.rfind('/');
    PathParts parts;
    if (slash == std::string_view::npos) {
        parts = {".", std::string(path)};
    } else {
        parts = {std::string(slash == 0 ? "/" : path.substr(0, slash)),
                 std::string(path.substr(slash + 1))};
    }
    if (path.empty()) {
        throw StepFailure{"use", EINVAL};
    }
    if (parts.name.empty() || parts.name == "." || parts.name == "..") {
        throw StepFailure{"use", EISDIR};
    }
    return parts;
}

FileDescriptor openFolder(const std::string &folder)
{
    FileDescriptor fd(
        uninterrupted([&] { return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    require(static_cast<bool>(fd), "open the folder of");
    return fd;
}

} // namespace norq::confutils
