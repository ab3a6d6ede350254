#include "json_events.h"

#include <limits>
#include <stdexcept>

namespace json_test {

namespace {

struct FreeProducer {
    void operator()(event_producer_t *producer) const { event_producer_free(producer); }
};

struct FreeDeclaration {
    void operator()(event_declaration_t *declaration) const { event_declaration_free(declaration); }
};

void require(bool succeeded, const std::string &what)
{
    if (!succeeded) {
        throw std::runtime_error("refused: " + what);
    }
}

/** One for all events. There is no service: declaring and preparing work all the same. */
event_producer_t *producer()
{
    static const std::unique_ptr<event_producer_t, FreeProducer> instance = [] {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the test has no other thread yet
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
        return std::unique_ptr<event_producer_t, FreeProducer>(
            event_producer_new("json test", nullptr, -1, 0));
    }();
    return instance.get();
}

} // namespace

EventBuilder &EventBuilder::level(const std::string &nameSpace, const std::string &name)
{
    const std::string key = "topic" + std::to_string(levels++);
    keys.push_back({key, nameSpace, event_value_string(""), name, {}});
    return *this;
}

EventBuilder &EventBuilder::item(const std::string &key, event_value_t value,
                                 const std::vector<std::string> &tags)
{
    keys.push_back({key, "", value, value.type == EVENT_VALUE_STRING ? value.as.string : "", tags});
    return *this;
}

EventBuilder &EventBuilder::unset(const std::string &key)
{
    keys.push_back({key, "", std::nullopt, "", {}});
    return *this;
}

EventBuilder &EventBuilder::property(const std::string &key)
{
    stateKey = key;
    return *this;
}

EventBuilder &EventBuilder::time(std::int64_t microseconds)
{
    utc = microseconds;
    return *this;
}

Event EventBuilder::build() const
{
    const std::unique_ptr<event_declaration_t, FreeDeclaration> declaration(
        event_declaration_new(EVENT_DECLARATION_DEFAULT, nullptr));
    for (const Key &key : keys) {
        const auto type = key.value ? key.value->type : EVENT_VALUE_STRING;
        const char *name = key.name.c_str();
        require(event_declaration_add_key(declaration.get(), name, type, nullptr) != 0, key.name);
        event_declaration_set_name_space(declaration.get(), name, key.nameSpace.c_str());
        for (const std::string &tag : key.tags) {
            require(event_declaration_add_key_tag(declaration.get(), name, tag.c_str()) != 0, tag);
        }
    }
    if (!stateKey.empty()) {
        require(event_declaration_set_property(declaration.get(), stateKey.c_str(), 0, nullptr) !=
                    0,
                stateKey);
    }
    const int id = event_producer_declare(producer(), declaration.get());
    require(id >= 0, "the declaration");
    Event event(event_producer_prepare_event(producer(), id, utc, nullptr));
    event_producer_undeclare(producer(), id);
    require(event != nullptr, "the event");
    for (const Key &key : keys) {
        if (key.value) {
            const event_value_t value = key.value->type == EVENT_VALUE_STRING
                                            ? event_value_string(key.text.c_str())
                                            : *key.value;
            require(event_set_value(event.get(), key.name.c_str(), value, nullptr) != 0, key.name);
        }
    }
    return event;
}

EventBuilder documentedEvent()
{
    return EventBuilder()
        .level("tns1", "Device")
        .level("tnsnorq", "Beta")
        .level("tnsnorq", "Gamma")
        .item("index", event_value_int(1), {"onvif-source"})
        .item("port", event_value_string("front"), {"onvif-key"})
        .item("state", event_value_boolean(1), {"onvif-data"})
        .item("level", event_value_double(0.1))
        .property("state");
}

std::vector<Sample> samples()
{
    using Limits = std::numeric_limits<std::int64_t>;
    std::vector<Sample> all{
        {"documented", documentedEvent()},
        {"stateless", EventBuilder().level("tns1", "A").item("x", event_value_int(0))},
        {"no items", EventBuilder().level("tns1", "Device")},
        {"no topic", EventBuilder().item("x", event_value_string("y"), {"onvif-source"})},
        {"unset key", EventBuilder().level("tns1", "A").unset("x")},
        {"two tags", EventBuilder().item("x", event_value_int(1), {"onvif-source", "onvif-key"})},
        {"foreign tag", EventBuilder().item("x", event_value_int(1), {"other"})},
        {"odd names",
         EventBuilder()
             .item("a/b", event_value_string("/"))
             .item(R"("quoted"\)", event_value_string("\"\\"))
             .item("\n\x01", event_value_string("\x01\x1f\x7f\b\f\n\r\t"))
             .item("\xf0\x9f\x98\x80", event_value_string("\xf0\x9f\x98\x80\xef\xbf\xbf"))},
        {"numbers", EventBuilder()
                        .item("lowest", event_value_int(Limits::min()))
                        .item("highest", event_value_int(Limits::max()))
                        .item("tiny", event_value_double(std::numeric_limits<double>::denorm_min()))
                        .item("huge", event_value_double(std::numeric_limits<double>::max()))
                        .item("third", event_value_double(1.0 / 3.0))
                        .item("whole", event_value_double(3.0))},
        {"earliest", EventBuilder().level("", "A").time(Limits::min())},
        {"latest", EventBuilder().level("", "A").time(Limits::max())},
    };
    EventBuilder many;
    for (int number = 0; number < 500; ++number) {
        many.item("item" + std::to_string(number), event_value_int(number));
    }
    all.push_back({"many items", many});
    return all;
}

std::string render(const Event &event, const json_options_t *options)
{
    char *text = event_get_json(event.get(), options);
    std::string copy = text == nullptr ? "" : text;
    std::free(text);
    return copy;
}

} // namespace json_test
