#include "event/tool/declaration_text.h"

#include "event/json_topic.h"
#include "event/tool/failure.h"
#include "event/tool/handles.h"
#include "event/tool/json_text.h"
#include "event/tool/topic.h"

#include <map>
#include <string_view>

namespace norq::tool {

namespace {

/** A text member, `missing` when it is not there. */
const char *member(const json_t *object, const char *name, const char *missing)
{
    const char *text = json_string_value(json_object_get(object, name));
    return text != nullptr ? text : missing;
}

json::TopicText topicOf(const json_t *keys)
{
    std::map<std::string, const json_t *> byName;
    std::size_t index = 0;
    const json_t *key = nullptr;
    json_array_foreach(keys, index, key)
    {
        byName.emplace(member(key, "key", ""), key);
    }
    json::TopicText topic;
    for (std::size_t level = 0;; ++level) {
        const auto found = byName.find(topicKey(level));
        const char *name =
            found != byName.end() ? member(found->second, "value", nullptr) : nullptr;
        if (name == nullptr) {
            return topic;
        }
        topic.add(member(found->second, "namespace", ""), name);
    }
}

std::string tagsText(const json_t *tags)
{
    std::string text;
    std::size_t index = 0;
    const json_t *tag = nullptr;
    json_array_foreach(tags, index, tag)
    {
        text += (text.empty() ? "" : " ") + nameText(json_string_value(tag));
    }
    return text.empty() ? text : " [" + text + "]";
}

std::string keyLine(const json_t *key)
{
    std::string line = "  " + nameText(member(key, "key", ""));
    const std::string nameSpace = member(key, "namespace", "");
    if (!nameSpace.empty()) {
        line += '@' + nameSpace;
    }
    line += std::string(" ") + member(key, "type", "?");
    if (const json_t *value = json_object_get(key, "value")) {
        line += " = " + valueText(value);
    }
    line += json_is_true(json_object_get(key, "state")) ? ", state" : "";
    return line + tagsText(json_object_get(key, "tags")) + '\n';
}

std::string traitsText(const json_t *declaration)
{
    std::string text;
    for (const char *trait : {"property", "held", "internal"}) {
        if (json_is_true(json_object_get(declaration, trait))) {
            text += std::string(text.empty() ? "" : ", ") + trait;
        }
    }
    return text.empty() ? text : " (" + text + ")";
}

std::string declarationBlock(const json_t *declaration)
{
    const json_t *keys = json_object_get(declaration, "keys");
    const json::TopicText topic = topicOf(keys);
    const Json topicValue(json_string(topic.get().c_str()));
    const auto id = json_integer_value(json_object_get(declaration, "id"));
    std::string block = nameText(member(declaration, "client", "")) + ' ' + std::to_string(id) +
                        ": " + topicText(topicValue.get()) + traitsText(declaration) + '\n';
    std::size_t index = 0;
    const json_t *key = nullptr;
    json_array_foreach(keys, index, key)
    {
        const bool tagged = json_array_size(json_object_get(key, "tags")) > 0;
        if (tagged || !topic.contains(member(key, "key", ""))) {
            block += keyLine(key);
        }
    }
    return block;
}

} // namespace

std::string declarationLines(const std::string &document)
{
    const Json root(json_loadb(document.data(), document.size(), 0, nullptr));
    if (!json_is_array(root.get())) {
        throw Failure("the event service gave an unreadable list of declarations");
    }
    std::string lines;
    std::size_t index = 0;
    const json_t *declaration = nullptr;
    json_array_foreach(root.get(), index, declaration)
    {
        lines += declarationBlock(declaration);
    }
    return lines;
}

} // namespace norq::tool
