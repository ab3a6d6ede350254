#include "tovrelctl/fields.h"

#include "command_line/usage_error.h"

#include <algorithm>
#include <string_view>

namespace tovrelctl {

namespace {

using command_line::UsageError;

constexpr std::array<std::string_view, 4> TRUE_WORDS{"true", "yes", "on", "1"};
constexpr std::array<std::string_view, 4> FALSE_WORDS{"false", "no", "off", "0"};

bool isChoice(const Field &field, std::string_view text)
{
    return std::ranges::any_of(
        field.choices, [text](const char *choice) { return choice != nullptr && text == choice; });
}

std::string settingNames()
{
    std::string names;
    for (const Field &field : SETTINGS) {
        names += (names.empty() ? "" : ", ") + std::string(field.name);
    }
    return names;
}

bool parseTruth(const std::string &name, const std::string &text)
{
    if (std::ranges::find(TRUE_WORDS, text) != TRUE_WORDS.end()) {
        return true;
    }
    if (std::ranges::find(FALSE_WORDS, text) != FALSE_WORDS.end()) {
        return false;
    }
    throw UsageError(name + ": '" + text + "' is neither yes nor no");
}

} // namespace

const Field *findField(Fields fields, std::string_view name)
{
    const auto found = std::ranges::find(fields, name, &Field::name);
    return found == fields.end() ? nullptr : &*found;
}

const Field &settingOf(const std::string &name)
{
    if (const Field *const field = findField(SETTINGS, name)) {
        return *field;
    }
    if (name == DEVICE_TOPIC_PREFIX.name) {
        throw UsageError(name + " can only be read");
    }
    throw UsageError("unknown setting '" + name + "', expected one of " + settingNames());
}

const Field &readableOf(const std::string &name)
{
    if (name == DEVICE_TOPIC_PREFIX.name) {
        return DEVICE_TOPIC_PREFIX;
    }
    if (const Field *const field = findField(SETTINGS, name)) {
        return *field;
    }
    throw UsageError("unknown setting '" + name + "', expected one of " + settingNames() + ", " +
                     DEVICE_TOPIC_PREFIX.name);
}

Json parseValue(const Field &field, const std::string &name, const std::string &text)
{
    switch (field.kind) {
    case Kind::TEXT:
        return textValue(text);
    case Kind::TRUTH:
        return owned(json_boolean(parseTruth(name, text)));
    case Kind::CHOICE:
        break;
    }
    if (!isChoice(field, text)) {
        throw UsageError(name + ": '" + text + "' is not " + expectation(field));
    }
    return textValue(text);
}

Json parseQos(const std::string &text)
{
    if (text.size() != 1 || text < "0" || text > "2") {
        throw UsageError("--qos: '" + text + "' is not 0, 1 or 2");
    }
    return textValue("QOS_" + text);
}

bool fits(const Field &field, const json_t *value)
{
    switch (field.kind) {
    case Kind::TEXT:
        return json_is_string(value);
    case Kind::TRUTH:
        return json_is_boolean(value);
    case Kind::CHOICE:
        break;
    }
    return json_is_string(value) && isChoice(field, json_string_value(value));
}

std::string expectation(const Field &field)
{
    switch (field.kind) {
    case Kind::TEXT:
        return "a text";
    case Kind::TRUTH:
        return "true or false";
    case Kind::CHOICE:
        break;
    }
    std::string all;
    for (const char *choice : field.choices) {
        if (choice != nullptr) {
            all += (all.empty() ? "" : ", ") + std::string(choice);
        }
    }
    return "one of " + all;
}

} // namespace tovrelctl
