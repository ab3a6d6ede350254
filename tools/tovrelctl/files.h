/** The files of export and import. */
#pragma once

#include <cstddef>
#include <string>

namespace tovrelctl {

/** The name that stands for standard input and output. */
inline constexpr const char *STANDARD_STREAM = "-";

/** All of a file, or of standard input. Throws Failure when it cannot be read or has more bytes. */
std::string readWhole(const std::string &file, std::size_t mostBytes);

/**
 * Puts a text into a file, whole or not at all: a new file takes the place of the old one. What is
 * there and is no regular file, a link included, is left alone. Throws Failure.
 */
void replaceFile(const std::string &file, const std::string &text);

} // namespace tovrelctl
