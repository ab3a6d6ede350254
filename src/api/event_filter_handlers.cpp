/** Requests about event filters. */
#include "api/request_support.h"
#include "api/tovrel_v2_backend.h"
#include "events/publication_config.h"
#include "interfaces/base_event_bridge.h"
#include "interfaces/exceptions.h"
#include "interfaces/log.h"

#include <cstdlib>
#include <utility>

namespace {

using namespace tovrel;
using namespace tovrel::api;

constexpr const char *ANSWER_FAILED = "Cannot create response";

/** Runs the body of a handler of one filter: a missing one is told apart from other failures. */
void forFilter(const char *missing, const char *failure, dbh_api_error_t **error,
               const std::function<void()> &body) noexcept
{
    orInternalError(failure, error, [&] {
        try {
            body();
        } catch (const NoSuchConfigException &) {
            dbh_api_error_new(error, DBH_ERROR_NO_SUCH_ITEM, "%s", missing);
        }
    });
}

void fillFilter(tovrel_v2_publication_eventFilter *obj, const EventFilterConfig &filter,
                dbh_api_error_t **error)
{
    fill(gdt_tovrel_v2_publication_eventFilter_topicFilter(obj), filter.getTopicFilter(),
         ANSWER_FAILED, error);
    fill(gdt_tovrel_v2_publication_eventFilter_qos(obj), qosText(filter.getQos()), ANSWER_FAILED,
         error);
    fill(gdt_tovrel_v2_publication_eventFilter_retain(obj), filter.retainPolicyText(),
         ANSWER_FAILED, error);
}

void changeFilter(EventFilterConfig &filter, tovrel_v2_publication_eventFilter *obj)
{
    if (const auto *const field = sdt_tovrel_v2_publication_eventFilter_topicFilter(obj)) {
        filter.setTopicFilter(dbh_string_value(field));
    }
    if (const auto *const field = sdt_tovrel_v2_publication_eventFilter_qos(obj)) {
        // The text is read as a number, which none of the texts begins with: a change through this
        // door has always made the QoS 0, unlike an add or an import, and clients count on it.
        filter.setQos(static_cast<std::int32_t>(std::strtol(dbh_string_value(field), nullptr, 10)));
    }
    if (const auto *const field = sdt_tovrel_v2_publication_eventFilter_retain(obj)) {
        filter.setRetainPolicy(dbh_string_value(field));
    }
}

EventFilterConfig newFilter(tovrel_v2_publication_eventFilter *obj)
{
    const auto topicFilter = valueOr(adt_tovrel_v2_publication_eventFilter_topicFilter(obj), "");
    const auto qos = qosOf(valueOr(adt_tovrel_v2_publication_eventFilter_qos(obj), "QOS_0"));
    const auto retain = valueOr(adt_tovrel_v2_publication_eventFilter_retain(obj), "property");
    return {topicFilter.c_str(), qos, retain.c_str()};
}

void apply(const PublicationConfig &config, BaseEventBridge &bridge)
{
    config.save();
    bridge.refreshPublication();
}

} // namespace

void tovrel_v2_publication_eventFilter_list_keys(tovrel_v2_publication_eventFilter_keys *obj,
                                                 dbh_api_error_t **error,
                                                 dbh_request_context_t * /*context*/,
                                                 void *userData)
{
    orInternalError("Internal error", error, [&] {
        const auto &config = std::as_const(bridgeOf(userData)).getPublicationConfig();
        for (const auto &[id, filter] : config.getEventFilters()) {
            kdt_tovrel_v2_publication_eventFilter_add_key(obj, id.c_str(), error);
        }
    });
}

void tovrel_v2_publication_eventFilter_get(const char *key, tovrel_v2_publication_eventFilter *obj,
                                           dbh_api_error_t **error,
                                           dbh_request_context_t * /*context*/, void *userData)
{
    forFilter("Cannot get item - it does not exist.", "Cannot get item - internal error.", error,
              [&] {
                  const auto &config = std::as_const(bridgeOf(userData)).getPublicationConfig();
                  fill(gdt_tovrel_v2_publication_eventFilter_id(obj), key, ANSWER_FAILED, error);
                  fillFilter(obj, config.getEventFilter(key), error);
              });
}

void tovrel_v2_publication_eventFilter_set(const char *key, tovrel_v2_publication_eventFilter *obj,
                                           dbh_api_error_t **error,
                                           dbh_request_context_t * /*context*/, void *userData)
{
    forFilter("Cannot set item - it does not exist.", "Cannot set item - internal error.", error,
              [&] {
                  BaseEventBridge &bridge = bridgeOf(userData);
                  PublicationConfig &config = bridge.getPublicationConfig();
                  changeFilter(config.getEventFilter(key), obj);
                  apply(config, bridge);
              });
}

void tovrel_v2_publication_eventFilter_add(tovrel_v2_publication_eventFilter *obj,
                                           dbh_string_t *createdKey, dbh_api_error_t **error,
                                           dbh_request_context_t * /*context*/, void *userData)
{
    orInternalError("Could not create a new event-to-MQTT configuration.", error, [&] {
        BaseEventBridge &bridge = bridgeOf(userData);
        PublicationConfig &config = bridge.getPublicationConfig();
        if (config.getEventFilters().size() >= PublicationConfig::MAX_ITEMS) {
            dbh_api_error_new(error, DBH_ERROR_TOO_MANY_ITEMS,
                              "Too many event-to-MQTT configurations");
            return;
        }
        const std::string id = config.addEventFilter(newFilter(obj));
        if (!dbh_string_set(createdKey, id.c_str(), nullptr)) {
            dbh_api_error_new(error, DBH_ERROR_INTERNAL,
                              "Did not get a proper ID for the created item.");
            return;
        }
        apply(config, bridge);
    });
}

void tovrel_v2_publication_eventFilter_remove(const char *key, dbh_api_error_t **error,
                                              dbh_request_context_t * /*context*/, void *userData)
{
    forFilter("Cannot remove item - it does not exist.", "Cannot remove item - internal error.",
              error, [&] {
                  tovrel_log(LOG_LEVEL_PROGRESS, "%sTrying to remove filter with id: %s",
                             LOG_PREFIX, key);
                  BaseEventBridge &bridge = bridgeOf(userData);
                  PublicationConfig &config = bridge.getPublicationConfig();
                  config.removeEventFilter(key);
                  apply(config, bridge);
              });
}
