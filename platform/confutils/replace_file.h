/** The steps of a durable replacement, in their order. */
#pragma once

#include <string>
#include <string_view>

namespace norq::confutils {

/**
 * Replaces the content of the file at `path`, durably and whole; throws a StepFailure when the old
 * content stays. See confutils_set_file_contents_with_sync_mode().
 */
void replaceFile(std::string_view path, std::string_view contents, unsigned int mode);

/** Removes the temporary files of `path` that nobody is writing; throws a StepFailure. */
void sweepTemporaryFiles(std::string_view path);

} // namespace norq::confutils
