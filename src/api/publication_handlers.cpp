/** Requests about the settings of event-to-MQTT publication. */
#include "api/request_support.h"
#include "api/tovrel_v2_backend.h"
#include "events/publication_config.h"
#include "interfaces/base_event_bridge.h"
#include "interfaces/log.h"

#include <utility>

namespace {

using namespace tovrel;
using namespace tovrel::api;

constexpr const char *ANSWER_FAILED = "Cannot create response";

void fillSettings(tovrel_v2_publication *obj, const PublicationSettings &settings,
                  dbh_api_error_t **error)
{
    const std::string prefixSetting = prefixSettingText(settings.topicPrefixSetting);
    tovrel_log(LOG_LEVEL_PROGRESS, "%sSetting topic prefix setting to %s", LOG_PREFIX,
               prefixSetting.c_str());
    fill(gdt_tovrel_v2_publication_topicPrefix(obj), prefixSetting, ANSWER_FAILED, error);
    fill(gdt_tovrel_v2_publication_customTopicPrefix(obj), settings.customTopicPrefix,
         ANSWER_FAILED, error);
    fill(gdt_tovrel_v2_publication_appendEventTopic(obj), settings.appendEventTopic, ANSWER_FAILED,
         error);
    fill(gdt_tovrel_v2_publication_includeTopicNamespaces(obj), settings.includeTopicNamespaces,
         ANSWER_FAILED, error);
    fill(gdt_tovrel_v2_publication_includeSerialNumberInPayload(obj),
         settings.includeSerialNumberInPayload, ANSWER_FAILED, error);
}

void changeSettings(PublicationConfig &config, tovrel_v2_publication *obj)
{
    if (const auto *const field = sdt_tovrel_v2_publication_topicPrefix(obj)) {
        config.setTopicPrefixSetting(prefixSettingOf(dbh_string_value(field)));
    }
    if (const auto *const field = sdt_tovrel_v2_publication_customTopicPrefix(obj)) {
        config.setCustomTopicPrefix(dbh_string_value(field));
    }
    if (const auto *const field = sdt_tovrel_v2_publication_appendEventTopic(obj)) {
        config.setAppendEventTopic(dbh_boolean_value(field));
    }
    if (const auto *const field = sdt_tovrel_v2_publication_includeSerialNumberInPayload(obj)) {
        config.setIncludeSerialNumberInPayload(dbh_boolean_value(field));
    }
    if (const auto *const field = sdt_tovrel_v2_publication_includeTopicNamespaces(obj)) {
        config.setIncludeTopicNamespaces(dbh_boolean_value(field));
    }
}

} // namespace

void tovrel_v2_publication_get(tovrel_v2_publication *obj, dbh_api_error_t **error,
                               dbh_request_context_t * /*context*/, void *userData)
{
    if (userData == nullptr) {
        tovrel_log(LOG_LEVEL_PROGRESS, "%sevent bridge is null", LOG_PREFIX);
        return;
    }
    orInternalError("Internal error", error, [&] {
        fillSettings(obj, std::as_const(bridgeOf(userData)).getPublicationConfig().getSettings(),
                     error);
    });
}

void tovrel_v2_publication_set(tovrel_v2_publication *obj, dbh_api_error_t **error,
                               dbh_request_context_t * /*context*/, void *userData)
{
    orInternalError("Internal error", error, [&] {
        BaseEventBridge &bridge = bridgeOf(userData);
        PublicationConfig &config = bridge.getPublicationConfig();
        changeSettings(config, obj);
        config.save();
        bridge.refreshPublication();
    });
}
