/**
 * Renders an event as one line of JSON; docs/event-json.md describes the document. It stands on
 * the public accessors alone, and on the path of every published event.
 */
#include "event/core/barrier.h"
#include "event/json_handles.h"
#include "event/json_time.h"
#include "event/json_topic.h"

#include <norq/event.h>

#include <array>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

using namespace norq::json;

/** GLib's allocator ends the process when memory is exhausted, so that no setter can throw. */
struct json_options {
    GText onvif;        // NULL: the namespace's own prefix
    GText norq;         // NULL: the namespace's own prefix
    GText serialNumber; // NULL: not part of the document
};

namespace {

constexpr const char *TAG_SOURCE = "onvif-source";
constexpr const char *TAG_KEY = "onvif-key";
constexpr const char *TAG_DATA = "onvif-data";

constexpr std::size_t DUMP_FLAGS = JSON_COMPACT | JSON_ENCODE_ANY;
/** Digits that any decimal number of that length keeps on its way through a double. */
constexpr unsigned int EXACT_DIGITS = 15;
/** Digits that every double keeps on its way through decimal notation. */
constexpr unsigned int ALL_DIGITS = 17;

/** The places in the document that the tags of an item ask for. */
struct Places {
    bool source = false;
    bool key = false;
    bool data = false;
};

Places placesOf(const event_t *event, unsigned int index)
{
    Places places;
    GList *tags = event_get_tags_at(event, index);
    for (GList *tag = tags; tag != nullptr; tag = tag->next) {
        const std::string_view name = static_cast<const char *>(tag->data);
        places.source |= name == TAG_SOURCE;
        places.key |= name == TAG_KEY;
        places.data |= name == TAG_DATA;
    }
    g_list_free_full(tags, g_free);
    return places;
}

template <typename Number>
Number parsed(std::string_view text)
{
    Number number{};
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || end != text.data() + text.size()) {
        throw RenderError("a number is malformed");
    }
    return number;
}

unsigned int significantDigits(std::string_view number)
{
    unsigned int count = 0;
    for (const char character : number.substr(0, number.find_first_of("eE"))) {
        const bool digit = character >= '0' && character <= '9';
        count += digit && (count > 0 || character != '0') ? 1U : 0U;
    }
    return count;
}

/** One document under construction. */
class Document {
public:
    Document(const event_t *rendered, const json_options_t *naming)
        : event(rendered),
          options(naming),
          root(owned(json_object())),
          source(owned(json_object())),
          data(owned(json_object()))
    {
    }

    /** Collects the parts in the order in which the document shows them. */
    void build()
    {
        put(root.get(), "UtcTime", owned(json_string(utcTimeText(event_get_time(event)).data())));
        const TopicText topic = topicOf(event, namespaceNames());
        put(root.get(), "Topic", owned(json_stringn(topic.get().data(), topic.get().size())));
        if (event_is_property(event) != 0) {
            const char *operation = event_is_initial(event) != 0 ? "Initialized" : "Changed";
            put(root.get(), "PropertyOperation", owned(json_string(operation)));
        }
        addItems(topic);
        put(root.get(), "Source", std::move(source));
        if (key) {
            put(root.get(), "Key", std::move(key));
        }
        put(root.get(), "Data", std::move(data));
        if (options != nullptr && options->serialNumber) {
            put(root.get(), "SerialNumber", owned(json_string(options->serialNumber.get())));
        }
    }

