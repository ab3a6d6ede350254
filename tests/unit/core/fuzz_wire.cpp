#include "unit/core/fuzz_wire.h"

#include <algorithm>
#include <cstddef>

namespace tovrel::test {

namespace {

constexpr std::size_t STRUCT_ALIGNMENT = 8;

/** Appends values in the little-endian format, each where its type may stand. */
class WireWriter {
public:
    void align(std::size_t size) { bytes.resize((bytes.size() + size - 1) / size * size); }

    void byte(unsigned int value) { bytes.push_back(static_cast<char>(value)); }

    void number(std::uint32_t value)
    {
        align(sizeof(value));
        put(bytes.size(), value);
    }

    void flag(bool value) { number(value ? 1 : 0); }

    void text(std::string_view value)
    {
        number(static_cast<std::uint32_t>(value.size()));
        bytes.append(value).push_back('\0');
    }

    void signature(std::string_view value)
    {
        byte(static_cast<unsigned int>(value.size()));
        bytes.append(value).push_back('\0');
    }

    /** An array of structs, which `write` appends one by one. */
    template <typename Range, typename Write>
    void structs(const Range &range, Write write)
    {
        number(0);
        const std::size_t place = bytes.size() - sizeof(std::uint32_t);
        align(STRUCT_ALIGNMENT);
        const std::size_t start = bytes.size();
        for (const auto &each : range) {
            align(STRUCT_ALIGNMENT);
            write(each);
        }
        put(place, static_cast<std::uint32_t>(bytes.size() - start));
    }

    std::string bytes;

private:
    void put(std::size_t place, std::uint32_t value)
    {
        bytes.resize(std::max(bytes.size(), place + sizeof(value)));
        for (std::size_t index = 0; index < sizeof(value); ++index) {
            bytes[place + index] = static_cast<char>(value >> (8 * index));
        }
    }
};

/** A field of a message's header. */
struct HeaderField {
    unsigned int code;
    char type;
    std::string_view value;
};

} // namespace

std::string messageBytes(const WireCall &call, std::uint32_t serial)
{
    constexpr unsigned int METHOD_CALL = 1;
    constexpr unsigned int NO_REPLY_EXPECTED = 1;
    constexpr unsigned int PROTOCOL = 1;
    std::vector<HeaderField> fields{
        {1, 'o', call.path}, {2, 's', call.interface}, {3, 's', call.member}};
    if (!call.signature.empty()) {
        fields.push_back({8, 'g', call.signature});
    }

    WireWriter writer;
    writer.byte('l');
    writer.byte(METHOD_CALL);
    writer.byte(call.expectsReply ? 0 : NO_REPLY_EXPECTED);
    writer.byte(PROTOCOL);
    writer.number(static_cast<std::uint32_t>(call.body.size()));
    writer.number(serial);
    writer.structs(fields, [&writer](const HeaderField &field) {
        writer.byte(field.code);
        writer.signature(std::string_view(&field.type, 1));
        field.type == 'g' ? writer.signature(field.value) : writer.text(field.value);
    });
    writer.align(STRUCT_ALIGNMENT);
    return writer.bytes + call.body;
}

std::string textBody(const std::string &text)
{
    WireWriter writer;
    writer.text(text);
    return writer.bytes;
}

std::string itemsBody(const std::vector<WireItem> &items)
{
    WireWriter writer;
    writer.structs(items, [&writer](const WireItem &item) {
        writer.text(item.topicFilter);
        writer.flag(item.useDeviceTopicPrefix);
        writer.number(static_cast<std::uint32_t>(item.qos));
        writer.flag(item.isStateData);
    });
    return writer.bytes;
}

std::string publicationBody(const WirePublication &publication)
{
    WireWriter writer;
    writer.text(publication.topicPrefixSetting);
    writer.text(publication.customTopicPrefix);
    writer.flag(publication.appendEventTopic);
    writer.flag(publication.includeTopicNamespaces);
    writer.flag(publication.includeSerialNumberInPayload);
    writer.structs(publication.filters, [&writer](const WireFilter &filter) {
        writer.text(filter.topicFilter);
        writer.text(filter.retain);
        writer.number(static_cast<std::uint32_t>(filter.qos));
    });
    return writer.bytes;
}

} // namespace tovrel::test
