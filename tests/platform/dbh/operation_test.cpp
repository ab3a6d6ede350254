#include "support/served_api.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

namespace {

/** What an operation was called with. */
struct Call {
    const dbh_node_t *node;
    GQueue *path;
    const char *property;
    bool omitReadOnly;
    const json_t *data;
    dbh_api_error_t **error;
    dbh_request_context_t *context;
    void *userData;
};

/** What each operation does: the user data of the API. */
struct Behaviour {
    std::function<json_t *(const Call &)> root;
    std::function<json_t *(const Call &)> list;
    std::function<json_t *(const Call &)> item;
};

template <auto Member>
json_t *behave(const dbh_node_t *node, GQueue *path, const char *property, bool omitReadOnly,
               const json_t *data, dbh_api_error_t **error, dbh_request_context_t *context,
               void *userData)
{
    const Call call{node, path, property, omitReadOnly, data, error, context, userData};
    return (static_cast<Behaviour *>(userData)->*Member)(call);
}

dbh_node_t *newNode(dbh_node_kind kind, const char *name, const char *property)
{
    auto *node = static_cast<dbh_node_t *>(std::calloc(1, sizeof(dbh_node_t)));
    node->kind = kind;
    node->name = name;
    node->properties = g_queue_new();
    g_queue_push_tail(node->properties, const_cast<char *>(property));
    return node;
}

dbh_node_t *build()
{
    constexpr dbh_operation_t ROOT = behave<&Behaviour::root>;
    constexpr dbh_operation_t LIST = behave<&Behaviour::list>;
    constexpr dbh_operation_t ITEM = behave<&Behaviour::item>;
    dbh_node_t *root = newNode(DBH_NODE_OBJECT, "root", "name");
    root->get = root->set = root->import = ROOT;
    dbh_node_t *items = newNode(DBH_NODE_COLLECTION, "item", "id");
    items->list_keys = LIST;
    items->get = items->set = items->add = items->remove = ITEM;
    root->children = g_queue_new();
    g_queue_push_tail(root->children, items);
    // has no operation, so answers are without it
    g_queue_push_tail(root->children, newNode(DBH_NODE_OBJECT, "silent", "x"));
    return root;
}

constexpr dbh_api_descriptor_t DESCRIPTOR{
    .build = build, .name = "t", .major_version = 1, .created = nullptr, .deleted = nullptr};

class Operation : public testing::Test {
protected:
    std::string ask(const std::string &rest)
    {
        return api.ask(R"({"api":"t","version":1,"operation":)" + rest + "}");
    }

    static json_t *withChildren(const Call &call)
    {
        json_t *object = json_pack("{s:s}", "name", "n");
        if (!dbh_add_to_json_from_children(call.node, object, call.path, call.property,
                                           call.omitReadOnly, call.error, call.context,
                                           call.userData)) {
            json_decref(object);
            return nullptr;
        }
        return object;
    }

    static json_t *withItems(const Call &call)
    {
        GQueue keys = G_QUEUE_INIT;
        for (const char *key : {"a", "b"}) {
            g_queue_push_tail(&keys, const_cast<char *>(key));
        }
        json_t *items = dbh_get_json_from_items(call.node, &keys, call.path, call.omitReadOnly,
                                                call.error, call.context, call.userData);
        g_queue_clear(&keys);
        return items;
    }

    static json_t *keyOfPath(const Call &call)
    {
        return json_pack("{s:s}", "id", static_cast<const char *>(g_queue_peek_nth(call.path, 0)));
    }

