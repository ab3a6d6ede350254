/** The functions on events: norq/event.h but for JSON, and event_set_value(). */
#include "event/client/api.h"
#include "event/client/event_handle.h"

#include <norq/event.h>
#include <norq/event_producer.h>

#include <memory>
#include <string>

using namespace norq::event;

namespace {

const DeclaredKey *keyAt(const event_t *event, unsigned int index)
{
    const auto &keys = event->content->declaration->keys();
    return index < keys.size() ? &keys[index] : nullptr;
}

const char *textOf(const Value *value)
{
    return value == nullptr ? nullptr : value->text().c_str();
}

const char *textOrNull(const std::string &text)
{
    return text.empty() ? nullptr : text.c_str();
}

Status setValue(event_t &event, std::string_view name, const event_value_t &given)
{
    const Declaration &declaration = *event.content->declaration;
    if (event.producer == 0) {
        return Status::failure(EVENT_ERROR_INVALID, "a received event cannot be changed");
    }
    const auto index = declaration.find(name);
    if (!index) {
        return Status::failure(EVENT_ERROR_UNKNOWN_KEY,
                               "the event has no key '" + std::string(name) + "'");
    }
    std::optional<Value> value;
    if (Status valid = Value::fromApi(given, value); !valid) {
        return valid;
    }
    const DeclaredKey &key = declaration.keys()[*index];
    if (value->type() != key.type) {
        return Status::failure(EVENT_ERROR_TYPE, "the key '" + key.name + "' is of type " +
                                                     nameOfType(key.type) + ", not " +
                                                     nameOfType(value->type()));
    }
    if (!key.fixed) {
        event.content->open[key.openPosition] = std::move(value);
        return {};
    }
    return *key.fixed == *value ? Status()
                                : Status::failure(EVENT_ERROR_FIXED_VALUE,
                                                  "the key '" + key.name + "' has a fixed value");
}

} // namespace

GQuark event_error_quark(void)
{
    return g_quark_from_static_string("norq-event-error");
}

void event_free(event_t *event)
{
    delete event;
}

event_t *event_copy(const event_t *event)
{
    g_return_val_if_fail(event != nullptr, nullptr);
    return withBarrier<event_t *>("Copying an event", nullptr, [event] {
        auto copy = std::make_unique<event_t>(*event);
        if (copy->producer != 0) {
            copy->content = std::make_shared<EventContent>(*event->content);
        }
        return copy.release();
    });
}

const char *event_get_value(const event_t *event, const char *key)
{
    g_return_val_if_fail(event != nullptr && key != nullptr, nullptr);
    return withBarrier<const char *>("Reading an event", nullptr, [&] {
        const auto index = event->content->declaration->find(key);
        return index ? textOf(event->content->valueAt(*index)) : nullptr;
    });
}

const char *event_get_name_space(const event_t *event, const char *key)
{
    g_return_val_if_fail(event != nullptr && key != nullptr, nullptr);
    return withBarrier<const char *>("Reading an event", nullptr, [&]() -> const char * {
        const Declaration &declaration = *event->content->declaration;
        const auto index = declaration.find(key);
        return index ? textOrNull(declaration.keys()[*index].nameSpace) : nullptr;
    });
}

unsigned int event_get_key_count(const event_t *event)
{
    g_return_val_if_fail(event != nullptr, 0);
    return static_cast<unsigned int>(event->content->declaration->keys().size());
}

const char *event_get_key_at(const event_t *event, unsigned int index)
{
    g_return_val_if_fail(event != nullptr, nullptr);
    const DeclaredKey *key = keyAt(event, index);
    return key == nullptr ? nullptr : key->name.c_str();
}

const char *event_get_value_at(const event_t *event, unsigned int index)
{
    g_return_val_if_fail(event != nullptr, nullptr);
    return keyAt(event, index) == nullptr ? nullptr : textOf(event->content->valueAt(index));
}

const char *event_get_name_space_at(const event_t *event, unsigned int index)
{
    g_return_val_if_fail(event != nullptr, nullptr);
    const DeclaredKey *key = keyAt(event, index);
    return key == nullptr ? nullptr : textOrNull(key->nameSpace);
}

event_value_type event_get_type_at(const event_t *event, unsigned int index)
{
    g_return_val_if_fail(event != nullptr, EVENT_VALUE_STRING);
    const DeclaredKey *key = keyAt(event, index);
    return key == nullptr ? EVENT_VALUE_STRING : key->type;
}

GList *event_get_tags_at(const event_t *event, unsigned int index)
{
    g_return_val_if_fail(event != nullptr, nullptr);
    const DeclaredKey *key = keyAt(event, index);
    if (key == nullptr) {
        return nullptr;
    }
    GList *tags = nullptr;
    for (const std::string &tag : key->tags) {
        tags = g_list_prepend(tags, g_strdup(tag.c_str()));
    }
    return g_list_reverse(tags);
}

int event_is_property(const event_t *event)
{
    g_return_val_if_fail(event != nullptr, 0);
    return event->content->declaration->isProperty() ? 1 : 0;
}

int event_is_internal(const event_t *event)
{
    g_return_val_if_fail(event != nullptr, 0);
    return (event->content->declaration->flags() & EVENT_DECLARATION_INTERNAL) != 0 ? 1 : 0;
}

int event_is_initial(const event_t *event)
{
    g_return_val_if_fail(event != nullptr, 0);
    return event->content->initial ? 1 : 0;
}

int64_t event_get_time(const event_t *event)
{
    g_return_val_if_fail(event != nullptr, 0);
    return event->content->time;
}

int event_set_value(event_t *event, const char *key, event_value_t value, GError **error)
{
    g_return_val_if_fail(event != nullptr && key != nullptr, 0);
    return reported(error, [&] { return setValue(*event, key, value); });
}
