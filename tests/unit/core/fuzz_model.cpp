#include "unit/core/fuzz_model.h"

#include "support/fuzz.h"
#include "support/served_api.h"

#include <norq/mqtt_messaging.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <string>

using test_support::require;

namespace tovrel::test {

namespace {

bool isNoncharacter(gunichar character)
{
    constexpr gunichar FIRST_OF_BLOCK = 0xFDD0;
    constexpr gunichar LAST_OF_BLOCK = 0xFDEF;
    constexpr gunichar END_OF_PLANE = 0xFFFE;
    return (character >= FIRST_OF_BLOCK && character <= LAST_OF_BLOCK) ||
           (character & END_OF_PLANE) == END_OF_PLANE;
}

bool isAllowed(const WireItem &item)
{
    constexpr glong MOST_CHARACTERS = 1024;
    const std::string &topic = item.topicFilter;
    const bool hasWildcard = topic.find_first_of("#+") != std::string::npos;
    return !topic.empty() && g_utf8_strlen(topic.c_str(), -1) <= MOST_CHARACTERS &&
           !(item.isStateData && hasWildcard);
}

} // namespace

bool isReadable(const std::string &text)
{
    if (!g_utf8_validate(text.c_str(), static_cast<gssize>(text.size()), nullptr)) {
        return false;
    }
    for (const char *place = text.c_str(); *place != '\0'; place = g_utf8_next_char(place)) {
        if (isNoncharacter(g_utf8_get_char(place))) {
            return false;
        }
    }
    return true;
}

bool isReadable(const std::vector<WireItem> &items)
{
    return std::all_of(items.begin(), items.end(),
                       [](const WireItem &item) { return isReadable(item.topicFilter); });
}

bool isReadable(const WirePublication &publication)
{
    return isReadable(publication.topicPrefixSetting) &&
           isReadable(publication.customTopicPrefix) &&
           std::all_of(publication.filters.begin(), publication.filters.end(),
                       [](const WireFilter &filter) { return isReadable(filter.topicFilter); });
}

ItemsOutcome expectedOutcome(const std::vector<WireItem> &records)
{
    constexpr std::int32_t REJECTED = -1;
    ItemsOutcome outcome;
    if (!isReadable(records)) {
        return outcome;
    }
    outcome.status = 0;
    for (const WireItem &record : records) {
        if (!isAllowed(record)) {
            outcome.status = REJECTED;
            return outcome;
        }
        if (!MQTTMsg_check_sub_topic(record.topicFilter.c_str())) {
            outcome.status = REJECTED;
            continue;
        }
        if (outcome.items.size() == SubscriptionStore::ID_COUNT) {
            outcome.status.reset();
            return outcome;
        }
        outcome.items[std::to_string(outcome.items.size())] = {.isStateData = record.isStateData,
                                                               .qos = record.qos,
                                                               .useDeviceTopicPrefix =
                                                                   record.useDeviceTopicPrefix,
                                                               .topicFilter = record.topicFilter};
    }
    outcome.applied = outcome.status == 0;
    return outcome;
}

PublicationOutcome expectedOutcome(const WirePublication &sent)
{
    PublicationOutcome outcome;
    if (!isReadable(sent.topicPrefixSetting) || !isReadable(sent.customTopicPrefix)) {
        outcome.status = -EBADMSG;
        return outcome;
    }
    std::map<std::string, WireFilter> filters;
    for (const WireFilter &filter : sent.filters) {
        if (!isReadable(filter.topicFilter) || !isReadable(filter.retain)) {
            outcome.status = -EBADMSG; // and what was read before is applied
            break;
        }
        if (filters.size() == PublicationConfig::MAX_ITEMS) {
            outcome.endsService = true;
            return outcome;
        }
        WireFilter &kept = filters[std::to_string(filters.size())];
        kept = filter;
        if (filter.retain != "none" && filter.retain != "all") {
            kept.retain = "property";
        }
    }
    outcome.applied = true;
    outcome.publication = sent;
    outcome.publication.filters.clear();
    for (const auto &[id, filter] : filters) {
        outcome.publication.filters.push_back(filter);
    }
    return outcome;
}

bool isError(const CallResult &result)
{
    return sd_bus_message_is_method_error(result.reply.get(), nullptr) > 0;
}

std::string responseOf(const CallResult &result)
{
    std::string response;
    require(!isError(result) && readFields(result.reply.get(), response) > 0,
            "every request has a response");
    const OwnedJson json(json_loads(response.c_str(), JSON_ALLOW_NUL, nullptr));
    require(json_object_size(json.get()) == 1, "a response is data or an error");
    return response;
}

std::optional<std::int32_t> statusOf(const CallResult &result)
{
    if (isError(result)) {
        return {};
    }
    Answer answer;
    LegacyClient::readStatus(result.reply.get(), answer);
    return answer.status;
}

std::vector<WireItem> itemsOf(const KeepingBridge &bridge)
{
    std::vector<WireItem> items;
    for (const auto &[id, item] : bridge.getSubscriptions().items) {
        items.push_back({.topicFilter = item.topicFilter,
                         .useDeviceTopicPrefix = item.useDeviceTopicPrefix,
                         .qos = item.qos,
                         .isStateData = item.isStateData});
    }
    return items;
}

std::vector<WireItem> itemsOf(const CallResult &result)
{
    Answer answer;
    LegacyClient::readItems(result.reply.get(), answer);
    return answer.items;
}

WirePublication publicationOf(const KeepingBridge &bridge)
{
    const PublicationConfig &config = bridge.getPublicationConfig();
    const PublicationSettings &settings = config.getSettings();
    WirePublication publication{.topicPrefixSetting = settings.topicPrefixSetting,
                                .customTopicPrefix = settings.customTopicPrefix,
                                .appendEventTopic = settings.appendEventTopic,
                                .includeTopicNamespaces = settings.includeTopicNamespaces,
                                .includeSerialNumberInPayload =
                                    settings.includeSerialNumberInPayload,
                                .filters = {}};
    for (const auto &[id, filter] : config.getEventFilters()) {
        publication.filters.push_back({.topicFilter = filter.getTopicFilter(),
                                       .retain = filter.retainPolicyText(),
                                       .qos = filter.getQos()});
    }
    return publication;
}

WirePublication publicationOf(const CallResult &result)
{
    Answer answer;
    LegacyClient::readPublication(result.reply.get(), answer);
    return answer.publication;
}

} // namespace tovrel::test
