/** What the tool writes. */
#pragma once

#include "tovrelctl/json.h"

#include <cstddef>
#include <string>

namespace tovrelctl {

/**
 * Writes a value to standard output as JSON for programs; to a terminal, with escapes for what is
 * not printable. Throws as command_line::print().
 */
void printJson(const json_t *value);

/**
 * Writes a text of others, and a line feed, to standard output: as it stands to a file or a pipe,
 * printable() to a terminal.
 */
void printText(const std::string &text);

/** The columns of the terminal that is standard output; no limit when it is none. */
std::size_t outputWidth();

/** Writes a line to standard error, with the tool's name in front; the text is made printable. */
void complain(const std::string &text);

/** Writes lines of our own to standard error; nothing when there are none. */
void advise(const std::string &lines);

} // namespace tovrelctl
