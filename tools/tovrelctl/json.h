/** JSON values on Jansson, owned, with failures as exceptions. */
#pragma once

#include <jansson.h>

#include <memory>
#include <string>
#include <vector>

namespace tovrelctl {

/** Lets go of one reference. A type, since Jansson's function is a different one in every file. */
struct ReleaseJson {
    void operator()(json_t *value) const noexcept { json_decref(value); }
};

/** One reference to a JSON value; null is "no value". */
using Json = std::unique_ptr<json_t, ReleaseJson>;

/** Takes over a new value. Throws std::bad_alloc: all texts here are checked for UTF-8 before. */
Json owned(json_t *value);

/** One more reference to a value, which may be null. */
Json share(json_t *value);

/** A text, which must be valid UTF-8, as a value. */
Json textValue(const std::string &text);

/** Puts a value into an object, replacing one of the same name. */
void put(json_t *object, const char *name, Json value);

/** Puts a value at the end of an array. */
void append(json_t *array, Json value);

/** A member's text; "" when it is missing or no text. */
std::string textOf(const json_t *object, const char *name);

/** The values of an array; none when it is no array. Borrowed. */
std::vector<const json_t *> valuesOf(const json_t *array);

/** A member's truth; false when it is missing. */
bool isTrue(const json_t *object, const char *name);

/** The value as text: a text as it stands, anything else as JSON. */
std::string plainText(const json_t *value);

/** A value as JSON text; with line breaks and indentation when `pretty`. */
std::string dump(const json_t *value, bool pretty);

} // namespace tovrelctl
