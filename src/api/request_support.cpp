#include "api/request_support.h"

#include "interfaces/exceptions.h"
#include "interfaces/log.h"

namespace tovrel::api {

namespace {

void logFailedFill(const char *reason, const dbh_api_error_t *error)
{
    tovrel_log(LOG_LEVEL_PROGRESS, "%s%s: %s", LOG_PREFIX, reason, dbh_api_error_message(error));
}

} // namespace

BaseEventBridge &bridgeOf(void *userData)
{
    if (userData == nullptr) {
        throw EventBridgeException("event bridge is null");
    }
    return *static_cast<BaseEventBridge *>(userData);
}

const char *qosText(std::int32_t qos)
{
    switch (qos) {
    case 0:
        return "QOS_0";
    case 1:
        return "QOS_1";
    default:
        return "QOS_2";
    }
}

std::int32_t qosOf(const std::string &text)
{
    if (text == "QOS_0") {
        return 0;
    }
    return text == "QOS_1" ? 1 : 2;
}

std::string prefixSettingText(const std::string &stored)
{
    return stored.empty() ? "none" : stored;
}

std::string prefixSettingOf(const std::string &text)
{
    return text == "none" ? std::string() : text;
}

void requireOneLine(const std::string &text)
{
    if (text.find('\n') != std::string::npos) {
        throw SubscribeConfigException("The text does not fit into a line");
    }
}

std::string valueOr(const dbh_string_t *field, const std::string &missing)
{
    return field == nullptr ? missing : dbh_string_value(field);
}

bool valueOr(const dbh_boolean_t *field, bool missing)
{
    return field == nullptr ? missing : dbh_boolean_value(field);
}

void fill(dbh_string_t *field, const std::string &value, const char *reason,
          dbh_api_error_t **error)
{
    if (!dbh_string_set(field, value.c_str(), error)) {
        logFailedFill(reason, *error);
    }
}

void fill(dbh_boolean_t *field, bool value, const char *reason, dbh_api_error_t **error)
{
    if (!dbh_boolean_set(field, value, error)) {
        logFailedFill(reason, *error);
    }
}

void orInternalError(const char *text, dbh_api_error_t **error,
                     const std::function<void()> &body) noexcept
{
    try {
        body();
    } catch (...) {
        if (*error == nullptr) {
            dbh_api_error_new(error, DBH_ERROR_INTERNAL, "%s", text);
        }
    }
}

} // namespace tovrel::api
