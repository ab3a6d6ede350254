#include "device_fixture.h"
#include "event_service_fixture.h"
#include "status_producer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>

using namespace device_test;
using test_support::waitUntil;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

bool statusIs(const std::string &active, const std::string &connected)
{
    const std::string status = defaultStatus();
    return status.find("\"active\" \"" + active + "\" \"connected\" \"" + connected + "\"") !=
           std::string::npos;
}

bool becomes(const std::string &active, const std::string &connected)
{
    return waitUntil([&] { return statusIs(active, connected); });
}

} // namespace

/** The device services with the real event service. */
class MqttStatus : public DeviceServices {
protected:
    MqttStatus() : eventService(event_test::startDaemon()) { startDaemon(); }

    std::unique_ptr<test_support::ChildProcess> eventService;
};

TEST_F(DeviceServices, TellTheDefaultsOfTheMqttClientWithoutSettings)
{
    startDaemon();
    EXPECT_EQ(defaultStatus(),
              "a{ss} 12 \"deviceTopicPrefix\" \"norq/TEST-1\" \"active\" \"unknown\" "
              "\"connected\" \"unknown\" \"enabled\" \"true\" \"host\" \"localhost\" "
              "\"port\" \"1883\" \"keepalive\" \"60\" \"clientId\" \"\" \"user\" \"\" "
              "\"cleanSession\" \"true\" \"tls\" \"false\" \"settingsFile\" \"" +
                  bus.folder().file("mqtt.conf") + "\"\n");
}

TEST_F(DeviceServices, TellTheSettingsOfTheMqttClientButNeverThePassword)
{
    configureMqtt("[client]\nactive=false\ndevice-topic-prefix=some/place\n"
                  "[broker]\nhost=broker.example\nport=8884\nkeepalive=30\nclient-id=me\n"
                  "user=somebody\npassword=very-secret\nclean-session=false\n"
                  "[tls]\nenabled=true\n");
    startDaemon();
    const std::string status = defaultStatus();
    EXPECT_THAT(status,
                AllOf(HasSubstr("\"deviceTopicPrefix\" \"some/place\""),
                      HasSubstr("\"enabled\" \"false\""), HasSubstr("\"host\" \"broker.example\""),
                      HasSubstr("\"port\" \"8884\""), HasSubstr("\"keepalive\" \"30\"")));
    EXPECT_THAT(status,
                AllOf(HasSubstr("\"clientId\" \"me\""), HasSubstr("\"user\" \"somebody\""),
                      HasSubstr("\"cleanSession\" \"false\""), HasSubstr("\"tls\" \"true\"")));
    EXPECT_THAT(status, Not(HasSubstr("very-secret")));
    EXPECT_THAT(daemon->standardError(), Not(HasSubstr("very-secret")));
}

TEST_F(DeviceServices, TellAnEmptyPrefixAsAnEmptyText)
{
    configureMqtt("[client]\ndevice-topic-prefix=\n");
    startDaemon();
    EXPECT_EQ(statusValue("deviceTopicPrefix"), "");
}

TEST_F(DeviceServices, TellAChangedPrefixFromTheNextQuestionOn)
{
    startDaemon();
    EXPECT_EQ(statusValue("deviceTopicPrefix"), "norq/TEST-1");
    configureMqtt("[client]\ndevice-topic-prefix=other\n");
    EXPECT_EQ(statusValue("deviceTopicPrefix"), "other");
    configureMqtt("");
    configureDevice("[device]\nserial=TEST-2\n");
    EXPECT_EQ(statusValue("deviceTopicPrefix"), "norq/TEST-2");
}

TEST_F(DeviceServices, TellOtherBusLibrariesTheStatus)
{
    startDaemon();
    EXPECT_THAT(outputOf({GDBUS, "call", "--system", "--dest", "com.norq.MQTTMessagingService1",
                          "--object-path", "/com/norq/MQTTMessagingService1", "--method",
                          "com.norq.MQTTMessagingService1.GetDefaultStatus"}),
                testing::StartsWith("({'deviceTopicPrefix': 'norq/TEST-1', "));
}

TEST_F(DeviceServices, RefuseArguments)
{
    startDaemon();
    test_support::ChildProcess tool({BUSCTL, "--system", "call", "com.norq.MQTTMessagingService1",
                                     "/com/norq/MQTTMessagingService1",
                                     "com.norq.MQTTMessagingService1", "GetDefaultStatus", "s",
                                     "x"});
    EXPECT_EQ(tool.waitForExit(test_support::DEADLINE), 1);
    EXPECT_THAT(tool.standardError(), HasSubstr("Invalid arguments"));
}

