#include "fakes/fake_event.h"

#include "fakes/call_record.h"
#include "fakes/fake_event_base.h"

#include <algorithm>

using namespace tovrel::test;

struct event_declaration {
    FakeDeclaration keys;
};

struct event_producer {
    void *userData;
};

namespace {

struct EventToSend : event {
    EventToSend() { ++fakeEvents().livingEvents; }
    EventToSend(const EventToSend &) = delete;
    EventToSend &operator=(const EventToSend &) = delete;
    ~EventToSend() override { --fakeEvents().livingEvents; }

    FakeSentEvent content;
    FakeDeclaration keys;
};

const EventToSend &toSend(const event_t *event)
{
    return static_cast<const EventToSend &>(*event);
}

/** Notes the call and tells whether it goes well. */
bool begin(const std::string &function, const std::string &arguments, GError **error = nullptr)
{
    recordCall(arguments.empty() ? function : function + " " + arguments);
    if (!shallFail(function)) {
        return true;
    }
    if (fakeEvents().failureMessage) {
        g_set_error_literal(error, EVENT_ERROR, EVENT_ERROR_INVALID,
                            fakeEvents().failureMessage->c_str());
    }
    return false;
}

std::string textOf(const event_value_t &value)
{
    switch (value.type) {
    case EVENT_VALUE_INT:
        return std::to_string(value.as.integer);
    case EVENT_VALUE_BOOLEAN:
        return value.as.boolean != 0 ? "1" : "0";
    case EVENT_VALUE_DOUBLE:
        return std::to_string(value.as.number);
    case EVENT_VALUE_STRING:
        return value.as.string;
    }
    return {};
}

FakeKey *findKey(FakeDeclaration &keys, const std::string &name)
{
    const auto found = std::find_if(keys.begin(), keys.end(),
                                    [&](const auto &entry) { return entry.first == name; });
    return found == keys.end() ? nullptr : &found->second;
}

int addKey(event_declaration_t *declaration, const char *name, FakeKey key)
{
    if (findKey(declaration->keys, name) != nullptr) {
        return 0;
    }
    declaration->keys.emplace_back(name, std::move(key));
    return 1;
}

/** Edits a key of a declaration after noting the call. */
template <typename Edit>
int editKey(event_declaration_t *declaration, const std::string &function, const char *name,
            GError **error, Edit &&edit)
{
    if (!begin(function, name, error)) {
        return 0;
    }
    FakeKey *const key = findKey(declaration->keys, name);
    if (key == nullptr) {
        return 0;
    }
    edit(*key);
    return 1;
}

} // namespace

namespace tovrel::test {

FakeEvents &fakeEvents()
{
    static FakeEvents instance;
    return instance;
}

void resetFakeEvents()
{
    fakeEvents() = {};
}

} // namespace tovrel::test

GQuark event_error_quark(void)
{
    return g_quark_from_static_string("fake-event-error");
}

event_declaration_t *event_declaration_new(unsigned int flags, GError **error)
{
    if (!begin("event_declaration_new", std::to_string(flags), error)) {
        return nullptr;
    }
    ++fakeEvents().livingDeclarations;
    return new event_declaration;
}

void event_declaration_free(event_declaration_t *declaration)
{
    if (declaration != nullptr) {
        --fakeEvents().livingDeclarations;
    }
    delete declaration;
}

int event_declaration_add_key_value(event_declaration_t *declaration, const char *key,
                                    event_value_t value, GError **error)
{
    if (!begin("event_declaration_add_key_value", key, error)) {
        return 0;
    }
    FakeKey fixed;
    fixed.type = value.type;
    fixed.fixedValue = textOf(value);
    return addKey(declaration, key, fixed);
}

int event_declaration_add_key(event_declaration_t *declaration, const char *key,
                              event_value_type type, GError **error)
{
    if (!begin("event_declaration_add_key", key, error)) {
        return 0;
    }
    FakeKey open;
    open.type = type;
    return addKey(declaration, key, open);
}

int event_declaration_set_name_space(event_declaration_t *declaration, const char *key,
                                     const char *name_space)
{
    return editKey(declaration, "event_declaration_set_name_space", key, nullptr,
                   [&](FakeKey &edited) { edited.nameSpace = name_space; });
}

