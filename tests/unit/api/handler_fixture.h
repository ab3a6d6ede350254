/** Requests to the service's own API, through the real backend library; the bridge is a mock. */
#pragma once

#include "api/tovrel_v2_backend.h"
#include "events/publication_config.h"
#include "fakes/call_record.h"
#include "fakes/config_folder.h"
#include "fakes/fake_confutils.h"
#include "fakes/log_capture.h"
#include "fakes/mock_event_bridge.h"
#include "interfaces/c_handles.h"
#include "interfaces/exceptions.h"
#include "mqtt/subscription_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tovrel::test {

/** Answers of requests that have nothing to say, and of those that fail. */
inline const std::string DONE = R"({"data":null})";

inline std::string failure(int code, const std::string &message)
{
    return R"({"error":{"code":)" + std::to_string(code) + R"(,"message":")" + message + R"("}})";
}

class HandlerFixture : public ::testing::Test {
protected:
    HandlerFixture()
    {
        resetCalls();
        fakeConfutils() = FakeConfutils();
        emptyConfigFolder();
        dbh_request_handler_add_api(handler.get(), dbh_get_api_interface(api.get()), nullptr);
    }

    /** The answer to a request with these members besides API and version. */
    std::string answer(const std::string &members)
    {
        const std::string request = R"({"api":"tovrel","version":2,)" + members + "}";
        MallocText response;
        dbh_request_handler_process_request(handler.get(), request.c_str(), OutParameter(response),
                                            nullptr);
        return response ? response.get() : "(no answer)";
    }

    std::string get(const std::string &path)
    {
        return answer(R"("operation":"get","path":)" + path);
    }
    std::string listKeys(const std::string &path)
    {
        return answer(R"("operation":"listKeys","path":)" + path);
    }
    std::string set(const std::string &path, const std::string &data)
    {
        return answer(R"("operation":"set","path":)" + path + R"(,"data":)" + data);
    }
    std::string add(const std::string &path, const std::string &data)
    {
        return answer(R"("operation":"add","path":)" + path + R"(,"data":)" + data);
    }
    std::string remove(const std::string &path)
    {
        return answer(R"("operation":"remove","path":)" + path);
    }

    std::string import(const std::string &data, const std::string &type = "merge")
    {
        return answer(R"("operation":"import","data":)" + data + R"(,"options":{"importType":")" +
                      type + R"("})");
    }

    /** Lets the bridge show the two stores, for reading and for changes in place. */
    void showStores()
    {
        using ::testing::ReturnRef;
        EXPECT_CALL(testing::Const(bridge), getSubscriptions())
            .Times(testing::AnyNumber())
            .WillRepeatedly(ReturnRef(items));
        EXPECT_CALL(bridge, getSubscriptions())
            .Times(testing::AnyNumber())
            .WillRepeatedly(ReturnRef(items));
        EXPECT_CALL(testing::Const(bridge), getPublicationConfig())
            .Times(testing::AnyNumber())
            .WillRepeatedly(ReturnRef(publication));
        EXPECT_CALL(bridge, getPublicationConfig())
            .Times(testing::AnyNumber())
            .WillRepeatedly(ReturnRef(publication));
    }

    /** Expects the items to be replaced once, and takes them over as the bridge would. */
    void expectReplacement()
    {
        EXPECT_CALL(bridge, replaceSubscriptions).WillOnce([this](const SubscriptionStore &store) {
            const SubscriptionStore copy = store; // it may be the live one
            items = copy;
        });
    }

    /** Expects the configuration to be reset once, and resets what the bridge shows. */
    void expectReset()
    {
        EXPECT_CALL(bridge, resetConfiguration).WillOnce([this] {
            items = {};
            publication = {};
        });
    }

    /** How often the publication file was written. */
    static std::size_t saves()
    {
        return recordedCalls({"confutils_set_file_contents_with_sync_mode"}).size();
    }

    ::testing::StrictMock<MockEventBridge> bridge;
    SubscriptionStore items;
    PublicationConfig publication;
    LogCapture log;

private:
    CHandle<dbh_api_t, dbh_delete_api> api{
        tovrel_v2_create_api(static_cast<BaseEventBridge *>(&bridge), nullptr, nullptr)};
    CHandle<dbh_request_handler_t, dbh_request_handler_free> handler{
        dbh_request_handler_new(nullptr)};
};

} // namespace tovrel::test
