/** What the wrapped key file functions shall claim. */
#pragma once

#include <glib.h>

#include <optional>

namespace tovrel::test {

/** The length that g_key_file_to_data() gives, whatever it is; none: the true one. */
std::optional<gsize> &claimedLength();

} // namespace tovrel::test