int event_declaration_set_nice_names(event_declaration_t *declaration, const char *key,
                                     const char *key_nice_name, const char *value_nice_name)
{
    return editKey(
        declaration, "event_declaration_set_nice_names", key, nullptr, [&](FakeKey &edited) {
            edited.niceName = key_nice_name != nullptr ? "key:" + std::string(key_nice_name)
                                                       : std::string(value_nice_name);
        });
}

int event_declaration_add_key_tag(event_declaration_t *declaration, const char *key,
                                  const char *tag)
{
    return editKey(declaration, "event_declaration_add_key_tag", key, nullptr,
                   [&](FakeKey &edited) { edited.tags.emplace_back(tag); });
}

int event_declaration_set_property(event_declaration_t *declaration, const char *key,
                                   unsigned int flags, GError **error)
{
    return editKey(declaration, "event_declaration_set_property", key, error,
                   [&](FakeKey &edited) { edited.isProperty = flags == 0; });
}

event_producer_t *event_producer_new(const char *name, void *user_data, int timeout_ms,
                                     unsigned int flags)
{
    if (!begin("event_producer_new", name)) {
        return nullptr;
    }
    FakeEvents &fake = fakeEvents();
    fake.producerName = name;
    fake.producerUserData = user_data;
    fake.producerTimeoutMs = timeout_ms;
    fake.producerFlags = flags;
    ++fake.livingProducers;
    return new event_producer{user_data};
}

void event_producer_free(event_producer_t *producer)
{
    if (producer != nullptr) {
        --fakeEvents().livingProducers;
    }
    delete producer;
}

void *event_producer_get_user_data(const event_producer_t *producer)
{
    return producer->userData;
}

int event_producer_declare(event_producer_t * /*producer*/, const event_declaration_t *declaration)
{
    if (!begin("event_producer_declare", {})) {
        return -1;
    }
    fakeEvents().declarations[fakeEvents().nextId] = declaration->keys;
    return fakeEvents().nextId++;
}

int event_producer_undeclare(event_producer_t * /*producer*/, int declaration_id)
{
    return begin("event_producer_undeclare", std::to_string(declaration_id)) &&
           fakeEvents().declarations.erase(declaration_id) == 1;
}

event_t *event_producer_prepare_event(event_producer_t * /*producer*/, int declaration_id,
                                      int64_t utc_time_us, GError **error)
{
    fakeEvents().preparedTimeUs = utc_time_us;
    if (!begin("event_producer_prepare_event", std::to_string(declaration_id), error)) {
        return nullptr;
    }
    const auto found = fakeEvents().declarations.find(declaration_id);
    if (found == fakeEvents().declarations.end()) {
        g_set_error_literal(error, EVENT_ERROR, EVENT_ERROR_UNKNOWN_ID, "unknown id");
        return nullptr;
    }
    auto *const prepared = new EventToSend;
    prepared->content.declarationId = declaration_id;
    prepared->keys = found->second;
    for (const auto &[name, key] : prepared->keys) {
        if (key.fixedValue) {
            prepared->content.values[name] = *key.fixedValue;
        }
    }
    return prepared;
}

int event_set_value(event_t *event, const char *key, event_value_t value, GError **error)
{
    if (!begin("event_set_value", key, error)) {
        return 0;
    }
    auto &sending = static_cast<EventToSend &>(*event);
    const std::string text = textOf(value);
    const FakeKey *const declared = findKey(sending.keys, key);
    if (declared == nullptr || declared->type != value.type ||
        (declared->fixedValue && *declared->fixedValue != text)) {
        return 0;
    }
    sending.content.values[key] = text;
    return 1;
}

int event_producer_send_event(event_producer_t * /*producer*/, const event_t *event, GError **error)
{
    const EventToSend &sending = toSend(event);
    if (!begin("event_producer_send_event", std::to_string(sending.content.declarationId), error)) {
        return 0;
    }
    if (sending.content.values.size() != sending.keys.size()) {
        g_set_error_literal(error, EVENT_ERROR, EVENT_ERROR_UNSET_KEY, "unset key");
        return 0;
    }
    ++fakeEvents().sentCount;
    if (isRecording()) {
        fakeEvents().sent.push_back(sending.content);
    }
    return 1;
}
