/** Standard output. */
#pragma once

#include "tovrelctl/json.h"

#include <string>

namespace tovrelctl {

/** Writes a text as it stands. Throws Failure when it cannot be written. */
void print(const std::string &text);

/** Writes a value as JSON for programs. */
void printJson(const json_t *value);

} // namespace tovrelctl
