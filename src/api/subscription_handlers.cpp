/** Requests about MQTT-to-event items. */
#include "api/request_support.h"
#include "api/tovrel_v2_backend.h"
#include "interfaces/base_event_bridge.h"
#include "interfaces/c_handles.h"
#include "interfaces/exceptions.h"
#include "interfaces/log.h"
#include "mqtt/subscription_store.h"

#include <utility>

namespace {

using namespace tovrel;
using namespace tovrel::api;

using ApiError = CHandle<dbh_api_error_t, dbh_api_error_free>;

/** As many as there are ids. */
constexpr std::size_t MOST_ITEMS = SubscriptionStore::ID_COUNT;
constexpr const char *ANSWER_FAILED = "Could not create response";

void fillItem(tovrel_v2_subscription *obj, const std::string &id, const SubscriptionConfig &item,
              dbh_api_error_t **error)
{
    fill(gdt_tovrel_v2_subscription_id(obj), id, ANSWER_FAILED, error);
    fill(gdt_tovrel_v2_subscription_topicFilter(obj), item.topicFilter, ANSWER_FAILED, error);
    fill(gdt_tovrel_v2_subscription_useDeviceTopicPrefix(obj), item.useDeviceTopicPrefix,
         ANSWER_FAILED, error);
    fill(gdt_tovrel_v2_subscription_qos(obj), qosText(item.qos), ANSWER_FAILED, error);
    fill(gdt_tovrel_v2_subscription_isStateData(obj), item.isStateData, ANSWER_FAILED, error);
}

/** The item with the properties that a set request has. */
SubscriptionConfig changed(SubscriptionConfig item, tovrel_v2_subscription *obj)
{
    item.useDeviceTopicPrefix =
        valueOr(sdt_tovrel_v2_subscription_useDeviceTopicPrefix(obj), item.useDeviceTopicPrefix);
    item.topicFilter = valueOr(sdt_tovrel_v2_subscription_topicFilter(obj), item.topicFilter);
    if (const auto *const qos = sdt_tovrel_v2_subscription_qos(obj)) {
        item.qos = qosOf(dbh_string_value(qos));
    }
    item.isStateData = valueOr(sdt_tovrel_v2_subscription_isStateData(obj), item.isStateData);
    return item;
}

void fillCreatedKey(dbh_string_t *createdKey, const std::string &id)
{
    // Not into the request's slot: a missing key is reported as such, by the caller.
    ApiError failure;
    dbh_api_error_t *slot = nullptr;
    if (!dbh_string_set(createdKey, id.c_str(), &slot)) {
        failure.reset(slot);
        tovrel_log(LOG_LEVEL_PROGRESS, "%s%s: %s", LOG_PREFIX, ANSWER_FAILED,
                   dbh_api_error_message(failure.get()));
    }
}

void addItem(BaseEventBridge &bridge, tovrel_v2_subscription *obj, dbh_string_t *createdKey,
             dbh_api_error_t **error)
{
    const SubscriptionStore &live = std::as_const(bridge).getSubscriptions();
    if (live.items.size() >= MOST_ITEMS) {
        dbh_api_error_new(error, DBH_ERROR_TOO_MANY_ITEMS,
                          "Cannot add MQTT to event config - too many created");
        return;
    }
    SubscriptionStore copy = live;
    const std::string id =
        copy.addSubscription(valueOr(adt_tovrel_v2_subscription_topicFilter(obj), ""),
                             valueOr(adt_tovrel_v2_subscription_useDeviceTopicPrefix(obj), false),
                             qosOf(valueOr(adt_tovrel_v2_subscription_qos(obj), "QOS_0")),
                             valueOr(adt_tovrel_v2_subscription_isStateData(obj), false));
    bridge.replaceSubscriptions(copy);
    fillCreatedKey(createdKey, id);
}

} // namespace

void tovrel_v2_subscription_list_keys(tovrel_v2_subscription_keys *obj, dbh_api_error_t **error,
                                      dbh_request_context_t * /*context*/, void *userData)
{
    orInternalError("Internal error", error, [&] {
        for (const auto &[id, item] : std::as_const(bridgeOf(userData)).getSubscriptions().items) {
            kdt_tovrel_v2_subscription_add_key(obj, id.c_str(), error);
        }
    });
}

void tovrel_v2_subscription_get(const char *key, tovrel_v2_subscription *obj,
                                dbh_api_error_t **error, dbh_request_context_t * /*context*/,
                                void *userData)
{
    orInternalError("Cannot get item - internal error", error, [&] {
        const auto &items = std::as_const(bridgeOf(userData)).getSubscriptions().items;
        const auto found = items.find(key);
        if (found == items.end()) {
            dbh_api_error_new(error, DBH_ERROR_NO_SUCH_ITEM, "Subscription does not exist");
            return;
        }
        fillItem(obj, found->first, found->second, error);
    });
}

void tovrel_v2_subscription_set(const char *key, tovrel_v2_subscription *obj,
                                dbh_api_error_t **error, dbh_request_context_t * /*context*/,
                                void *userData)
{
    // The text says "get" here, too; clients know it so.
    orInternalError("Cannot get item - internal error", error, [&] {
        BaseEventBridge &bridge = bridgeOf(userData);
        SubscriptionStore &live = bridge.getSubscriptions();
        const auto found = live.items.find(key);
        if (found == live.items.end()) {
            dbh_api_error_new(error, DBH_ERROR_NO_SUCH_ITEM, "Subscription does not exist");
            return;
        }
        const SubscriptionConfig item = changed(found->second, obj);
        requireOneLine(item.topicFilter);
        found->second = item;
        bridge.replaceSubscriptions(live);
    });
}

void tovrel_v2_subscription_add(tovrel_v2_subscription *obj, dbh_string_t *createdKey,
                                dbh_api_error_t **error, dbh_request_context_t * /*context*/,
                                void *userData)
{
    orInternalError("Internal error", error, [&] {
        try {
            addItem(bridgeOf(userData), obj, createdKey, error);
        } catch (const SubscribeConfigException &rejection) {
            dbh_api_error_new(error, DBH_ERROR_MALFORMED_DATA, "%s", rejection.what());
        } catch (const std::exception &failure) {
            tovrel_log(LOG_LEVEL_WARN, "%sCould not add new subscription: %s", LOG_PREFIX,
                       failure.what());
            throw;
        }
    });
}

void tovrel_v2_subscription_remove(const char *key, dbh_api_error_t **error,
                                   dbh_request_context_t * /*context*/, void *userData)
{
    orInternalError("Cannot remove item - internal error", error, [&] {
        BaseEventBridge &bridge = bridgeOf(userData);
        SubscriptionStore copy = std::as_const(bridge).getSubscriptions();
        if (copy.items.erase(key) == 0) {
            dbh_api_error_new(error, DBH_ERROR_NO_SUCH_ITEM,
                              "Cannot remove item - it does not exist");
            return;
        }
        copy.releaseId(key);
        bridge.replaceSubscriptions(copy);
    });
}