    /** The document as text from the C allocator, whatever allocator Jansson was told to use. */
    MallocText dump() const
    {
        const std::size_t flags = DUMP_FLAGS | JSON_REAL_PRECISION(realDigits);
        std::array<char, 2048> buffer; // enough for nearly every event: then it is dumped once
        const std::size_t size = json_dumpb(root.get(), buffer.data(), buffer.size(), flags);
        if (size == 0) {
            throw RenderError("the document cannot be written");
        }
        MallocText text(static_cast<char *>(std::malloc(size + 1)));
        if (!text) {
            throw RenderError("memory is exhausted");
        }
        if (size <= buffer.size()) {
            std::memcpy(text.get(), buffer.data(), size);
        } else if (json_dumpb(root.get(), text.get(), size, flags) != size) {
            throw RenderError("the document cannot be written");
        }
        text.get()[size] = '\0';
        return text;
    }

private:
    NamespaceNames namespaceNames() const
    {
        const auto chosen = [](const GText &name, std::string_view own) {
            return name ? std::string_view(name.get()) : own;
        };
        if (options == nullptr) {
            return {"tns1", "tnsnorq"};
        }
        return {chosen(options->onvif, "tns1"), chosen(options->norq, "tnsnorq")};
    }

    void addItems(const TopicText &topic)
    {
        const unsigned int count = event_get_key_count(event);
        for (unsigned int index = 0; index < count; ++index) {
            const char *value = event_get_value_at(event, index);
            if (value != nullptr) { // a prepared event may have keys that are not set yet
                addItem(event_get_key_at(event, index), value, index, topic);
            }
        }
    }

    void addItem(const char *name, const char *value, unsigned int index, const TopicText &topic)
    {
        Places places = placesOf(event, index);
        const bool placed = places.source || places.key || places.data;
        if (!placed && topic.contains(name)) {
            return;
        }
        places.data |= !placed;

        const Json item = valueOf(event_get_type_at(event, index), value);
        const auto place = [&](json_t *object) {
            put(object, name, Json(json_incref(item.get())));
        };
        if (places.source) {
            place(source.get());
        }
        if (places.key) {
            key = key ? std::move(key) : owned(json_object());
            place(key.get());
        }
        if (places.data) {
            place(data.get());
        }
    }

    Json valueOf(event_value_type type, const char *text)
    {
        switch (type) {
        case EVENT_VALUE_BOOLEAN:
            return owned(json_boolean(std::strcmp(text, "0") != 0));
        case EVENT_VALUE_INT:
            return owned(json_integer(parsed<json_int_t>(text)));
        case EVENT_VALUE_DOUBLE:
            noteDigits(text);
            return owned(json_real(parsed<double>(text)));
        case EVENT_VALUE_STRING:
            break;
        }
        return owned(json_string(text));
    }

    /** 0.1 shall not read 0.10000000000000001, unless another number needs all digits. */
    void noteDigits(std::string_view number)
    {
        if (significantDigits(number) > EXACT_DIGITS) {
            realDigits = ALL_DIGITS;
        }
    }

    const event_t *event;
    const json_options_t *options;
    Json root;
    Json source;
    Json key; // created with the first key item
    Json data;
    std::size_t realDigits = EXACT_DIGITS;
};

/** Texts from outside must not be able to spoil a document. */
void assign(GText &text, const char *value)
{
    text.reset(value == nullptr ? nullptr : g_utf8_make_valid(value, -1));
}

} // namespace

json_options_t *json_options_new(void)
{
    return new (std::nothrow) json_options();
}

void json_options_free(json_options_t *options)
{
    delete options;
}

void json_options_set_onvif_namespace(json_options_t *options, const char *name)
{
    g_return_if_fail(options != nullptr);
    assign(options->onvif, name);
}

void json_options_set_norq_namespace(json_options_t *options, const char *name)
{
    g_return_if_fail(options != nullptr);
    assign(options->norq, name);
}

void json_options_set_serialnumber(json_options_t *options, const char *serial_number)
{
    g_return_if_fail(options != nullptr);
    assign(options->serialNumber, serial_number);
}

char *event_get_json(const event_t *event, const json_options_t *options)
{
    g_return_val_if_fail(event != nullptr, nullptr);
    return norq::event::withBarrier("Rendering an event as JSON", static_cast<char *>(nullptr),
                                    [&] {
                                        Document document(event, options);
                                        document.build();
                                        return document.dump().release();
                                    });
}
