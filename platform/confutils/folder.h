/** The folder of a file that is replaced: all steps are relative to its descriptor. */
#pragma once

#include "posix/file_descriptor.h"

#include <string>
#include <string_view>

namespace norq::confutils {

/** A path in its two parts. */
struct PathParts {
    std::string folder;
    std::string name;
};

/** Splits a path; throws a StepFailure (EINVAL, EISDIR) when it cannot be the path of a file. */
PathParts splitPath(std::string_view path);

/** Opens a folder for the calls relative to it; throws a StepFailure. */
FileDescriptor openFolder(const std::string &folder);

} // namespace norq::confutils