    Behaviour behaviour;
    ServedApi api{DESCRIPTOR, &behaviour};
};

TEST_F(Operation, IsCalledWithAllOfTheRequest)
{
    int calls = 0;
    behaviour.item = [&](const Call &call) -> json_t * {
        ++calls;
        EXPECT_STREQ(call.node->name, "item");
        EXPECT_EQ(g_queue_get_length(call.path), 1U);
        EXPECT_STREQ(static_cast<const char *>(g_queue_peek_nth(call.path, 0)), "k");
        EXPECT_STREQ(call.property, "id");
        EXPECT_TRUE(call.omitReadOnly);
        EXPECT_TRUE(json_is_integer(json_object_get(call.data, "id")));
        EXPECT_EQ(*call.error, nullptr);
        EXPECT_EQ(call.userData, &behaviour);
        EXPECT_EQ(dbh_options_get_import_type(dbh_request_context_get_options(call.context)),
                  DBH_IMPORT_REPLACE);
        return nullptr;
    };
    EXPECT_EQ(ask(R"("set","path":["item","k"],"property":"id","data":{"id":1},)"
                  R"("options":{"omitReadOnly":true,"importType":"replace"})"),
              R"({"data":null})");
    EXPECT_EQ(calls, 1);
}

TEST_F(Operation, GetsDefaultsForWhatTheRequestLeavesOut)
{
    behaviour.root = [](const Call &call) {
        EXPECT_EQ(g_queue_get_length(call.path), 0U);
        EXPECT_EQ(call.property, nullptr);
        EXPECT_FALSE(call.omitReadOnly);
        EXPECT_EQ(call.data, nullptr);
        EXPECT_EQ(dbh_options_get_import_type(dbh_request_context_get_options(call.context)),
                  DBH_IMPORT_MERGE);
        return json_object();
    };
    EXPECT_EQ(ask("\"get\""), R"({"data":{}})");
    EXPECT_EQ(dbh_request_context_get_options(nullptr), nullptr);
    EXPECT_EQ(dbh_options_get_import_type(nullptr), DBH_IMPORT_MERGE);
}

TEST_F(Operation, ThatFailsIsAnsweredWithItsError)
{
    behaviour.root = [](const Call &call) -> json_t * {
        dbh_api_error_new(call.error, 123, "Broken \"%s\"", "ä");
        return nullptr;
    };
    EXPECT_EQ(ask("\"get\""), R"({"error":{"code":123,"message":"Broken \"ä\""}})");
}

TEST_F(Operation, ThatFailsAndGivesDataAllTheSameHasFailed)
{
    json_t *data = json_object();
    behaviour.root = [data](const Call &call) {
        dbh_api_error_new(call.error, 2, "failed");
        return json_incref(data);
    };
    EXPECT_EQ(ask("\"get\""), R"({"error":{"code":2,"message":"failed"}})");
    EXPECT_EQ(data->refcount, 1U);
    json_decref(data);
}

TEST_F(Operation, ThatOwesDataAndGivesNoneHasFailed)
{
    behaviour.root = behaviour.list = behaviour.item = [](const Call &) { return nullptr; };
    EXPECT_EQ(ask("\"get\""),
              R"({"error":{"code":0,"message":"Get operation of root gave no data"}})");
    EXPECT_EQ(
        ask(R"("listKeys","path":["item"])"),
        R"({"error":{"code":0,"message":"List keys operation of root.item[] gave no data"}})");
    EXPECT_EQ(ask(R"("add","path":["item"],"data":{})"),
              R"({"error":{"code":0,"message":"Add operation of root.item[] gave no data"}})");
    EXPECT_EQ(ask(R"("set","data":{})"), R"({"data":null})");
    EXPECT_EQ(ask(R"("import","data":{})"), R"({"data":null})");
    EXPECT_EQ(ask(R"("remove","path":["item","a"])"), R"({"data":null})");
}

TEST_F(Operation, ThatGivesMoreThanItOwesIsAnsweredWithIt)
{
    behaviour.root = [](const Call &) { return json_integer(5); };
    EXPECT_EQ(ask(R"("set","data":{})"), R"({"data":5})");
}

TEST_F(Operation, ThatThrowsHasFailedInside)
{
    behaviour.root = [](const Call &) -> json_t * { throw std::runtime_error("bang"); };
    EXPECT_EQ(ask("\"get\""), R"({"error":{"code":0,"message":"Internal error"}})");
    behaviour.root = [](const Call &) -> json_t * { throw 1; };
    EXPECT_EQ(ask("\"get\""), R"({"error":{"code":0,"message":"Internal error"}})");
}

