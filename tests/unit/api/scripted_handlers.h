/** Handlers of the backend that do what a test says, and the fixture that asks for them. */
#pragma once

#include "api/tovrel_v2_backend.h"
#include "support/served_api.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

/** What handlers get, besides their structure. */
struct HandlerCall {
    const char *key;
    dbh_string_t *createdKey;
    dbh_api_error_t **error;
    dbh_request_context_t *context;
};

template <typename Structure>
using Handler = std::function<void(Structure *, const HandlerCall &)>;

/** What a collection's handlers do. */
template <typename Item, typename Keys>
struct CollectionHandlers {
    Handler<Keys> listKeys;
    Handler<Item> get, set, add;
    Handler<void> remove;
};

/** What every handler does: the user data of the API. A handler without a script fails the test. */
struct ScriptedHandlers {
    Handler<tovrel_v2_root> getRoot;
    Handler<tovrel_v2_import_root> import;
    CollectionHandlers<tovrel_v2_subscription, tovrel_v2_subscription_keys> subscription;
    Handler<tovrel_v2_publication> getPublication, setPublication;
    CollectionHandlers<tovrel_v2_publication_eventFilter, tovrel_v2_publication_eventFilter_keys>
        eventFilter;
};

class BackendTest : public testing::Test {
protected:
    /** The answer to a request of the API, of which what follows the version is given. */
    std::string ask(const std::string &rest)
    {
        return api.ask(R"({"api":"tovrel","version":2,)" + rest + "}");
    }

    static std::string errorAnswer(int code, const std::string &message)
    {
        return R"({"error":{"code":)" + std::to_string(code) + R"(,"message":")" + message + "\"}}";
    }

    /** Scripts that fill an answer with one text or flag per property. */
    static void fill(tovrel_v2_subscription *obj, const std::string &key);
    static void fill(tovrel_v2_publication *obj);
    static void fill(tovrel_v2_publication_eventFilter *obj, const std::string &key);

    /** Scripts every reading handler: two subscriptions, two event filters. */
    void scriptDocument();

    ScriptedHandlers handlers;
    ServedApi api{OwnedApi(tovrel_v2_create_api(&handlers, nullptr, nullptr))};
};
