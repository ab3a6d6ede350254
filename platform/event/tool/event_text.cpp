#include "event/tool/event_text.h"

#include "event/tool/failure.h"
#include "event/tool/handles.h"
#include "event/tool/json_text.h"

namespace norq::tool {

namespace {

std::string itemsText(json_t *items)
{
    std::string text;
    const char *name = nullptr;
    json_t *value = nullptr;
    json_object_foreach(items, name, value)
    {
        text += text.empty() ? "" : " ";
        text += nameText(name) + "=" + valueText(value);
    }
    return text;
}

} // namespace

std::string eventLine(const char *document)
{
    const Json root(json_loads(document, 0, nullptr));
    const char *time = json_string_value(json_object_get(root.get(), "UtcTime"));
    const json_t *topic = json_object_get(root.get(), "Topic");
    if (time == nullptr || !json_is_string(topic)) {
        throw Failure("an event has no readable document");
    }
    std::string line = std::string(time) + ' ' + topicText(topic);
    if (const char *operation =
            json_string_value(json_object_get(root.get(), "PropertyOperation"))) {
        line += std::string(" ") + operation;
    }
    for (const char *part : {"Source", "Key", "Data"}) {
        json_t *items = json_object_get(root.get(), part);
        if (json_object_size(items) > 0) {
            line += std::string(" ") + part + '(' + itemsText(items) + ')';
        }
    }
    return line;
}

} // namespace norq::tool