TEST_F(MqttStatus, IsUnknownWhileNobodyAnnouncesIt)
{
    EXPECT_TRUE(statusIs("unknown", "unknown"));
}

TEST_F(MqttStatus, IsWhatWasAnnouncedLast)
{
    StatusProducer producer;
    ASSERT_TRUE(waitUntil([&] { return producer.announce(true, false); }));
    EXPECT_TRUE(becomes("true", "false"));
    ASSERT_TRUE(producer.announce(true, true));
    EXPECT_TRUE(becomes("true", "true"));
    ASSERT_TRUE(producer.announce(false, false));
    EXPECT_TRUE(becomes("false", "false"));
}

TEST_F(MqttStatus, IsKnownToADaemonThatStartsLater)
{
    StatusProducer producer;
    ASSERT_TRUE(waitUntil([&] { return producer.announce(true, true); }));
    ASSERT_TRUE(becomes("true", "true"));
    daemon.reset();
    startDaemon();
    EXPECT_TRUE(becomes("true", "true"));
}

TEST_F(MqttStatus, IsUnknownAgainWhenItIsWithdrawn)
{
    auto producer = std::make_unique<StatusProducer>();
    ASSERT_TRUE(waitUntil([&] { return producer->announce(true, true); }));
    ASSERT_TRUE(becomes("true", "true"));
    producer.reset();
    EXPECT_TRUE(becomes("unknown", "unknown"));
    StatusProducer next;
    ASSERT_TRUE(waitUntil([&] { return next.announce(true, false); }));
    EXPECT_TRUE(becomes("true", "false"));
}

TEST_F(MqttStatus, IsUnknownWhileTheEventServiceIsAway)
{
    StatusProducer producer;
    ASSERT_TRUE(waitUntil([&] { return producer.announce(true, true); }));
    ASSERT_TRUE(becomes("true", "true"));
    eventService->kill();
    EXPECT_TRUE(becomes("unknown", "unknown"));
    eventService = event_test::startDaemon();
    ASSERT_TRUE(waitUntil([&] { return producer.announce(true, false); }));
    EXPECT_TRUE(becomes("true", "false"));
}

TEST_F(MqttStatus, IsUnknownButAnsweredSoonWhileTheEventServiceHangs)
{
    StatusProducer producer;
    ASSERT_TRUE(waitUntil([&] { return producer.announce(true, true); }));
    ASSERT_TRUE(becomes("true", "true"));
    eventService->signal(SIGSTOP);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(statusIs("unknown", "unknown"));
    // The usual time-out of a bus call is 25 s.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    EXPECT_EQ(property("SerialNumber"), "TEST-1");
    eventService->signal(SIGCONT);
    EXPECT_TRUE(becomes("true", "true"));
}

TEST_F(MqttStatus, IsGivenToManyClientsAtOnce)
{
    StatusProducer producer;
    ASSERT_TRUE(waitUntil([&] { return producer.announce(true, true); }));
    ASSERT_TRUE(becomes("true", "true"));
    std::vector<std::unique_ptr<test_support::ChildProcess>> clients;
    for (int client = 0; client < 8; ++client) {
        clients.push_back(std::make_unique<test_support::ChildProcess>(
            std::vector<std::string>{BUSCTL, "--system", "call", "com.norq.MQTTMessagingService1",
                                     "/com/norq/MQTTMessagingService1",
                                     "com.norq.MQTTMessagingService1", "GetDefaultStatus"}));
    }
    for (const auto &client : clients) {
        EXPECT_EQ(client->waitForExit(test_support::DEADLINE), 0) << client->standardError();
        EXPECT_THAT(client->standardOutput(), HasSubstr("\"connected\" \"true\""));
    }
}

TEST_F(MqttStatus, IsToldToOthersWhenAClientLeavesWithoutItsAnswer)
{
    StatusProducer producer;
    ASSERT_TRUE(waitUntil([&] { return producer.announce(true, true); }));
    ASSERT_TRUE(becomes("true", "true"));
    eventService->signal(SIGSTOP);
    {
        test_support::ChildProcess leaver({BUSCTL, "--system", "--timeout=0.1", "call",
                                           "com.norq.MQTTMessagingService1",
                                           "/com/norq/MQTTMessagingService1",
                                           "com.norq.MQTTMessagingService1", "GetDefaultStatus"});
        EXPECT_EQ(leaver.waitForExit(test_support::DEADLINE), 1);
    }
    eventService->signal(SIGCONT);
    EXPECT_TRUE(becomes("true", "true"));
    EXPECT_TRUE(daemon->isRunning());
}
