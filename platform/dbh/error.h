/** Telling the program that uses the library what failed. */
#pragma once

#include <norq/dbh_error.h>

namespace norq::dbh {

/** Sets `error`, unless it is NULL, to a failure with a message. */
void reportFailure(dbh_error_t **error, const char *format, ...) noexcept G_GNUC_PRINTF(2, 3);

} // namespace norq::dbh
