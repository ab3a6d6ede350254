/** Pieces of JSON documents as words in a line for people. */
#pragma once

#include <jansson.h>

#include <string>

namespace norq::tool {

/** A value as JSON, so that texts, numbers and booleans can be told apart. */
std::string valueText(const json_t *value);

/** A name as it is when it is a plain word, otherwise as a JSON text. */
std::string nameText(const char *name);

/** A topic as it is, unless it is empty or would fall apart into several words. */
std::string topicText(const json_t *topic);

} // namespace norq::tool
