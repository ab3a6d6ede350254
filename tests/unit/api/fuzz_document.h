/** What an import makes of a configuration, worked out on its document alone. */
#pragma once

#include "support/served_api.h"

#include <string>
#include <string_view>

namespace tovrel::test {

/** The data of an answer; ends the process when it is an error. */
OwnedJson dataOf(const std::string &answer);

std::string textOf(const OwnedJson &document);

/** Ends the process, with both texts, unless two documents are equal, lists in their order too. */
void requireEqual(const OwnedJson &document, const OwnedJson &expected, const char *what);

/** The document that exports of a configuration give after the import of another document. */
OwnedJson imported(const OwnedJson &before, std::string_view document);

} // namespace tovrel::test
