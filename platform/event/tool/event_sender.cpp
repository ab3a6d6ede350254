#include "event/tool/event_sender.h"

#include "event/tool/failure.h"

#include <algorithm>
#include <thread>

namespace norq::tool {

namespace {

constexpr const char *CLIENT_NAME = "norq-event";
constexpr std::chrono::milliseconds RETRY_PAUSE{20};

/** Throws Failure with what the library says, unless `succeeded`. Takes the error over. */
void require(bool succeeded, GError *error, const std::string &what)
{
    const ErrorHandle owned(error);
    if (!succeeded) {
        throw Failure(what + (owned ? std::string(": ") + owned->message : std::string()));
    }
}

void addItem(event_declaration_t *declaration, const Item &item)
{
    const char *key = item.key.c_str();
    GError *error = nullptr;
    const int added =
        item.fixed ? event_declaration_add_key_value(declaration, key, item.value->get(), &error)
                   : event_declaration_add_key(declaration, key, item.type, &error);
    require(added != 0, error, "key '" + item.key + "'");
    if (!item.nameSpace.empty()) {
        const int set = event_declaration_set_name_space(declaration, key, item.nameSpace.c_str());
        require(set != 0, nullptr, "key '" + item.key + "': the namespace is refused");
    }
}

Declaration declarationOf(const SendOptions &options)
{
    GError *error = nullptr;
    Declaration declaration(event_declaration_new(
        options.internal ? EVENT_DECLARATION_INTERNAL : EVENT_DECLARATION_DEFAULT, &error));
    require(declaration != nullptr, error, "no declaration");
    for (const Item &item : options.items) {
        addItem(declaration.get(), item);
    }
    for (const auto &[key, tag] : options.tags) {
        const int added =
            event_declaration_add_key_tag(declaration.get(), key.c_str(), tag.c_str());
        require(added != 0, nullptr,
                std::string("key '")
                    .append(key)
                    .append("': the tag '")
                    .append(tag)
                    .append("' is refused"));
    }
    if (options.property) {
        error = nullptr;
        const int set =
            event_declaration_set_property(declaration.get(), options.property->c_str(), 0, &error);
        require(set != 0, error, "property '" + *options.property + "'");
    }
    return declaration;
}

void setValue(event_t *event, const Item &item)
{
    GError *error = nullptr;
    const int done = event_set_value(event, item.key.c_str(), item.value->get(), &error);
    require(done != 0, error, "key '" + item.key + "'");
}

Item &openItem(std::vector<Item> &items, const std::string &key)
{
    const auto item = std::find_if(items.begin(), items.end(),
                                   [&key](const Item &known) { return known.key == key; });
    if (item == items.end()) {
        throw UsageError("the event has no key '" + key + "'");
    }
    if (item->fixed) {
        throw UsageError("the value of '" + key + "' is fixed");
    }
    return *item;
}

} // namespace

EventSender::EventSender(const SendOptions &options)
    : items(options.items), timeout(options.timeout)
{
    const int milliseconds = static_cast<int>(std::chrono::milliseconds(timeout).count());
    producer.reset(event_producer_new(CLIENT_NAME, nullptr, milliseconds, 0));
    require(producer != nullptr, nullptr, "no connection to the event service");
    declare(options);
}

EventSender::~EventSender()
{
    event_producer_undeclare(producer.get(), id);
}

void EventSender::declare(const SendOptions &options)
{
    const Declaration declaration = declarationOf(options);
    id = event_producer_declare(producer.get(), declaration.get());
    require(id >= 0, nullptr, "the event service refuses the declaration");
}

bool EventSender::isComplete() const
{
    return std::all_of(items.begin(), items.end(),
                       [](const Item &item) { return item.value.has_value(); });
}

void EventSender::change(const std::vector<std::pair<std::string, std::string>> &values)
{
    std::vector<Item> changed = items;
    for (const auto &[key, text] : values) {
        Item &item = openItem(changed, key);
        item.value = Value::parse(key, item.type, text);
    }
    items = std::move(changed);
}

void EventSender::send()
{
    GError *error = nullptr;
    const Event event(event_producer_prepare_event(producer.get(), id, 0, &error));
    require(event != nullptr, error, "the event cannot be prepared");
    for (const Item &item : items) {
        setValue(event.get(), item);
    }

    // the service may just be starting again: the library declares again by itself
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        error = nullptr;
        if (event_producer_send_event(producer.get(), event.get(), &error) != 0) {
            return;
        }
        const bool away = g_error_matches(error, EVENT_ERROR, EVENT_ERROR_UNAVAILABLE) != FALSE;
        require(away && std::chrono::steady_clock::now() < deadline, error,
                "the event was not sent");
        std::this_thread::sleep_for(RETRY_PAUSE);
    }
}

} // namespace norq::tool
