/** Requests about the configuration as a whole. */
#include "api/request_support.h"
#include "api/tovrel_v2_backend.h"
#include "events/publication_config.h"
#include "interfaces/base_event_bridge.h"
#include "interfaces/exceptions.h"
#include "interfaces/log.h"
#include "mqtt/subscription_store.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>

namespace {

using namespace tovrel;
using namespace tovrel::api;

/** Ends an import with an error that has been left in the slot. */
class ImportRefused : public std::exception {};

[[noreturn]] void refuse(dbh_api_error_t **error, int code, const char *text)
{
    dbh_api_error_new(error, code, "%s", text);
    throw ImportRefused();
}

void importSettings(PublicationConfig &config, tovrel_v2_import_publication *obj)
{
    if (const auto *const field = idt_tovrel_v2_publication_appendEventTopic(obj)) {
        config.setAppendEventTopic(dbh_boolean_value(field));
    }
    if (const auto *const field = idt_tovrel_v2_publication_topicPrefix(obj)) {
        config.setTopicPrefixSetting(prefixSettingOf(dbh_string_value(field)));
    }
    if (const auto *const field = idt_tovrel_v2_publication_customTopicPrefix(obj)) {
        config.setCustomTopicPrefix(dbh_string_value(field));
    }
    if (const auto *const field = idt_tovrel_v2_publication_includeSerialNumberInPayload(obj)) {
        config.setIncludeSerialNumberInPayload(dbh_boolean_value(field));
    }
    if (const auto *const field = idt_tovrel_v2_publication_includeTopicNamespaces(obj)) {
        config.setIncludeTopicNamespaces(dbh_boolean_value(field));
    }
}

/** The file has a group for each filter, named by its id, and one more. */
void requireGroupName(const std::string &id)
{
    const auto breaksName = [](char each) {
        return each == '[' || each == ']' || g_ascii_iscntrl(each);
    };
    if (id.empty() || id == "common" || std::any_of(id.begin(), id.end(), breaksName)) {
        throw ConfigException("Invalid ID");
    }
}

EventFilterConfig &filterToImport(PublicationConfig &config, const std::string &id)
{
    try {
        return config.getEventFilter(id);
    } catch (const NoSuchConfigException &) {
        config.setEventFilter(id, EventFilterConfig("", 0, "property"));
        return config.getEventFilter(id);
    }
}

void importFilter(PublicationConfig &config, tovrel_v2_publication_eventFilter *item)
{
    const auto *const id = idt_tovrel_v2_publication_eventFilter_id(item);
    if (id == nullptr) {
        throw std::logic_error("an imported event filter has no id");
    }
    requireGroupName(dbh_string_value(id));
    EventFilterConfig &filter = filterToImport(config, dbh_string_value(id));
    if (const auto *const field = idt_tovrel_v2_publication_eventFilter_topicFilter(item)) {
        filter.setTopicFilter(dbh_string_value(field));
    }
    if (const auto *const field = idt_tovrel_v2_publication_eventFilter_qos(item)) {
        filter.setQos(qosOf(dbh_string_value(field)));
    }
    if (const auto *const field = idt_tovrel_v2_publication_eventFilter_retain(item)) {
        filter.setRetainPolicy(dbh_string_value(field));
    }
}

void importFilters(PublicationConfig &config, tovrel_v2_import_publication *obj,
                   dbh_api_error_t **error)
{
    auto *const list = idt_tovrel_v2_publication_eventFilter(obj);
    while (auto *const item = idt_tovrel_v2_publication_eventFilter_iterator_next(list)) {
        if (config.getEventFilters().size() >= PublicationConfig::MAX_ITEMS) {
            refuse(error, DBH_ERROR_TOO_MANY_ITEMS, "Too many event-to-MQTT configurations");
        }
        importFilter(config, item);
    }
}

void importItem(SubscriptionStore &store, tovrel_v2_subscription *item, dbh_api_error_t **error)
{
    if (store.items.size() >= SubscriptionStore::ID_COUNT) {
        refuse(error, DBH_ERROR_TOO_MANY_ITEMS, "Too many MQTT-to-event configurations");
    }
    const auto *const id = idt_tovrel_v2_subscription_id(item);
    if (id == nullptr) {
        refuse(error, DBH_ERROR_ITEM_WITHOUT_KEY,
               "Cannot import MQTT to event config without ID for the item");
    }
    const std::string topicFilter = valueOr(idt_tovrel_v2_subscription_topicFilter(item), "");
    requireOneLine(dbh_string_value(id));
    requireOneLine(topicFilter);
    store.setSubscription(dbh_string_value(id), topicFilter,
                          valueOr(idt_tovrel_v2_subscription_useDeviceTopicPrefix(item), false),
                          qosOf(valueOr(idt_tovrel_v2_subscription_qos(item), "QOS_0")),
                          valueOr(idt_tovrel_v2_subscription_isStateData(item), false));
}

/** Runs a step; whatever it throws has become an error of this text, unless it left its own. */
void step(const char *failure, dbh_api_error_t **error, const std::function<void()> &body)
{
    orInternalError(failure, error, body);
    if (*error != nullptr) {
        throw ImportRefused();
    }
}

void importSubscriptions(SubscriptionStore &store, tovrel_v2_import_root *obj,
                         dbh_api_error_t **error)
{
    auto *const list = idt_tovrel_v2_subscription(obj);
    while (auto *const item = idt_tovrel_v2_subscription_iterator_next(list)) {
        importItem(store, item, error);
    }
}

void importAll(tovrel_v2_import_root *obj, dbh_api_error_t **error, dbh_request_context_t *context,
               BaseEventBridge &bridge)
{
    const auto *const options = dbh_request_context_get_options(context);
    if (dbh_options_get_import_type(options) == DBH_IMPORT_REPLACE) {
        bridge.resetConfiguration();
    }
    // Copies that become live only when all of the import has worked.
    PublicationConfig publication = std::as_const(bridge).getPublicationConfig();
    SubscriptionStore subscriptions = std::as_const(bridge).getSubscriptions();

    auto *const imported = idt_tovrel_v2_publication(obj);
    importSettings(publication, imported);
    importFilters(publication, imported, error);
    step("Cannot import MQTT to event config - internal error", error,
         [&] { importSubscriptions(subscriptions, obj, error); });
    step("Cannot use imported MQTT to event config - internal error", error,
         [&] { bridge.replaceSubscriptions(subscriptions); });
    bridge.setPublicationConfig(publication);
    bridge.refreshPublication();
}

} // namespace

void tovrel_v2_root_get(tovrel_v2_root *obj, dbh_api_error_t **error,
                        dbh_request_context_t * /*context*/, void *userData)
{
    orInternalError("Internal error", error, [&] {
        auto *const field = gdt_tovrel_v2_deviceTopicPrefix(obj);
        if (field == nullptr) {
            tovrel_log(LOG_LEVEL_PROGRESS, "%sdevice_topic_prefix is nullptr!", LOG_PREFIX);
            return;
        }
        if (!dbh_string_set(field, bridgeOf(userData).getDeviceTopicPrefix().c_str(), error)) {
            tovrel_log(LOG_LEVEL_FAILURE, "%sCould not set the device topic prefix property",
                       LOG_PREFIX);
        }
    });
}

void tovrel_v2_root_import(tovrel_v2_import_root *obj, dbh_api_error_t **error,
                           dbh_request_context_t *context, void *userData)
{
    orInternalError("Could not perform import", error,
                    [&] { importAll(obj, error, context, bridgeOf(userData)); });
}
