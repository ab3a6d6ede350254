#include "documents.h"

namespace configuration {
namespace {

std::string quoted(const std::string &text)
{
    return '"' + text + '"';
}

std::string itemId(int number, int count, Items items)
{
    const bool bad = items == Items::LAST_BAD && number == count - 1;
    return bad ? "none" : std::to_string(number);
}

std::string itemText(int number, int count, Items items)
{
    return R"({"id":)" + quoted(itemId(number, count, items)) + R"(,"topicFilter":)" +
           quoted(itemTopicFilter(number, items)) +
           R"(,"qos":"QOS_1","isStateData":false,"useDeviceTopicPrefix":false})";
}

std::string filterText(int number)
{
    return R"({"id":)" + quoted(std::to_string(number)) + R"(,"topicFilter":)" +
           quoted(eventTopicFilter(number)) + R"(,"qos":"QOS_0","retain":"none"})";
}

template <typename Text>
std::string listOf(int count, const Text &textOf)
{
    std::string list = "[";
    for (int number = 0; number < count; ++number) {
        list.append(number == 0 ? "" : ",").append(textOf(number));
    }
    return list + "]";
}

} // namespace

std::string itemTopicFilter(int number, Items items)
{
    return "building/7/floor/" + std::to_string(number) +
           (items == Items::WILDCARDS ? "/temperature/+" : "/temperature/1");
}

std::string eventTopicFilter(int number)
{
    return "onvif:Device/norq:Sensor/Room" + std::to_string(number);
}

std::string request(const std::string &operation, const std::string &members)
{
    return R"({"api":"tovrel","version":2,"operation":)" + quoted(operation) +
           (members.empty() ? "" : "," + members) + "}";
}

std::string importRequest(int count, bool replace, Items items)
{
    return request("import",
                   R"("options":{"importType":)" + quoted(replace ? "replace" : "merge") +
                       R"(},"data":{"publication":{"eventFilter":)" + listOf(count, filterText) +
                       R"(},"subscription":)" +
                       listOf(count, [&](int number) { return itemText(number, count, items); }) +
                       "}");
}

std::string exportRequest()
{
    return request("get", R"("options":{"omitReadOnly":true})");
}

} // namespace configuration
