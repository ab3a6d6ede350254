/** Looking at JSON values without changing them. */
#pragma once

#include <jansson.h>

namespace norq::dbh {

/** Name of the first field of an object that is not in a list ended by NULL; NULL when all are. */
const char *firstUnexpectedField(const json_t *object, const char *const *allowedNames);

/** Whether a text is in a list ended by NULL. */
bool isOneOf(const char *text, const char *const *list);

} // namespace norq::dbh
