#include "event/core/event_content.h"

#include "event/core/wire.h"

#include <bit>
#include <cmath>
#include <utility>

namespace norq::event {
namespace {

void writeScalar(WireWriter &writer, const Value &value)
{
    if (value.type() == EVENT_VALUE_BOOLEAN) {
        writer.number(static_cast<std::uint8_t>(value.boolean()));
    } else {
        writer.number(value.integer()); // for a double its bits
    }
}

std::string_view takeValue(WireReader &reader, event_value_type type)
{
    return type == EVENT_VALUE_STRING ? reader.text<std::uint32_t>()
                                      : reader.take(sizeOfType(type));
}

template <typename Number>
Number numberIn(std::string_view bytes)
{
    return WireReader(bytes).number<Number>();
}

/** The value that well-formed bytes stand for. */
Value valueFrom(std::string_view bytes, event_value_type type)
{
    switch (type) {
    case EVENT_VALUE_INT:
        return Value::ofInteger(numberIn<std::int64_t>(bytes));
    case EVENT_VALUE_BOOLEAN:
        return Value::ofBoolean(numberIn<std::uint8_t>(bytes) != 0);
    case EVENT_VALUE_DOUBLE:
        return Value::ofNumber(std::bit_cast<double>(numberIn<std::int64_t>(bytes)));
    case EVENT_VALUE_STRING:
        break;
    }
    return Value::ofText(std::string(bytes));
}

bool isValid(std::string_view bytes, event_value_type type)
{
    switch (type) {
    case EVENT_VALUE_INT:
        return true;
    case EVENT_VALUE_BOOLEAN:
        return numberIn<std::uint8_t>(bytes) <= 1;
    case EVENT_VALUE_DOUBLE:
        return std::isfinite(std::bit_cast<double>(numberIn<std::int64_t>(bytes)));
    case EVENT_VALUE_STRING:
        break;
    }
    return isCleanText(bytes);
}

} // namespace

const Value *EventContent::valueAt(std::size_t index) const
{
    const DeclaredKey &key = declaration->keys()[index];
    const std::optional<Value> &value = key.fixed ? key.fixed : open[key.openPosition];
    return value ? &*value : nullptr;
}

Status checkSendable(const EventContent &content)
{
    std::size_t size = content.declaration->textSize();
    for (const std::size_t index : content.declaration->openKeys()) {
        const Value *value = content.valueAt(index);
        if (value == nullptr) {
            return Status::failure(EVENT_ERROR_UNSET_KEY,
                                   "the key '" + content.declaration->keys()[index].name +
                                       "' is not set");
        }
        size += value->size();
    }
    if (size > EVENT_MAX_SIZE) {
        return Status::failure(EVENT_ERROR_TOO_LARGE, "the event is too large");
    }
    return {};
}

void writeBody(std::string &frame, const EventContent &content)
{
    WireWriter writer(frame);
    writer.number(content.time);
    for (const std::optional<Value> &value : content.open) {
        if (value->type() == EVENT_VALUE_STRING) {
            writer.text<std::uint32_t>(value->text());
        } else {
            writeScalar(writer, *value);
        }
    }
}

std::optional<EventContent> readBody(std::string_view body, SharedDeclaration declaration)
{
    WireReader reader(body);
    EventContent content;
    content.time = reader.number<std::int64_t>();
    content.open.reserve(declaration->openKeys().size());
    for (const std::size_t index : declaration->openKeys()) {
        const event_value_type type = declaration->keys()[index].type;
        const std::string_view bytes = takeValue(reader, type);
        content.open.emplace_back(valueFrom(bytes, type));
    }
    if (!reader.finished()) {
        return std::nullopt;
    }
    content.declaration = std::move(declaration);
    return content;
}

bool scanBody(std::string_view body, const Declaration &declaration,
              std::vector<std::string_view> &values)
{
    WireReader reader(body);
    reader.number<std::int64_t>(); // any time will do
    values.clear();
    std::size_t size = declaration.textSize();
    for (const std::size_t index : declaration.openKeys()) {
        const event_value_type type = declaration.keys()[index].type;
        const std::string_view bytes = takeValue(reader, type);
        if (reader.failed() || !isValid(bytes, type)) {
            return false;
        }
        size += bytes.size();
        values.push_back(bytes);
    }
    return reader.finished() && size <= EVENT_MAX_SIZE;
}

std::string bytesOf(const Value &value)
{
    if (value.type() == EVENT_VALUE_STRING) {
        return value.text();
    }
    std::string bytes;
    WireWriter writer(bytes);
    writeScalar(writer, value);
    return bytes;
}

} // namespace norq::event
