/** The events that the faked library delivers, and how they are read. */
#include "fakes/fake_event_base.h"
#include "fakes/fake_event_consumer.h"
#include "fakes/fake_event_consumer_state.h"

#include <cstring>
#include <string_view>
#include <unordered_map>

using namespace tovrel::test;

namespace {

struct ReceivedEvent : event {
    explicit ReceivedEvent(FakeReceivedEvent received) : content(std::move(received))
    {
        ++fakeConsumerState().livingEvents;
        for (const auto &item : content.items) {
            byName.emplace(item.name, &item);
        }
    }
    ReceivedEvent(const ReceivedEvent &) = delete;
    ReceivedEvent &operator=(const ReceivedEvent &) = delete;
    ~ReceivedEvent() override { --fakeConsumerState().livingEvents; }

    const FakeItem *find(const char *key) const
    {
        const auto found = byName.find(key);
        return found == byName.end() ? nullptr : found->second;
    }
    const FakeItem *at(unsigned int index) const
    {
        return index < content.items.size() ? &content.items[index] : nullptr;
    }

    FakeReceivedEvent content;
    std::unordered_map<std::string_view, const FakeItem *> byName; // points into content
};

const ReceivedEvent &received(const event_t *event)
{
    return static_cast<const ReceivedEvent &>(*event);
}

} // namespace

struct json_options {
    std::string onvifName = "tns1";
    std::string norqName = "tnsnorq";
    std::optional<std::string> serialNumber;
};

namespace tovrel::test {

event_t *newFakeEvent(const FakeReceivedEvent &event)
{
    return new ReceivedEvent(event);
}

} // namespace tovrel::test

const char *event_get_value(const event_t *event, const char *key)
{
    const bool good = beginCall("event_get_value", {key});
    const FakeItem *const item = received(event).find(key);
    return item == nullptr || !good ? nullptr : item->value.c_str();
}

const char *event_get_name_space(const event_t *event, const char *key)
{
    const bool good = beginCall("event_get_name_space", {key});
    const FakeItem *const item = received(event).find(key);
    return item == nullptr || !item->nameSpace || !good ? nullptr : item->nameSpace->c_str();
}

unsigned int event_get_key_count(const event_t *event)
{
    beginCall("event_get_key_count");
    return static_cast<unsigned int>(received(event).content.items.size());
}

const char *event_get_key_at(const event_t *event, unsigned int index)
{
    const bool good = beginCall("event_get_key_at", index);
    const FakeItem *const item = received(event).at(index);
    return item == nullptr || !good ? nullptr : item->name.c_str();
}

const char *event_get_value_at(const event_t *event, unsigned int index)
{
    const bool good = beginCall("event_get_value_at", index);
    const FakeItem *const item = received(event).at(index);
    return item == nullptr || !good ? nullptr : item->value.c_str();
}

GList *event_get_tags_at(const event_t *event, unsigned int index)
{
    const bool good = beginCall("event_get_tags_at", index);
    const FakeItem *const item = received(event).at(index);
    GList *tags = nullptr;
    if (item == nullptr || !good) {
        return tags;
    }
    for (auto tag = item->tags.rbegin(); tag != item->tags.rend(); ++tag) {
        tags = g_list_prepend(tags, g_strdup(tag->c_str()));
    }
    return tags;
}

int event_is_property(const event_t *event)
{
    return beginCall("event_is_property") && received(event).content.isProperty ? 1 : 0;
}

int event_is_internal(const event_t *event)
{
    const bool good = beginCall("event_is_internal");
    if (received(event).content.onInternalCheck) {
        received(event).content.onInternalCheck();
    }
    return good && received(event).content.isInternal ? 1 : 0;
}

json_options_t *json_options_new(void)
{
    if (!beginCall("json_options_new")) {
        return nullptr;
    }
    ++fakeConsumerState().livingJsonOptions;
    return new json_options;
}

void json_options_free(json_options_t *options)
{
    if (options != nullptr) {
        beginCall("json_options_free");
        --fakeConsumerState().livingJsonOptions;
    }
    delete options;
}

void json_options_set_onvif_namespace(json_options_t *options, const char *name)
{
    beginCall("json_options_set_onvif_namespace", {name});
    options->onvifName = name;
}

void json_options_set_norq_namespace(json_options_t *options, const char *name)
{
    beginCall("json_options_set_norq_namespace", {name});
    options->norqName = name;
}

void json_options_set_serialnumber(json_options_t *options, const char *serial_number)
{
    beginCall("json_options_set_serialnumber", {serial_number});
    options->serialNumber = serial_number;
}

char *event_get_json(const event_t *event, const json_options_t *options)
{
    if (isRecording()) {
        recordCall("event_get_json onvif=" + options->onvifName + " norq=" + options->norqName +
                   " serial=" + options->serialNumber.value_or("(none)"));
    }
    if (received(event).content.onRender) {
        received(event).content.onRender();
    }
    return !received(event).content.json || isToFail("event_get_json")
               ? nullptr
               : strdup(received(event).content.json->c_str());
}
