#include "greenhouse.h"
#include "support/served_api.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace {

dbh_node_t *newNode(dbh_node_kind kind, const char *name)
{
    auto *node = static_cast<dbh_node_t *>(std::calloc(1, sizeof(dbh_node_t)));
    node->kind = kind;
    node->name = name;
    return node;
}

void addChild(dbh_node_t *parent, dbh_node_t *child)
{
    if (parent->children == nullptr) {
        parent->children = g_queue_new();
    }
    g_queue_push_tail(parent->children, child);
}

void addProperty(dbh_node_t *node, const char *name)
{
    if (node->properties == nullptr) {
        node->properties = g_queue_new();
    }
    g_queue_push_tail(node->properties, const_cast<char *>(name));
}

// A builder takes no argument, so what it builds and what the API calls are kept here.
std::function<dbh_node_t *()> description;
std::vector<std::string> calls;

dbh_node_t *buildDescription()
{
    calls.emplace_back("build");
    return description();
}

void onCreated(void *userData)
{
    calls.emplace_back("created " + std::string(static_cast<const char *>(userData)));
}

void onDeleted(void *userData)
{
    calls.emplace_back("deleted " + std::string(static_cast<const char *>(userData)));
}

void freeUserData(void *userData)
{
    calls.emplace_back("free " + std::string(static_cast<const char *>(userData)));
}

class Api : public testing::Test {
protected:
    void SetUp() override
    {
        calls.clear();
        description = [] { return newNode(DBH_NODE_OBJECT, "root"); };
    }

    OwnedApi create()
    {
        dbh_error_t *failure = nullptr;
        OwnedApi api(dbh_create_api(&descriptor, userData.data(), freeUserData, &failure));
        error.reset(failure);
        EXPECT_EQ(api == nullptr, error != nullptr);
        return api;
    }

    /** Why creating the API fails. */
    std::string failure()
    {
        EXPECT_EQ(create(), nullptr);
        const std::string text = dbh_error_message(error.get());
        const std::string start = "Cannot create the API: ";
        EXPECT_EQ(text.substr(0, start.size()), start);
        return text.substr(std::min(start.size(), text.size()));
    }

    std::string userData = "data";
    dbh_api_descriptor_t descriptor{.build = buildDescription,
                                    .name = "test",
                                    .major_version = 1,
                                    .created = onCreated,
                                    .deleted = onDeleted};
    OwnedError error;
};

TEST_F(Api, IsBuiltOnceAndTellsOfItsBeginningAndItsEnd)
{
    OwnedApi api = create();
    ASSERT_NE(api, nullptr);
    EXPECT_EQ(calls, (std::vector<std::string>{"build", "created data"}));
    api.reset();
    EXPECT_EQ(calls,
              (std::vector<std::string>{"build", "created data", "deleted data", "free data"}));
}

TEST_F(Api, NeedsNoneOfTheOptionalCallbacks)
{
    descriptor.created = nullptr;
    descriptor.deleted = nullptr;
    const OwnedApi api(dbh_create_api(&descriptor, nullptr, nullptr, nullptr));
    EXPECT_NE(api, nullptr);
}

TEST_F(Api, HasAnInterfaceAsLongAsItIs)
{
    const OwnedApi api = create();
    EXPECT_NE(dbh_get_api_interface(api.get()), nullptr);
    EXPECT_EQ(dbh_get_api_interface(api.get()), dbh_get_api_interface(api.get()));
    EXPECT_EQ(dbh_get_api_interface(nullptr), nullptr);
    dbh_delete_api(nullptr);
}

