/** A folder of the test process for configuration files, in the place of the real one. */
#pragma once

#include <filesystem>
#include <string>

namespace tovrel::test {

/** The folder, made at the first call and removed when the process ends. */
const std::filesystem::path &configFolder();

/** Removes everything in the folder. */
void emptyConfigFolder();

/** Writes a file anew. */
void writeFile(const std::filesystem::path &path, const std::string &contents);

} // namespace tovrel::test
