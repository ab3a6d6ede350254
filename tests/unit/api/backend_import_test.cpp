#include "scripted_handlers.h"

#include <string>

namespace {

class BackendImport : public BackendTest {
protected:
    std::string import(const std::string &data)
    {
        return ask(R"("operation":"import","data":)" + data);
    }
};

std::string textOf(const dbh_string_t *field)
{
    return field != nullptr ? dbh_string_value(field) : "absent";
}

std::string textOf(const dbh_boolean_t *field)
{
    if (field == nullptr) {
        return "absent";
    }
    return dbh_boolean_value(field) ? "true" : "false";
}

std::string settingsOf(tovrel_v2_import_publication *obj)
{
    return textOf(idt_tovrel_v2_publication_topicPrefix(obj)) + " " +
           textOf(idt_tovrel_v2_publication_customTopicPrefix(obj)) + " " +
           textOf(idt_tovrel_v2_publication_appendEventTopic(obj)) + " " +
           textOf(idt_tovrel_v2_publication_includeTopicNamespaces(obj)) + " " +
           textOf(idt_tovrel_v2_publication_includeSerialNumberInPayload(obj));
}

/** What an import holds, an item a line. */
std::string contentOf(tovrel_v2_import_root *obj)
{
    std::string content;
    auto *subscriptions = idt_tovrel_v2_subscription(obj);
    while (auto *item = idt_tovrel_v2_subscription_iterator_next(subscriptions)) {
        content += textOf(idt_tovrel_v2_subscription_id(item)) + " " +
                   textOf(idt_tovrel_v2_subscription_topicFilter(item)) + " " +
                   textOf(idt_tovrel_v2_subscription_qos(item)) + " " +
                   textOf(idt_tovrel_v2_subscription_isStateData(item)) + " " +
                   textOf(idt_tovrel_v2_subscription_useDeviceTopicPrefix(item)) + "\n";
    }
    auto *publication = idt_tovrel_v2_publication(obj);
    content += settingsOf(publication) + "\n";
    auto *filters = idt_tovrel_v2_publication_eventFilter(publication);
    while (auto *item = idt_tovrel_v2_publication_eventFilter_iterator_next(filters)) {
        content += textOf(idt_tovrel_v2_publication_eventFilter_id(item)) + " " +
                   textOf(idt_tovrel_v2_publication_eventFilter_topicFilter(item)) + " " +
                   textOf(idt_tovrel_v2_publication_eventFilter_qos(item)) + " " +
                   textOf(idt_tovrel_v2_publication_eventFilter_retain(item)) + "\n";
    }
    return content;
}

TEST_F(BackendImport, ShowsWhatItHolds)
{
    std::string content;
    handlers.import = [&](auto *obj, const HandlerCall &) { content = contentOf(obj); };
    EXPECT_EQ(import("{}"), R"({"data":null})");
    EXPECT_EQ(content, "absent absent absent absent absent\n");

    import(R"({"publication":{"appendEventTopic":true,"topicPrefix":"none","eventFilter":)"
           R"([{"id":"4","retain":"all"},{"id":"1","topicFilter":"x","qos":"QOS_2"}]},)"
           R"("subscription":[{"id":"9"},)"
           R"({"id":"2","topicFilter":"t","qos":"QOS_1","isStateData":true,)"
           R"("useDeviceTopicPrefix":false}]})");
    EXPECT_EQ(content, "9 absent absent absent absent\n2 t QOS_1 true false\n"
                       "none absent true absent absent\n4 absent absent all\n1 x QOS_2 absent\n");

    import(R"({"publication":{"customTopicPrefix":"c","includeTopicNamespaces":false,)"
           R"("includeSerialNumberInPayload":true},"subscription":[]})");
    EXPECT_EQ(content, "absent c absent false true\n");
}

TEST_F(BackendImport, StartsAgainAtTheFirstItemWhenACollectionIsAskedForAgain)
{
    handlers.import = [](auto *obj, const HandlerCall &) {
        EXPECT_EQ(contentOf(obj), contentOf(obj));
        auto *items = idt_tovrel_v2_subscription(obj);
        EXPECT_NE(idt_tovrel_v2_subscription_iterator_next(items), nullptr);
        EXPECT_EQ(idt_tovrel_v2_subscription_iterator_next(items), nullptr);
        EXPECT_EQ(idt_tovrel_v2_subscription_iterator_next(items), nullptr);
    };
    EXPECT_EQ(import(R"({"subscription":[{"id":"0"}]})"), R"({"data":null})");
}

TEST_F(BackendImport, TakesWhatAnExportGave)
{
    scriptDocument();
    const std::string answer = ask(R"("operation":"get","options":{"omitReadOnly":true})");
    const std::string start = R"({"data":)";
    ASSERT_EQ(answer.substr(0, start.size()), start);
    std::string content;
    handlers.import = [&](auto *obj, const HandlerCall &) { content = contentOf(obj); };
    EXPECT_EQ(import(answer.substr(start.size(), answer.size() - start.size() - 1)),
              R"({"data":null})");
    EXPECT_EQ(content, "10 a/# QOS_1 false true\n2 a/# QOS_1 false true\n"
                       "custom plant true false true\n0 tns1:X//. QOS_2 all\n");
}

TEST_F(BackendImport, KnowsItsType)
{
    dbh_import_type type = DBH_IMPORT_MERGE;
    handlers.import = [&](auto *, const HandlerCall &call) {
        type = dbh_options_get_import_type(dbh_request_context_get_options(call.context));
    };
    ask(R"("operation":"import","data":{},"options":{"importType":"replace"})");
    EXPECT_EQ(type, DBH_IMPORT_REPLACE);
    import("{}");
    EXPECT_EQ(type, DBH_IMPORT_MERGE);
}

TEST_F(BackendImport, ThatTheHandlerRefusesFails)
{
    handlers.import = [](auto *, const HandlerCall &call) {
        dbh_api_error_new(call.error, 4, "no id");
    };
    EXPECT_EQ(import("{}"), errorAnswer(4, "no id"));
}

TEST_F(BackendImport, OfAWrongDocumentNeverReachesTheHandler)
{
    const std::pair<const char *, const char *> cases[] = {
        {"[]", "Import root: Expected JSON object but got array"},
        {R"({"deviceTopicPrefix":"x"})", "Import root: Unexpected field deviceTopicPrefix"},
        {R"({"subscription":{}})",
         "Import root.subscription[]: Expected JSON array but got object"},
        {R"({"subscription":[1]})",
         "Import item to root.subscription[]: Expected JSON object but got integer"},
        {R"({"subscription":[{"id":"0"},{"key":"1"}]})",
         "Import item to root.subscription[]: Unexpected field key"},
        {R"({"subscription":[{"topicFilter":"t"}]})",
         "Import item to root.subscription[]: Missing required property id"},
        {R"({"subscription":[{"id":0}]})", "Property id: Expected JSON string but got integer"},
        {R"({"subscription":[{"qos":"x"}]})",
         "Property qos: Value x is not one of QOS_0, QOS_1, QOS_2"},
        {R"({"publication":true})", "Import publication: Expected JSON object but got boolean"},
        {R"({"publication":{"qos":1}})", "Import publication: Unexpected field qos"},
        {R"({"publication":{"topicPrefix":"x"}})",
         "Property topicPrefix: Value x is not one of default, custom, none"},
        {R"({"publication":{"eventFilter":null}})",
         "Import root.publication.eventFilter[]: Expected JSON array but got null"},
        {R"({"publication":{"eventFilter":["0"]}})",
         "Import item to root.publication.eventFilter[]: Expected JSON object but got string"},
        {R"({"publication":{"eventFilter":[{"id":"0","isStateData":true}]}})",
         "Import item to root.publication.eventFilter[]: Unexpected field isStateData"},
        {R"({"publication":{"eventFilter":[{}]}})",
         "Import item to root.publication.eventFilter[]: Missing required property id"},
        {R"({"publication":1,"subscription":2})",
         "Import root.subscription[]: Expected JSON array but got integer"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(import(one.first), errorAnswer(5, one.second)) << one.first;
    }
}

} // namespace
