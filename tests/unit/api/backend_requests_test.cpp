#include "scripted_handlers.h"

#include <vector>

namespace {

using BackendRequests = BackendTest;

constexpr const char *SUBSCRIPTION = R"("path":["subscription","3"])";
constexpr const char *SUBSCRIPTIONS = R"("path":["subscription"])";
constexpr const char *FILTER = R"("path":["publication","eventFilter","3"])";
constexpr const char *FILTERS = R"("path":["publication","eventFilter"])";

std::string operation(const char *name, const std::string &path, const std::string &data = "")
{
    return R"("operation":")" + std::string(name) + R"(",)" + path +
           (data.empty() ? "" : R"(,"data":)" + data);
}

const char *textOf(const dbh_string_t *field)
{
    return field != nullptr ? dbh_string_value(field) : "absent";
}

const char *textOf(const dbh_boolean_t *field)
{
    if (field == nullptr) {
        return "absent";
    }
    return dbh_boolean_value(field) ? "true" : "false";
}

std::string setFields(tovrel_v2_subscription *obj)
{
    return std::string(textOf(sdt_tovrel_v2_subscription_topicFilter(obj))) + " " +
           textOf(sdt_tovrel_v2_subscription_qos(obj)) + " " +
           textOf(sdt_tovrel_v2_subscription_isStateData(obj)) + " " +
           textOf(sdt_tovrel_v2_subscription_useDeviceTopicPrefix(obj));
}

TEST_F(BackendRequests, ToSetASubscriptionShowWhichPropertiesTheyHave)
{
    std::vector<std::string> seen;
    handlers.subscription.set = [&](auto *obj, const HandlerCall &call) {
        seen.push_back(std::string(call.key) + ": " + setFields(obj));
    };
    EXPECT_EQ(ask(operation("set", SUBSCRIPTION, "{}")), R"({"data":null})");
    EXPECT_EQ(ask(operation("set", SUBSCRIPTION, R"({"qos":"QOS_2"})")), R"({"data":null})");
    ask(operation("set", SUBSCRIPTION,
                  R"({"useDeviceTopicPrefix":false,"topicFilter":"","isStateData":true})"));
    ask(operation("set", SUBSCRIPTION + std::string(R"(,"property":"qos")"),
                  R"({"qos":"QOS_0","topicFilter":"b"})"));
    EXPECT_EQ(seen, (std::vector<std::string>{
                        "3: absent absent absent absent", "3: absent QOS_2 absent absent",
                        "3:  absent true false", "3: b QOS_0 absent absent"}));
}

TEST_F(BackendRequests, ToSetThePublicationShowWhichPropertiesTheyHave)
{
    std::vector<std::string> seen;
    handlers.setPublication = [&](auto *obj, const HandlerCall &) {
        seen.push_back(std::string(textOf(sdt_tovrel_v2_publication_topicPrefix(obj))) + " " +
                       textOf(sdt_tovrel_v2_publication_customTopicPrefix(obj)) + " " +
                       textOf(sdt_tovrel_v2_publication_appendEventTopic(obj)) + " " +
                       textOf(sdt_tovrel_v2_publication_includeTopicNamespaces(obj)) + " " +
                       textOf(sdt_tovrel_v2_publication_includeSerialNumberInPayload(obj)));
    };
    const std::string path = R"("path":["publication"])";
    EXPECT_EQ(ask(operation("set", path, "{}")), R"({"data":null})");
    ask(operation("set", path, R"({"topicPrefix":"none","includeTopicNamespaces":true})"));
    ask(operation("set", path,
                  R"({"customTopicPrefix":"c","appendEventTopic":false,)"
                  R"("includeSerialNumberInPayload":true})"));
    EXPECT_EQ(seen, (std::vector<std::string>{"absent absent absent absent absent",
                                              "none absent absent true absent",
                                              "absent c false absent true"}));
}

TEST_F(BackendRequests, ToSetAnEventFilterShowWhichPropertiesTheyHave)
{
    std::string seen;
    handlers.eventFilter.set = [&](auto *obj, const HandlerCall &call) {
        seen = std::string(call.key) + ": " +
               textOf(sdt_tovrel_v2_publication_eventFilter_topicFilter(obj)) + " " +
               textOf(sdt_tovrel_v2_publication_eventFilter_qos(obj)) + " " +
               textOf(sdt_tovrel_v2_publication_eventFilter_retain(obj));
    };
    ask(operation("set", FILTER, R"({"retain":"property"})"));
    EXPECT_EQ(seen, "3: absent absent property");
    ask(operation("set", FILTER, R"({"qos":"QOS_1","topicFilter":"t"})"));
    EXPECT_EQ(seen, "3: t QOS_1 absent");
}

TEST_F(BackendRequests, ToAddGetTheCreatedItemBack)
{
    scriptDocument();
    handlers.subscription.add = [](auto *obj, const HandlerCall &call) {
        EXPECT_STREQ(textOf(adt_tovrel_v2_subscription_topicFilter(obj)), "t");
        EXPECT_STREQ(textOf(adt_tovrel_v2_subscription_qos(obj)), "QOS_1");
        EXPECT_STREQ(textOf(adt_tovrel_v2_subscription_isStateData(obj)), "absent");
        EXPECT_STREQ(textOf(adt_tovrel_v2_subscription_useDeviceTopicPrefix(obj)), "false");
        EXPECT_TRUE(dbh_string_set(call.createdKey, "7", call.error));
    };
    EXPECT_EQ(ask(operation("add", SUBSCRIPTIONS,
                            R"({"topicFilter":"t","qos":"QOS_1","useDeviceTopicPrefix":false})")),
              R"({"data":{"id":"7","topicFilter":"a/#","qos":"QOS_1","isStateData":false,)"
              R"("useDeviceTopicPrefix":true}})");

    handlers.eventFilter.add = [](auto *obj, const HandlerCall &call) {
        EXPECT_STREQ(textOf(adt_tovrel_v2_publication_eventFilter_topicFilter(obj)), "t");
        EXPECT_STREQ(textOf(adt_tovrel_v2_publication_eventFilter_qos(obj)), "absent");
        EXPECT_STREQ(textOf(adt_tovrel_v2_publication_eventFilter_retain(obj)), "none");
        EXPECT_TRUE(dbh_string_set(call.createdKey, "8", call.error));
    };
    EXPECT_EQ(ask(operation("add", FILTERS, R"({"topicFilter":"t","retain":"none"})")),
              R"({"data":{"id":"8","topicFilter":"tns1:X//.","qos":"QOS_2","retain":"all"}})");
}

TEST_F(BackendRequests, ToAddFailWhenTheHandlerSetsNoKey)
{
    handlers.subscription.add = [](auto *, const HandlerCall &) {};
    EXPECT_EQ(ask(operation("add", SUBSCRIPTIONS, R"({"topicFilter":"t"})")),
              errorAnswer(0, "Add item to root.subscription[]: Created key has not been set"));
    handlers.eventFilter.add = [](auto *, const HandlerCall &) {};
    EXPECT_EQ(
        ask(operation("add", FILTERS, R"({"topicFilter":"t"})")),
        errorAnswer(0, "Add item to root.publication.eventFilter[]: Created key has not been set"));
}

TEST_F(BackendRequests, ThatAHandlerRefusesFail)
{
    const auto fail = [](auto *, const HandlerCall &call) {
        dbh_api_error_new(call.error, 7, "full");
    };
    handlers.subscription.add = handlers.subscription.set = fail;
    handlers.subscription.remove = fail;
    EXPECT_EQ(ask(operation("add", SUBSCRIPTIONS, R"({"topicFilter":"t"})")),
              errorAnswer(7, "full"));
    EXPECT_EQ(ask(operation("set", SUBSCRIPTION, "{}")), errorAnswer(7, "full"));
    EXPECT_EQ(ask(operation("remove", SUBSCRIPTION)), errorAnswer(7, "full"));
}

TEST_F(BackendRequests, ToRemoveAnItemPassItsKey)
{
    std::string seen;
    handlers.subscription.remove = [&](auto *, const HandlerCall &call) {
        seen += "subscription " + std::string(call.key) + " ";
    };
    handlers.eventFilter.remove = [&](auto *, const HandlerCall &call) {
        seen += "filter " + std::string(call.key);
    };
    EXPECT_EQ(ask(operation("remove", SUBSCRIPTION)), R"({"data":null})");
    EXPECT_EQ(ask(operation("remove", FILTER)), R"({"data":null})");
    EXPECT_EQ(seen, "subscription 3 filter 3");
}

TEST_F(BackendRequests, WithoutAKeyAreRefused)
{
    const std::string subscription =
        errorAnswer(2, "Invalid value of key property to root.subscription[]");
    const std::string filter =
        errorAnswer(2, "Invalid value of key property to root.publication.eventFilter[]");
    for (const char *name : {"get", "remove"}) {
        EXPECT_EQ(ask(operation(name, SUBSCRIPTIONS)), subscription);
        EXPECT_EQ(ask(operation(name, FILTERS)), filter);
    }
    EXPECT_EQ(ask(operation("set", SUBSCRIPTIONS, "{}")), subscription);
    EXPECT_EQ(ask(operation("set", FILTERS, "{}")), filter);
}

TEST_F(BackendRequests, ToSetAKeyAreRefused)
{
    EXPECT_EQ(
        ask(operation("set", SUBSCRIPTION + std::string(R"(,"property":"id")"), R"({"id":"4"})")),
        errorAnswer(9, "Set operation not defined for root.subscription[].id"));
    EXPECT_EQ(ask(operation("set", FILTERS + std::string(R"(,"property":"id")"), "{}")),
              errorAnswer(9, "Set operation not defined for root.publication.eventFilter[].id"));
}

struct WrongData {
    const char *data;
    const char *message;
};

TEST_F(BackendRequests, WithWrongDataNeverReachAHandler)
{
    const WrongData items[] = {
        {"7", "Expected JSON object but got integer"},
        {"null", "Expected JSON object but got null"},
        {R"({"id":"3"})", "Unexpected field id"},
        {R"({"topicFilter":"t","x":1})", "Unexpected field x"},
    };
    const std::pair<std::string, std::string> requests[] = {
        {R"("operation":"set",)" + std::string(SUBSCRIPTION), "Set root.subscription[]: "},
        {R"("operation":"add",)" + std::string(SUBSCRIPTIONS), "Add item to root.subscription[]: "},
        {R"("operation":"set",)" + std::string(FILTER), "Set root.publication.eventFilter[]: "},
        {R"("operation":"add",)" + std::string(FILTERS),
         "Add item to root.publication.eventFilter[]: "},
        {R"("operation":"set","path":["publication"])", "Set root.publication: "},
    };
    for (const auto &request : requests) {
        for (const WrongData &item : items) {
            const bool isPublication = request.second == "Set root.publication: ";
            const std::string message =
                isPublication && item.message == std::string("Unexpected field x")
                    ? "Unexpected field topicFilter"
                    : item.message;
            EXPECT_EQ(ask(request.first + R"(,"data":)" + item.data),
                      errorAnswer(5, request.second + message));
        }
    }
    EXPECT_EQ(ask(R"("operation":"set","path":["publication"],"data":{"eventFilter":[]})"),
              errorAnswer(5, "Set root.publication: Unexpected field eventFilter"));
}

TEST_F(BackendRequests, WithAWrongPropertyNameTheFirst)
{
    const WrongData cases[] = {
        {R"({"topicFilter":1,"qos":1})",
         "Property topicFilter: Expected JSON string but got integer"},
        {R"({"qos":"QOS_3"})", "Property qos: Value QOS_3 is not one of QOS_0, QOS_1, QOS_2"},
        {R"({"qos":2})", "Property qos: Expected JSON string but got integer"},
        {R"({"isStateData":"true"})", "Property isStateData: Expected JSON boolean but got string"},
        {R"({"useDeviceTopicPrefix":0})",
         "Property useDeviceTopicPrefix: Expected JSON boolean but got integer"},
    };
    for (const WrongData &one : cases) {
        EXPECT_EQ(ask(operation("set", SUBSCRIPTION, one.data)), errorAnswer(5, one.message));
        EXPECT_EQ(ask(operation("add", SUBSCRIPTIONS, one.data)), errorAnswer(5, one.message));
    }
    EXPECT_EQ(ask(operation("set", FILTER, R"({"retain":"some"})")),
              errorAnswer(5, "Property retain: Value some is not one of none, property, all"));
    EXPECT_EQ(ask(operation("set", R"("path":["publication"])", R"({"topicPrefix":""})")),
              errorAnswer(5, "Property topicPrefix: Value  is not one of default, custom, none"));
}

TEST_F(BackendRequests, ToAddWithoutATopicFilterAreRefused)
{
    EXPECT_EQ(ask(operation("add", SUBSCRIPTIONS, R"({"qos":"QOS_0"})")),
              errorAnswer(5, "Add item to root.subscription[]: Missing required property "
                             "topicFilter"));
    EXPECT_EQ(ask(operation("add", FILTERS, "{}")),
              errorAnswer(5, "Add item to root.publication.eventFilter[]: Missing required "
                             "property topicFilter"));
}

TEST_F(BackendRequests, ForWhatTheDocumentDoesNotDefineAreRefused)
{
    const std::pair<const char *, const char *> cases[] = {
        {R"("operation":"set","data":{})", "Set operation not defined for root"},
        {R"("operation":"listKeys")", "List keys operation not defined for root"},
        {R"("operation":"add","path":["publication"],"data":{})",
         "Add operation not defined for root.publication"},
        {R"("operation":"remove","path":["publication"])",
         "Remove operation not defined for root.publication"},
        {R"("operation":"import","path":["publication"],"data":{})",
         "Import operation not defined for root.publication"},
        {R"("operation":"import","path":["subscription"],"data":{})",
         "Import operation not defined for root.subscription[]"},
        {R"("operation":"import","path":["publication","eventFilter"],"data":{})",
         "Import operation not defined for root.publication.eventFilter[]"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(ask(one.first), errorAnswer(9, one.second));
    }
}

} // namespace
