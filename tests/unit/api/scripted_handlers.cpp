#include "scripted_handlers.h"

namespace {

template <typename Structure>
void play(const Handler<Structure> ScriptedHandlers::*script, void *userData, Structure *structure,
          const HandlerCall &call)
{
    const auto &handler = static_cast<ScriptedHandlers *>(userData)->*script;
    ASSERT_TRUE(handler) << "a handler without a script is called";
    handler(structure, call);
}

template <typename Collection, typename Structure>
void play(Collection ScriptedHandlers::*collection, const Handler<Structure> Collection::*script,
          void *userData, Structure *structure, const HandlerCall &call)
{
    const auto &handler = static_cast<ScriptedHandlers *>(userData)->*collection.*script;
    ASSERT_TRUE(handler) << "a handler without a script is called";
    handler(structure, call);
}

using Subscriptions = decltype(ScriptedHandlers::subscription);
using EventFilters = decltype(ScriptedHandlers::eventFilter);

} // namespace

void tovrel_v2_root_get(tovrel_v2_root *obj, dbh_api_error_t **error,
                        dbh_request_context_t *context, void *userData)
{
    play(&ScriptedHandlers::getRoot, userData, obj, {nullptr, nullptr, error, context});
}

void tovrel_v2_root_import(tovrel_v2_import_root *obj, dbh_api_error_t **error,
                           dbh_request_context_t *context, void *userData)
{
    play(&ScriptedHandlers::import, userData, obj, {nullptr, nullptr, error, context});
}

void tovrel_v2_publication_get(tovrel_v2_publication *obj, dbh_api_error_t **error,
                               dbh_request_context_t *context, void *userData)
{
    play(&ScriptedHandlers::getPublication, userData, obj, {nullptr, nullptr, error, context});
}

void tovrel_v2_publication_set(tovrel_v2_publication *obj, dbh_api_error_t **error,
                               dbh_request_context_t *context, void *userData)
{
    play(&ScriptedHandlers::setPublication, userData, obj, {nullptr, nullptr, error, context});
}

// The handlers of both collections are alike.
#define COLLECTION_HANDLERS(node, member, Collection)                                              \
    void tovrel_v2_##node##_list_keys(tovrel_v2_##node##_keys *obj, dbh_api_error_t **error,       \
                                      dbh_request_context_t *context, void *userData)              \
    {                                                                                              \
        play(&ScriptedHandlers::member, &Collection::listKeys, userData, obj,                      \
             {nullptr, nullptr, error, context});                                                  \
    }                                                                                              \
    void tovrel_v2_##node##_get(const char *key, tovrel_v2_##node *obj, dbh_api_error_t **error,   \
                                dbh_request_context_t *context, void *userData)                    \
    {                                                                                              \
        play(&ScriptedHandlers::member, &Collection::get, userData, obj,                           \
             {key, nullptr, error, context});                                                      \
    }                                                                                              \
    void tovrel_v2_##node##_set(const char *key, tovrel_v2_##node *obj, dbh_api_error_t **error,   \
                                dbh_request_context_t *context, void *userData)                    \
    {                                                                                              \
        play(&ScriptedHandlers::member, &Collection::set, userData, obj,                           \
             {key, nullptr, error, context});                                                      \
    }                                                                                              \
    void tovrel_v2_##node##_add(tovrel_v2_##node *obj, dbh_string_t *createdKey,                   \
                                dbh_api_error_t **error, dbh_request_context_t *context,           \
                                void *userData)                                                    \
    {                                                                                              \
        play(&ScriptedHandlers::member, &Collection::add, userData, obj,                           \
             {nullptr, createdKey, error, context});                                               \
    }                                                                                              \
    void tovrel_v2_##node##_remove(const char *key, dbh_api_error_t **error,                       \
                                   dbh_request_context_t *context, void *userData)                 \
    {                                                                                              \
        play(&ScriptedHandlers::member, &Collection::remove, userData,                             \
             static_cast<void *>(nullptr), {key, nullptr, error, context});                        \
    }

COLLECTION_HANDLERS(subscription, subscription, Subscriptions)
COLLECTION_HANDLERS(publication_eventFilter, eventFilter, EventFilters)

void BackendTest::fill(tovrel_v2_subscription *obj, const std::string &key)
{
    dbh_string_set(gdt_tovrel_v2_subscription_id(obj), key.c_str(), nullptr);
    dbh_string_set(gdt_tovrel_v2_subscription_topicFilter(obj), "a/#", nullptr);
    dbh_string_set(gdt_tovrel_v2_subscription_qos(obj), "QOS_1", nullptr);
    dbh_boolean_set(gdt_tovrel_v2_subscription_isStateData(obj), false, nullptr);
    dbh_boolean_set(gdt_tovrel_v2_subscription_useDeviceTopicPrefix(obj), true, nullptr);
}

void BackendTest::fill(tovrel_v2_publication *obj)
{
    dbh_string_set(gdt_tovrel_v2_publication_topicPrefix(obj), "custom", nullptr);
    dbh_string_set(gdt_tovrel_v2_publication_customTopicPrefix(obj), "plant", nullptr);
    dbh_boolean_set(gdt_tovrel_v2_publication_appendEventTopic(obj), true, nullptr);
    dbh_boolean_set(gdt_tovrel_v2_publication_includeTopicNamespaces(obj), false, nullptr);
    dbh_boolean_set(gdt_tovrel_v2_publication_includeSerialNumberInPayload(obj), true, nullptr);
}

void BackendTest::fill(tovrel_v2_publication_eventFilter *obj, const std::string &key)
{
    dbh_string_set(gdt_tovrel_v2_publication_eventFilter_id(obj), key.c_str(), nullptr);
    dbh_string_set(gdt_tovrel_v2_publication_eventFilter_topicFilter(obj), "tns1:X//.", nullptr);
    dbh_string_set(gdt_tovrel_v2_publication_eventFilter_qos(obj), "QOS_2", nullptr);
    dbh_string_set(gdt_tovrel_v2_publication_eventFilter_retain(obj), "all", nullptr);
}

void BackendTest::scriptDocument()
{
    handlers.getRoot = [](auto *obj, const HandlerCall &) {
        dbh_string_set(gdt_tovrel_v2_deviceTopicPrefix(obj), "norq/1", nullptr);
    };
    handlers.getPublication = [](auto *obj, const HandlerCall &) { fill(obj); };
    handlers.subscription.listKeys = [](auto *obj, const HandlerCall &call) {
        EXPECT_TRUE(kdt_tovrel_v2_subscription_add_key(obj, "10", call.error));
        EXPECT_TRUE(kdt_tovrel_v2_subscription_add_key(obj, "2", call.error));
    };
    handlers.subscription.get = [](auto *obj, const HandlerCall &call) { fill(obj, call.key); };
    handlers.eventFilter.listKeys = [](auto *obj, const HandlerCall &call) {
        EXPECT_TRUE(kdt_tovrel_v2_publication_eventFilter_add_key(obj, "0", call.error));
    };
    handlers.eventFilter.get = [](auto *obj, const HandlerCall &call) { fill(obj, call.key); };
}
