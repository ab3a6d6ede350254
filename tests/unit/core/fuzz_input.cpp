#include "unit/core/fuzz_input.h"

#include "unit/core/fuzz_service.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <limits>

namespace tovrel::test {

namespace {

/** Over all bounds of the configuration, and little enough to be quick. */
constexpr std::size_t MOST_RECORDS = 300;

struct Method {
    const char *name;
    const char *signature;
};
constexpr std::array<Method, 4> METHODS{{{"SetMQTTToEventConfig", "a(sbib)"},
                                         {"GetMQTTToEventConfig", ""},
                                         {"SetEventToMQTTConfig", "ssbbba(ssi)"},
                                         {"GetEventToMQTTConfig", ""}}};

std::int32_t readQos(FuzzInput &input)
{
    const auto value = static_cast<std::int8_t>(input.byte());
    switch (value) {
    case std::numeric_limits<std::int8_t>::max():
        return std::numeric_limits<std::int32_t>::max();
    case std::numeric_limits<std::int8_t>::min():
        return std::numeric_limits<std::int32_t>::min();
    default:
        return value;
    }
}

/** Records that begin with `first`, or with `again` where the last one is repeated. */
template <typename Record, typename Read>
std::vector<Record> readRecords(FuzzInput &input, char first, char again, Read read)
{
    std::vector<Record> records;
    while (records.size() < MOST_RECORDS) {
        if (input.take(first)) {
            records.push_back(read());
        } else if (!records.empty() && input.take(again)) {
            const Record last = records.back();
            records.insert(records.end(), input.byte(), last);
        } else {
            break;
        }
    }
    return records;
}

/** What GLib knows and D-Bus does not: types that may be nothing, and structs without fields. */
bool isSignature(const std::string &text)
{
    constexpr std::size_t MOST_TYPES = 30; // far below what may be nested
    return text.size() <= MOST_TYPES && text.find('m') == std::string::npos &&
           text.find("()") == std::string::npos && g_variant_is_signature(text.c_str()) != FALSE;
}

} // namespace

unsigned int FuzzInput::byte()
{
    if (rest.empty()) {
        return 0;
    }
    const auto value = static_cast<unsigned char>(rest.front());
    rest.remove_prefix(1);
    return value;
}

bool FuzzInput::take(char expected)
{
    if (!rest.starts_with(expected)) {
        return false;
    }
    rest.remove_prefix(1);
    return true;
}

std::string FuzzInput::text()
{
    const std::size_t end = rest.find('\0');
    const std::string value(rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return value;
}

std::string FuzzInput::bytes(std::size_t count)
{
    const std::string value(rest.substr(0, count));
    rest.remove_prefix(value.size());
    return value;
}

std::vector<WireItem> readItems(FuzzInput &input)
{
    return readRecords<WireItem>(input, 'r', 'R', [&input] {
        WireItem item;
        item.topicFilter = input.text();
        const unsigned int flags = input.byte();
        item.useDeviceTopicPrefix = (flags & 1U) != 0;
        item.isStateData = (flags & 2U) != 0;
        item.qos = readQos(input);
        return item;
    });
}

WirePublication readPublication(FuzzInput &input)
{
    WirePublication publication;
    publication.topicPrefixSetting = input.text();
    publication.customTopicPrefix = input.text();
    const unsigned int flags = input.byte();
    publication.appendEventTopic = (flags & 1U) != 0;
    publication.includeTopicNamespaces = (flags & 2U) != 0;
    publication.includeSerialNumberInPayload = (flags & 4U) != 0;
    publication.filters = readRecords<WireFilter>(input, 'f', 'F', [&input] {
        WireFilter filter;
        filter.topicFilter = input.text();
        filter.retain = input.text();
        filter.qos = readQos(input);
        return filter;
    });
    return publication;
}

WireCall readRawCall(FuzzInput &input)
{
    constexpr unsigned int BYTE_VALUES = 256;
    const Method &method = METHODS[input.byte() % METHODS.size()];
    WireCall call;
    call.member = method.name;
    if (input.byte() != 0) {
        call.path = UNCHECKED_PATH;
    }
    const std::string signature = input.text();
    call.signature = isSignature(signature) ? signature : method.signature;
    const std::size_t length = input.byte();
    call.body = input.bytes(length + BYTE_VALUES * input.byte());
    if (call.signature.empty()) {
        call.body.clear(); // anything else would be no message
    } else if (call.body.empty()) {
        call.body.push_back('\0');
    }
    return call;
}

} // namespace tovrel::test
