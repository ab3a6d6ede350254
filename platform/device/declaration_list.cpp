#include "device/declaration_list.h"

#include "device/status_topic.h"

#include <jansson.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace norq::device {

namespace {

using Json = std::unique_ptr<json_t, decltype(&json_decref)>;

bool hasText(const json_t *object, const char *member, const char *text)
{
    const char *value = json_string_value(json_object_get(object, member));
    return value != nullptr && std::strcmp(value, text) == 0;
}

bool hasTopicLevel(const json_t *declaration, const TopicLevel &level)
{
    const json_t *keys = json_object_get(declaration, "keys");
    for (std::size_t i = 0; i < json_array_size(keys); ++i) {
        const json_t *key = json_array_get(keys, i);
        if (hasText(key, "key", level.key) && hasText(key, "value", level.value)) {
            return true;
        }
    }
    return false;
}

bool isHeldStatus(const json_t *declaration)
{
    return json_is_true(json_object_get(declaration, "held")) &&
           std::ranges::all_of(STATUS_TOPIC, [&](const TopicLevel &level) {
               return hasTopicLevel(declaration, level);
           });
}

} // namespace

bool holdsClientStatus(const char *list)
{
    const Json declarations(json_loads(list, JSON_REJECT_DUPLICATES, nullptr), json_decref);
    for (std::size_t i = 0; i < json_array_size(declarations.get()); ++i) {
        if (isHeldStatus(json_array_get(declarations.get(), i))) {
            return true;
        }
    }
    return false;
}

} // namespace norq::device
