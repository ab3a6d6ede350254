#include "tovrelctl/answer.h"

#include "tovrelctl/failure.h"

#include <string>

namespace tovrelctl {

namespace {

constexpr const char *ADVICE = "Do tovrel and tovrelctl come from the same version?";

[[noreturn]] void reject(const std::string &finding)
{
    throw Failure("tovrel's answer cannot be understood: " + finding, ADVICE);
}

[[noreturn]] void refuse(const json_t *error)
{
    const json_t *const message = json_object_get(error, "message");
    if (!json_is_integer(json_object_get(error, "code")) || !json_is_string(message)) {
        reject("an error without code or message");
    }
    throw Refused(plainText(message));
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
