#include "scripted_handlers.h"

namespace {

using BackendAnswers = BackendTest;

constexpr const char *SUBSCRIPTION_2 =
    R"({"id":"2","topicFilter":"a/#","qos":"QOS_1","isStateData":false,)"
    R"("useDeviceTopicPrefix":true})";
constexpr const char *SETTINGS =
    R"("topicPrefix":"custom","customTopicPrefix":"plant","appendEventTopic":true,)"
    R"("includeTopicNamespaces":false,"includeSerialNumberInPayload":true)";
constexpr const char *EVENT_FILTER_0 =
    R"({"id":"0","topicFilter":"tns1:X//.","qos":"QOS_2","retain":"all"})";

std::string children()
{
    const std::string item10 =
        R"({"id":"10",)" + std::string(SUBSCRIPTION_2).substr(std::string(R"({"id":"2",)").size());
    return R"("subscription":[)" + item10 + "," + SUBSCRIPTION_2 + R"(],"publication":{)" +
           SETTINGS + R"(,"eventFilter":[)" + EVENT_FILTER_0 + "]}";
}

TEST_F(BackendAnswers, HoldTheWholeDocumentInItsOrder)
{
    scriptDocument();
    EXPECT_EQ(ask(R"("operation":"get")"),
              R"({"data":{"deviceTopicPrefix":"norq/1",)" + children() + "}}");
}

TEST_F(BackendAnswers, LeaveTheDeviceTopicPrefixOutOnDemand)
{
    scriptDocument();
    EXPECT_EQ(ask(R"("operation":"get","options":{"omitReadOnly":true})"),
              R"({"data":{)" + children() + "}}");
    EXPECT_EQ(ask(R"("operation":"get","property":"deviceTopicPrefix")"),
              R"({"data":{"deviceTopicPrefix":"norq/1"}})");
}

TEST_F(BackendAnswers, HoldOneNodeOrItem)
{
    scriptDocument();
    EXPECT_EQ(ask(R"("operation":"get","path":["publication"])"),
              R"({"data":{)" + std::string(SETTINGS) + R"(,"eventFilter":[)" + EVENT_FILTER_0 +
                  "]}}");
    EXPECT_EQ(ask(R"("operation":"get","path":["subscription","2"])"),
              R"({"data":)" + std::string(SUBSCRIPTION_2) + "}");
    EXPECT_EQ(ask(R"("operation":"get","path":["publication","eventFilter","0"])"),
              R"({"data":)" + std::string(EVENT_FILTER_0) + "}");
    EXPECT_EQ(ask(R"("operation":"listKeys","path":["publication","eventFilter"])"),
              R"({"data":[)" + std::string(EVENT_FILTER_0) + "]}");
}

TEST_F(BackendAnswers, OfAnEmptyCollectionAreAnEmptyArray)
{
    handlers.subscription.listKeys = [](auto *, const HandlerCall &) {};
    EXPECT_EQ(ask(R"("operation":"listKeys","path":["subscription"])"), R"({"data":[]})");
}

TEST_F(BackendAnswers, AreTheErrorsOfHandlers)
{
    scriptDocument();
    const auto fail = [](auto *, const HandlerCall &call) {
        dbh_api_error_new(call.error, 7, "full");
    };
    handlers.eventFilter.get = fail;
    EXPECT_EQ(ask(R"("operation":"get")"), errorAnswer(7, "full"));
    handlers.subscription.listKeys = fail;
    EXPECT_EQ(ask(R"("operation":"listKeys","path":["subscription"])"), errorAnswer(7, "full"));
    handlers.getRoot = fail;
    EXPECT_EQ(ask(R"("operation":"get")"), errorAnswer(7, "full"));
}

/** A get whose handler leaves one field unset: which, and what to call to unset it. */
template <typename Structure>
struct Forgotten {
    const char *message;
    void (*unset)(Structure *obj);
};

#define FORGOTTEN(type, kind, path, accessor)                                                      \
    Forgotten<type>                                                                                \
    {                                                                                              \
        path " has not been set", [](type *obj) { dbh_##kind##_deinit(accessor(obj)); }            \
    }

TEST_F(BackendAnswers, AreRefusedWithoutADeviceTopicPrefix)
{
    scriptDocument();
    handlers.getRoot = [](auto *, const HandlerCall &) {};
    const std::string answer = errorAnswer(0, "root.deviceTopicPrefix has not been set");
    EXPECT_EQ(ask(R"("operation":"get")"), answer);
    EXPECT_EQ(ask(R"("operation":"get","options":{"omitReadOnly":true})"), answer);
}

TEST_F(BackendAnswers, AreRefusedWhenAFieldOfASubscriptionIsNotSet)
{
#define SUBSCRIPTION(kind, name)                                                                   \
    FORGOTTEN(tovrel_v2_subscription, kind, "root.subscription[]." #name,                          \
              gdt_tovrel_v2_subscription_##name)
    const Forgotten<tovrel_v2_subscription> cases[] = {
        SUBSCRIPTION(string, id), SUBSCRIPTION(string, topicFilter), SUBSCRIPTION(string, qos),
        SUBSCRIPTION(boolean, isStateData), SUBSCRIPTION(boolean, useDeviceTopicPrefix)};
    for (const auto &one : cases) {
        handlers.subscription.get = [&one](auto *obj, const HandlerCall &call) {
            fill(obj, call.key);
            one.unset(obj);
        };
        EXPECT_EQ(ask(R"("operation":"get","path":["subscription","0"])"),
                  errorAnswer(0, one.message));
    }
}

TEST_F(BackendAnswers, AreRefusedWhenASettingOfThePublicationIsNotSet)
{
#define PUBLICATION(kind, name)                                                                    \
    FORGOTTEN(tovrel_v2_publication, kind, "root.publication." #name,                              \
              gdt_tovrel_v2_publication_##name)
    const Forgotten<tovrel_v2_publication> cases[] = {
        PUBLICATION(string, topicPrefix), PUBLICATION(string, customTopicPrefix),
        PUBLICATION(boolean, appendEventTopic), PUBLICATION(boolean, includeTopicNamespaces),
        PUBLICATION(boolean, includeSerialNumberInPayload)};
    for (const auto &one : cases) {
        handlers.getPublication = [&one](auto *obj, const HandlerCall &) {
            fill(obj);
            one.unset(obj);
        };
        EXPECT_EQ(ask(R"("operation":"get","path":["publication"])"), errorAnswer(0, one.message));
    }
}

TEST_F(BackendAnswers, AreRefusedWhenAFieldOfAnEventFilterIsNotSet)
{
#define EVENT_FILTER(name)                                                                         \
    FORGOTTEN(tovrel_v2_publication_eventFilter, string, "root.publication.eventFilter[]." #name,  \
              gdt_tovrel_v2_publication_eventFilter_##name)
    const Forgotten<tovrel_v2_publication_eventFilter> cases[] = {
        EVENT_FILTER(id), EVENT_FILTER(topicFilter), EVENT_FILTER(qos), EVENT_FILTER(retain)};
    for (const auto &one : cases) {
        handlers.eventFilter.get = [&one](auto *obj, const HandlerCall &call) {
            fill(obj, call.key);
            one.unset(obj);
        };
        EXPECT_EQ(ask(R"("operation":"get","path":["publication","eventFilter","0"])"),
                  errorAnswer(0, one.message));
    }
}

TEST_F(BackendAnswers, NameTheFirstOfSeveralUnsetFields)
{
    handlers.subscription.get = [](auto *obj, const HandlerCall &call) {
        dbh_string_set(gdt_tovrel_v2_subscription_id(obj), call.key, nullptr);
    };
    EXPECT_EQ(ask(R"("operation":"get","path":["subscription","0"])"),
              errorAnswer(0, "root.subscription[].topicFilter has not been set"));
}

TEST_F(BackendAnswers, AreRefusedWhenAHandlerSetsWhatIsNotAllowed)
{
    handlers.getPublication = [](auto *obj, const HandlerCall &call) {
        fill(obj);
        EXPECT_FALSE(dbh_string_set(gdt_tovrel_v2_publication_topicPrefix(obj), "", call.error));
    };
    EXPECT_EQ(ask(R"("operation":"get","path":["publication"])"),
              errorAnswer(0, "Property topicPrefix: Value  is not one of default, custom, none"));
}

TEST_F(BackendAnswers, AreRefusedWhenAHandlerListsAnInvalidKey)
{
    handlers.subscription.listKeys = [](auto *obj, const HandlerCall &call) {
        EXPECT_FALSE(kdt_tovrel_v2_subscription_add_key(obj, "\xff", call.error));
    };
    EXPECT_EQ(ask(R"("operation":"listKeys","path":["subscription"])"),
              errorAnswer(0, "Got invalid key to root.subscription[] from backend developer"));
    handlers.eventFilter.listKeys = [](auto *obj, const HandlerCall &call) {
        EXPECT_FALSE(kdt_tovrel_v2_publication_eventFilter_add_key(obj, "\xff", call.error));
    };
    EXPECT_EQ(
        ask(R"("operation":"listKeys","path":["publication","eventFilter"])"),
        errorAnswer(0, "Got invalid key to root.publication.eventFilter[] from backend developer"));
}

} // namespace
