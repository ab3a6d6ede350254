/** Which texts the library takes. */
#pragma once

#include <jansson.h>

namespace norq::dbh {

/**
 * Whether a text is valid UTF-8 without noncharacters (U+FDD0 and the like). Those are valid
 * Unicode, but not for interchange: sd-bus refuses to send them, so an answer with one would never
 * arrive.
 */
bool isText(const char *text);

/** Whether all texts and field names in a JSON value are such texts. */
bool holdsOnlyTexts(const json_t *json);

} // namespace norq::dbh
