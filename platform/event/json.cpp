/**
 * Renders an event as one line of JSON; docs/event-json.md describes the document. It stands on the
 * path of every published event.
 */
#include "event/client/event_handle.h"
#include "event/core/barrier.h"
#include "event/json_handles.h"
#include "event/json_time.h"
#include "event/json_topic.h"
#include "event/json_writer.h"

#include <norq/event.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

using namespace norq::event;
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

Places placesOf(const DeclaredKey &key)
{
    Places places;
    for (const std::string &tag : key.tags) {
        places.source |= tag == TAG_SOURCE;
        places.key |= tag == TAG_KEY;
        places.data |= tag == TAG_DATA;
    }
    return places;
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

/** The levels "topic0", "topic1", ... of an event up to the first that is missing. */
TopicText topicOf(const EventContent &content, const NamespaceNames &names)
{
    const Declaration &declaration = *content.declaration;
    TopicText topic;
    std::array<char, 16> key{'t', 'o', 'p', 'i', 'c'};
    for (unsigned int level = 0;; ++level) {
        const char *end =
            std::to_chars(key.data() + TOPIC_KEY_PREFIX.size(), key.data() + key.size(), level).ptr;
        const auto index =
            declaration.find({key.data(), static_cast<std::size_t>(end - key.data())});
        const Value *value = index ? content.valueAt(*index) : nullptr;
        if (value == nullptr) {
            return topic;
        }
        topic.add(names.of(declaration.keys()[*index].nameSpace), value->text());
    }
}

/** One document under construction. */
class Document {
public:
    Document(const EventContent &rendered, const json_options_t *naming)
        : content(rendered), options(naming), topic(topicOf(content, namespaceNames()))
    {
    }

    /** Puts the parts together in the order in which the document shows them. */
    std::string build()
    {
        addItems();
        ObjectWriter root;
        const TimeText time = utcTimeText(content.time);
        root.addText("UtcTime", {time.data(), time.size()});
        root.addText("Topic", topic.get());
        if (content.declaration->isProperty()) {
            root.addText("PropertyOperation", content.initial ? "Initialized" : "Changed");
        }
        root.addObject("Source", std::move(source));
        if (key) {
            root.addObject("Key", std::move(*key));
        }
        root.addObject("Data", std::move(data));
        if (options != nullptr && options->serialNumber) {
            root.addText("SerialNumber", options->serialNumber.get());
        }
        return std::move(root).finish();
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

    /** Calls `take` with the key, the value and the places of every item. */
    template <typename Take>
    void forEachItem(Take take) const
    {
        const auto &keys = content.declaration->keys();
        for (std::size_t index = 0; index < keys.size(); ++index) {
            const Value *value = content.valueAt(index);
            if (value == nullptr) {
                continue; // a prepared event may have keys that are not set yet
            }
            Places places = placesOf(keys[index]);
            const bool placed = places.source || places.key || places.data;
            if (placed || !topic.contains(keys[index].name.c_str())) {
                places.data |= !placed;
                take(keys[index].name, *value, places);
            }
        }
    }

    void addItems()
    {
        const std::size_t digits = realDigits();
        forEachItem([&](const std::string &name, const Value &value, Places places) {
            if (places.source) {
                addItem(source, name, value, digits);
            }
            if (places.key) {
                addItem(key ? *key : key.emplace(), name, value, digits);
            }
            if (places.data) {
                addItem(data, name, value, digits);
            }
        });
    }

    static void addItem(ObjectWriter &object, const std::string &name, const Value &value,
                        std::size_t digits)
    {
        switch (value.type()) {
        case EVENT_VALUE_BOOLEAN:
            return object.addBoolean(name, value.boolean());
        case EVENT_VALUE_INT:
            return object.addNumber(name, value.text());
        case EVENT_VALUE_DOUBLE:
            return object.addNumber(name, decimalOf(value.number(), digits));
        case EVENT_VALUE_STRING:
            return object.addText(name, value.text());
        }
    }

    /** 0.1 shall not read 0.10000000000000001, unless another number needs all digits. */
    std::size_t realDigits() const
    {
        const auto &keys = content.declaration->keys();
        if (std::none_of(keys.begin(), keys.end(), [](const DeclaredKey &declared) {
                return declared.type == EVENT_VALUE_DOUBLE;
            })) {
            return EXACT_DIGITS;
        }
        std::size_t digits = EXACT_DIGITS;
        forEachItem([&](const std::string & /*name*/, const Value &value, Places /*places*/) {
            if (value.type() == EVENT_VALUE_DOUBLE &&
                significantDigits(value.text()) > EXACT_DIGITS) {
                digits = ALL_DIGITS;
            }
        });
        return digits;
    }

    const EventContent &content;
    const json_options_t *options;
    const TopicText topic;
    ObjectWriter source;
    std::optional<ObjectWriter> key; // created with the first key item
    ObjectWriter data;
};

/** A copy from the C allocator. */
MallocText copyOf(const std::string &text)
{
    MallocText copy(static_cast<char *>(std::malloc(text.size() + 1)));
    if (!copy) {
        throw RenderError("memory is exhausted");
    }
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

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
                                        Document document(*event->content, options);
                                        return copyOf(document.build()).release();
                                    });
}