TEST_F(Operation, ThatMakesWhatIsNoJsonHasFailed)
{
    const std::string answer =
        R"({"error":{"code":0,"message":"The data cannot be written as JSON"}})";
    behaviour.root = [](const Call &) { return json_string_nocheck("\xff"); };
    EXPECT_EQ(ask("\"get\""), answer);

    json_t *outer = json_array();
    json_t *inner = json_array();
    json_array_append_new(outer, inner);
    json_array_append(inner, outer);
    behaviour.root = [outer](const Call &) { return json_incref(outer); };
    EXPECT_EQ(ask("\"get\""), answer);
    json_array_clear(inner);
    json_decref(outer);
}

TEST_F(Operation, MayExtendThePath)
{
    behaviour.item = [](const Call &call) -> json_t * {
        if (call.data == nullptr) {
            return keyOfPath(call);
        }
        g_queue_push_tail(call.path, strdup("created"));
        return call.node->get(call.node, call.path, nullptr, call.omitReadOnly, nullptr, call.error,
                              call.context, call.userData);
    };
    EXPECT_EQ(ask(R"("add","path":["item"],"data":{})"), R"({"data":{"id":"created"}})");
}

TEST_F(Operation, IsAnsweredWithItsChildren)
{
    behaviour.root = withChildren;
    behaviour.list = withItems;
    behaviour.item = [](const Call &call) {
        EXPECT_EQ(g_queue_get_length(call.path), 1U);
        json_t *json = keyOfPath(call);
        g_queue_push_tail(call.path, strdup("left behind"));
        return json;
    };
    EXPECT_EQ(ask("\"get\""), R"({"data":{"name":"n","item":[{"id":"a"},{"id":"b"}]}})");
    EXPECT_EQ(ask(R"("listKeys","path":["item"])"), R"({"data":[{"id":"a"},{"id":"b"}]})");
}

TEST_F(Operation, ForOnePropertyDoesWithoutTheChildren)
{
    behaviour.root = withChildren;
    behaviour.list = [](const Call &) -> json_t * {
        ADD_FAILURE() << "the children are asked";
        return json_array();
    };
    EXPECT_EQ(ask(R"("get","property":"name")"), R"({"data":{"name":"n"}})");
}

TEST_F(Operation, FailsWhenAChildOrAnItemFails)
{
    behaviour.root = withChildren;
    behaviour.list = withItems;
    behaviour.item = [](const Call &call) -> json_t * {
        const std::string key = static_cast<const char *>(g_queue_peek_nth(call.path, 0));
        if (key == "b") {
            dbh_api_error_new(call.error, 2, "no %s", key.c_str());
            return nullptr;
        }
        return keyOfPath(call);
    };
    const std::string answer = R"({"error":{"code":2,"message":"no b"}})";
    EXPECT_EQ(ask("\"get\""), answer);
    EXPECT_EQ(ask(R"("listKeys","path":["item"])"), answer);

    behaviour.list = [](const Call &) { return nullptr; };
    EXPECT_EQ(
        ask("\"get\""),
        R"({"error":{"code":0,"message":"List keys operation of root.item[] gave no data"}})");
}

TEST_F(Operation, MayNotAskForItemsThatCannotBeGot)
{
    // "silent" has no get; any node may be asked for, and this one refuses.
    behaviour.root = [](const Call &call) -> json_t * {
        const auto *silent =
            static_cast<const dbh_node_t *>(g_queue_peek_nth(call.node->children, 1));
        const Call asked{silent,  call.path,  nullptr,      false,
                         nullptr, call.error, call.context, call.userData};
        return withItems(asked);
    };
    EXPECT_EQ(ask("\"get\""),
              R"({"error":{"code":0,"message":"Items of root.silent cannot be got"}})");
}

TEST_F(Operation, MayNameANodeThatIsNotInTheTree)
{
    dbh_node_t stranger{};
    stranger.name = "stranger";
    behaviour.root = [&stranger](const Call &call) -> json_t * {
        Call asked = call;
        asked.node = &stranger;
        return withItems(asked);
    };
    EXPECT_EQ(ask("\"get\""),
              R"({"error":{"code":0,"message":"Items of stranger cannot be got"}})");
}

} // namespace
