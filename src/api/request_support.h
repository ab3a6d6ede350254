/** What the request handlers share: the bridge behind a request, texts of values, failures. */
#pragma once

#include <norq/dbh.h>

#include <cstdint>
#include <functional>
#include <string>

namespace tovrel {

class BaseEventBridge;

namespace api {

/** The bridge that the configuration API was created with; throws EventBridgeException for none. */
BaseEventBridge &bridgeOf(void *userData);

/** "QOS_0", "QOS_1" or, for every other number, "QOS_2". */
const char *qosText(std::int32_t qos);

/** 0 and 1 for their texts, 2 for every other. */
std::int32_t qosOf(const std::string &text);

/** A topic prefix setting as the API has it: "none" for the empty text. */
std::string prefixSettingText(const std::string &stored);

/** A topic prefix setting as it is stored: the empty text for "none". */
std::string prefixSettingOf(const std::string &text);

/** Throws unless the text fits into one line of a configuration file. */
void requireOneLine(const std::string &text);

/** The value of a field, or `missing` when the request does not have the field (null). */
std::string valueOr(const dbh_string_t *field, const std::string &missing);
bool valueOr(const dbh_boolean_t *field, bool missing);

/**
 * Sets a field of an answer. A failure is logged as "REASON: ..." and stays in the slot, where it
 * makes the request fail.
 */
void fill(dbh_string_t *field, const std::string &value, const char *reason,
          dbh_api_error_t **error);
void fill(dbh_boolean_t *field, bool value, const char *reason, dbh_api_error_t **error);

/**
 * Runs the body of a handler; any exception becomes an internal error with this text, unless an
 * error is in the slot already.
 */
void orInternalError(const char *text, dbh_api_error_t **error,
                     const std::function<void()> &body) noexcept;

} // namespace api

} // namespace tovrel
