/** Answers of the service, looked at before anything is done with them. */
#pragma once

#include "tovrelctl/fields.h"
#include "tovrelctl/json.h"

#include <cstddef>
#include <string_view>

namespace tovrelctl {

/** The service makes no longer answers. */
inline constexpr std::size_t LONGEST_ANSWER = 24UL * 1024 * 1024;

/**
 * "data" of an answer.
 *
 * @throws Refused with the service's own message when it is an error, Failure when it is no answer
 */
Json dataOf(std::string_view answer);

// Each of the following throws Failure when the data is not what docs/configuration-api.md
// describes. Members that are unknown here are let through: a later service may have more.

/** An object with all of the fields. */
void requireFields(const json_t *data, Fields fields);

/** An item with its id and all of the fields. */
void requireItem(const json_t *data, Fields fields);

/** An array of items. */
void requireItems(const json_t *data, Fields fields);

/** The whole configuration; whether the prefix of the device must be there, too. */
void requireDocument(const json_t *data, bool withDevicePrefix);

} // namespace tovrelctl