TEST_F(Api, IsNotCreatedFromAnIncompleteDescriptor)
{
    EXPECT_EQ(dbh_create_api(nullptr, nullptr, nullptr, nullptr), nullptr);
    descriptor.name = "";
    EXPECT_EQ(failure(), "the API has no name");
    descriptor.name = nullptr;
    EXPECT_EQ(failure(), "the API has no name");
    descriptor.name = "\xff";
    EXPECT_EQ(failure(), "the API has no name");
    descriptor.name = "test";
    descriptor.major_version = -1;
    EXPECT_EQ(failure(), "the major version is negative");
    descriptor.build = nullptr;
    EXPECT_EQ(failure(), "there is no builder");
    EXPECT_TRUE(calls.empty());
}

TEST_F(Api, ThatCannotBeCreatedDoesNotTouchItsUserData)
{
    description = [] { return nullptr; };
    EXPECT_EQ(failure(), "the builder gave no description");
    EXPECT_EQ(calls, std::vector<std::string>{"build"});
}

using Change = void (*)(dbh_node_t *root);

struct BrokenRule {
    const char *rule;
    Change change;
};

TEST_F(Api, IsNotCreatedFromADescriptionThatBreaksARule)
{
    const BrokenRule cases[] = {
        {"the root: it has to be an object",
         [](dbh_node_t *root) { root->kind = DBH_NODE_COLLECTION; }},
        {"the root: a node has no name", [](dbh_node_t *root) { root->name = nullptr; }},
        {"the root: a node has no name", [](dbh_node_t *root) { root->name = ""; }},
        {"root: a node has no name",
         [](dbh_node_t *root) { addChild(root, newNode(DBH_NODE_OBJECT, "\xff")); }},
        {"root: a node is neither an object nor a collection",
         [](dbh_node_t *root) {
             addChild(root, newNode(DBH_NODE_OBJECT, "child"));
             static_cast<dbh_node_t *>(root->children->head->data)->kind = 2;
         }},
        {"root: a child is NULL", [](dbh_node_t *root) { addChild(root, nullptr); }},
        {"root: a property has no name", [](dbh_node_t *root) { addProperty(root, nullptr); }},
        {"root: two properties or children have one name",
         [](dbh_node_t *root) {
             addProperty(root, "a");
             addProperty(root, "a");
         }},
        {"root: two properties or children have one name",
         [](dbh_node_t *root) {
             addProperty(root, "a");
             addChild(root, newNode(DBH_NODE_OBJECT, "a"));
         }},
        {"root: two properties or children have one name",
         [](dbh_node_t *root) {
             addChild(root, newNode(DBH_NODE_OBJECT, "a"));
             addChild(root, newNode(DBH_NODE_OBJECT, "a"));
         }},
        {"root.c[]: a collection needs a key property",
         [](dbh_node_t *root) { addChild(root, newNode(DBH_NODE_COLLECTION, "c")); }},
        {"root: the reserved operation has to be NULL",
         [](dbh_node_t *root) { root->reserved = greenhouse::OPERATIONS.getRoot; }},
    };
    for (const BrokenRule &one : cases) {
        description = [&one] {
            dbh_node_t *root = newNode(DBH_NODE_OBJECT, "root");
            one.change(root);
            return root;
        };
        EXPECT_EQ(failure(), one.rule);
    }
}

TEST_F(Api, MayHaveSixteenLevelsAndNoMore)
{
    int levels = DBH_MAX_NODE_DEPTH;
    description = [&levels] {
        dbh_node_t *node = newNode(DBH_NODE_OBJECT, "n");
        for (int level = 1; level < levels; ++level) {
            dbh_node_t *parent = newNode(DBH_NODE_OBJECT, "n");
            addChild(parent, node);
            node = parent;
        }
        return node;
    };
    EXPECT_NE(create(), nullptr);
    ++levels;
    EXPECT_EQ(failure(), "n.n.n.n.n.n.n.n.n.n.n.n.n.n.n.n: too many levels");
}

TEST(NodeFree, AcceptsNull)
{
    dbh_node_free(nullptr);
}

constexpr const char *GET = R"({"api":"test","version":1,"operation":"get"})";

