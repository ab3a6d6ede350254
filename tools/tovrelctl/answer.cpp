#include "tovrelctl/answer.h"

#include "tovrelctl/failure.h"

#include <string>

namespace tovrelctl {

namespace {

constexpr const char *ADVICE = "Do tovrel and tovrelctl come from the same version?";
/** The code of an error that the request has not caused. */
constexpr json_int_t FAILED_ITSELF = 0;
constexpr std::string_view PROPERTY = "Property ";
constexpr std::string_view INVALID_KEY = "Got invalid key to ";

[[noreturn]] void reject(const std::string &finding)
{
    throw Failure("tovrel's answer cannot be understood: " + finding, ADVICE);
}

/** The name of the property that a message of the service's library is about. */
std::string propertyIn(const std::string &message)
{
    if (!message.starts_with(PROPERTY)) {
        return {};
    }
    const std::size_t end = message.find(':');
    return end == std::string::npos ? std::string()
                                    : message.substr(PROPERTY.size(), end - PROPERTY.size());
}

/**
 * What cures an error of the service that has nothing to do with the request. Its files, and
 * clients that do not come through this API, may have given it texts that it cannot tell.
 */
std::string remedyOf(const std::string &message)
{
    const std::string property = propertyIn(message);
    if (property == SETTINGS.front().name) {
        return "tovrel takes what is stored for \"default\". This makes it so: "
               "tovrelctl set topicPrefix default";
    }
    if (findField(SETTINGS, property) != nullptr) {
        return "Give it another value: tovrelctl set " + property + " VALUE";
    }
    if (!property.empty()) {
        return "A file in /etc/tovrel has it. Take the item out by the id that stands there:\n"
               "tovrelctl subscription remove ID, or tovrelctl filter remove ID";
    }
    if (message.starts_with(INVALID_KEY)) {
        return "A file in /etc/tovrel has it: systemctl stop tovrel, and mend the file.";
    }
    return {};
}

[[noreturn]] void refuse(const json_t *error)
{
    const json_t *const code = json_object_get(error, "code");
    const json_t *const message = json_object_get(error, "message");
    if (!json_is_integer(code) || !json_is_string(message)) {
        reject("an error without code or message");
    }
    const std::string text = plainText(message);
    const bool isOfService = json_integer_value(code) == FAILED_ITSELF;
    throw Refused(text, isOfService ? remedyOf(text) : "");
}

void requireField(const json_t *data, const Field &field)
{
    const json_t *const value = json_object_get(data, field.name);
    if (value == nullptr) {
        reject(std::string(field.name) + " is missing");
    }
    if (!fits(field, value)) {
        reject(std::string(field.name) + " is not " + expectation(field));
    }
}

} // namespace

Json dataOf(std::string_view answer)
{
    if (answer.size() > LONGEST_ANSWER) {
        reject("it is longer than 24 MiB");
    }
    json_error_t failure;
    const Json parsed(json_loadb(answer.data(), answer.size(), JSON_REJECT_DUPLICATES, &failure));
    if (!parsed) {
        reject(std::string("no JSON: ") + failure.text);
    }
    if (const json_t *const error = json_object_get(parsed.get(), "error")) {
        refuse(error);
    }
    json_t *const data = json_object_get(parsed.get(), "data");
    if (data == nullptr) {
        reject("neither data nor an error");
    }
    return share(data);
}

void requireFields(const json_t *data, Fields fields)
{
    if (!json_is_object(data)) {
        reject("an object is missing");
    }
    for (const Field &field : fields) {
        requireField(data, field);
    }
}

void requireItem(const json_t *data, Fields fields)
{
    requireFields(data, fields);
    requireField(data, ID);
}

void requireItems(const json_t *data, Fields fields)
{
    if (!json_is_array(data)) {
        reject("a list is missing");
    }
    for (const json_t *item : valuesOf(data)) {
        requireItem(item, fields);
    }
}

void requireDocument(const json_t *data, bool withDevicePrefix)
{
    requireFields(data, {});
    if (withDevicePrefix) {
        requireField(data, DEVICE_TOPIC_PREFIX);
    }
    requireItems(json_object_get(data, "subscription"), SUBSCRIPTION_FIELDS);
    const json_t *const publication = json_object_get(data, "publication");
    requireFields(publication, SETTINGS);
    requireItems(json_object_get(publication, "eventFilter"), FILTER_FIELDS);
}

} // namespace tovrelctl
