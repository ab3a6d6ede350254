#include "unit/mqtt/running_bridge.h"

#include "fakes/call_record.h"
#include "fakes/fake_config_paths.h"
#include "fakes/fake_confutils.h"
#include "fakes/fake_mqtt.h"

namespace tovrel::test {

namespace {

std::string flag(bool set)
{
    return set ? " 1" : " 0";
}

} // namespace

void RecordingProducer::start()
{
    recordCall("start");
}

void RecordingProducer::declareStatelessEvent(const std::string &topicFilter,
                                              bool useDeviceTopicPrefix)
{
    recordCall("declareStatelessEvent " + topicFilter + flag(useDeviceTopicPrefix));
}

void RecordingProducer::declareStatefulEvent(const std::string &topicFilter,
                                             bool useDeviceTopicPrefix)
{
    recordCall("declareStatefulEvent " + topicFilter + flag(useDeviceTopicPrefix));
}

void RecordingProducer::sendStatelessEvent(const std::string &topic, bool devicePrefix,
                                           const char *payload)
{
    recordCall("sendStatelessEvent " + topic + flag(devicePrefix) + " " + payload);
}

void RecordingProducer::sendStatefulEvent(const std::string &topic, bool devicePrefix,
                                          const char *payload)
{
    recordCall("sendStatefulEvent " + topic + flag(devicePrefix) + " " + payload);
}

void RecordingProducer::undeclareAllEvents()
{
    recordCall("undeclareAllEvents");
}

void RunningBridgeTest::SetUp()
{
    resetCalls();
    resetFakeMqtt();
    fakeConfutils() = {};
    emptyConfigFolder();
    bridge = std::make_unique<EventBridge>();
}

void RunningBridgeTest::TearDown()
{
    bridge.reset();
    EXPECT_EQ(fakeMqtt().livingHandles, 0);
}

void RunningBridgeTest::whileRunning(const std::function<void()> &newBody)
{
    auto ownedDbus = std::make_unique<testing::NiceMock<MockDbusHandler>>();
    auto ownedConsumer = std::make_unique<testing::NiceMock<MockEventConsumerHandler>>();
    dbus = ownedDbus.get();
    consumer = ownedConsumer.get();
    ON_CALL(*dbus, releaseNameAndQuit).WillByDefault(testing::Return(false));
    ON_CALL(*consumer, eventFilterCount).WillByDefault(testing::Return(1));
    ON_CALL(*consumer, getPublicationConfig).WillByDefault(testing::ReturnRef(publication));

    std::unique_ptr<BaseDbusHandler> dbusHolder = std::move(ownedDbus);
    std::unique_ptr<BaseEventProducerHandler> producerHolder =
        std::make_unique<RecordingProducer>();
    std::unique_ptr<BaseEventConsumerHandler> consumerHolder = std::move(ownedConsumer);
    body = newBody;
    // Of lower priority than the bridge's own start-up task.
    g_idle_add_full(G_PRIORITY_LOW, runBody, this, nullptr);
    bridge->run(dbusHolder, producerHolder, consumerHolder);
}

gboolean RunningBridgeTest::runBody(gpointer data)
{
    auto &test = *static_cast<RunningBridgeTest *>(data);
    test.startCalls = recordedCalls();
    test.startLines = test.log.take();
    resetCalls();
    test.body();
    test.bridge->quit();
    return G_SOURCE_REMOVE;
}

} // namespace tovrel::test