class RequestHandler : public Api {
protected:
    static std::string ask(dbh_request_handler_t *handler, const char *request)
    {
        char *response = nullptr;
        EXPECT_TRUE(dbh_request_handler_process_request(handler, request, &response, nullptr));
        const std::string answer = response != nullptr ? response : "";
        std::free(response);
        return answer;
    }

    bool add(dbh_request_handler_t *handler, const OwnedApi &api)
    {
        dbh_error_t *failure = nullptr;
        const bool added =
            dbh_request_handler_add_api(handler, dbh_get_api_interface(api.get()), &failure);
        error.reset(failure);
        return added;
    }
};

constexpr const char *UNKNOWN = R"({"error":{"code":3,"message":"Unknown API test"}})";
constexpr const char *SERVED =
    R"({"error":{"code":9,"message":"Get operation not defined for root"}})";

TEST_F(RequestHandler, ServesNothingAtFirst)
{
    const OwnedHandler handler(dbh_request_handler_new(nullptr));
    EXPECT_EQ(ask(handler.get(), GET), UNKNOWN);
}

TEST_F(RequestHandler, ServesTheApiThatItIsMadeWithAndThoseAdded)
{
    const OwnedApi first = create();
    descriptor.major_version = 2;
    const OwnedApi second = create();
    const OwnedHandler handler(dbh_request_handler_new(dbh_get_api_interface(first.get())));
    EXPECT_EQ(ask(handler.get(), GET), SERVED);
    EXPECT_TRUE(add(handler.get(), first));
    EXPECT_TRUE(add(handler.get(), second));
    EXPECT_TRUE(add(handler.get(), second));
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(ask(handler.get(), R"({"api":"test","version":2,"operation":"get"})"), SERVED);
}

TEST_F(RequestHandler, RefusesAnotherApiOfTheSameNameAndVersion)
{
    const OwnedApi first = create();
    const OwnedApi second = create();
    const OwnedHandler handler(dbh_request_handler_new(dbh_get_api_interface(first.get())));
    EXPECT_FALSE(add(handler.get(), second));
    EXPECT_STREQ(dbh_error_message(error.get()),
                 "Another API test of major version 1 is served already");
}

TEST_F(RequestHandler, RefusesToServeNothing)
{
    const OwnedHandler handler(dbh_request_handler_new(nullptr));
    EXPECT_FALSE(add(handler.get(), nullptr));
    EXPECT_STREQ(dbh_error_message(error.get()), "There is no API");
    EXPECT_FALSE(add(nullptr, create()));
    EXPECT_STREQ(dbh_error_message(error.get()), "There is no request handler");
    EXPECT_FALSE(dbh_request_handler_add_api(nullptr, nullptr, nullptr));
    EXPECT_EQ(ask(handler.get(), GET), UNKNOWN);
    dbh_request_handler_free(nullptr);
}

TEST_F(RequestHandler, HasNoAnswerWhenSomethingIsMissing)
{
    const OwnedHandler handler(dbh_request_handler_new(nullptr));
    dbh_error_t *failure = nullptr;
    char place = 'x';
    char *response = &place;
    EXPECT_FALSE(dbh_request_handler_process_request(handler.get(), nullptr, &response, &failure));
    EXPECT_EQ(response, nullptr);
    error.reset(std::exchange(failure, nullptr));
    EXPECT_STREQ(dbh_error_message(error.get()), "There is no request");
    EXPECT_FALSE(dbh_request_handler_process_request(nullptr, GET, &response, &failure));
    error.reset(std::exchange(failure, nullptr));
    EXPECT_STREQ(dbh_error_message(error.get()), "There is no request handler");
    EXPECT_FALSE(dbh_request_handler_process_request(handler.get(), GET, nullptr, &failure));
    error.reset(std::exchange(failure, nullptr));
    EXPECT_STREQ(dbh_error_message(error.get()), "There is no place for the response");
    EXPECT_FALSE(dbh_request_handler_process_request(handler.get(), nullptr, &response, nullptr));
}

} // namespace
