/** The legacy methods that replace and list the MQTT-to-event items. */
#include "unit/core/legacy_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Throw;

namespace tovrel::test {

namespace {

std::string repeated(const std::string &text, std::size_t times)
{
    std::string result;
    for (std::size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

TEST_F(LegacyMethods, ItemsGetIdsInTheOrderOfTheArray)
{
    keepItems();
    EXPECT_EQ(set({{"a/+", true, 2, false}, {"b", false, 1, true}}), status(0));
    const SubscriptionStore::Items expected{
        {"0", {.isStateData = false, .qos = 2, .useDeviceTopicPrefix = true, .topicFilter = "a/+"}},
        {"1", {.isStateData = true, .qos = 1, .useDeviceTopicPrefix = false, .topicFilter = "b"}}};
    EXPECT_EQ(items.items, expected);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(LegacyMethods, AnEmptyArrayIsAppliedAsAnEmptyConfiguration)
{
    EXPECT_CALL(bridge, replaceSubscriptions(testing::Field(&SubscriptionStore::items, IsEmpty())));
    EXPECT_EQ(set(std::vector<WireItem>()), status(0));
}

TEST_F(LegacyMethods, ATopicOf1024CharactersIsTaken)
{
    keepItems();
    const std::string longest = repeated("\xF0\x9F\x9A\xAA", 1024); // 4096 bytes
    EXPECT_EQ(set({{longest, false, 0, false}}), status(0));
    EXPECT_EQ(items.items.at("0").topicFilter, longest);
}

TEST_F(LegacyMethods, AnUnusableTopicAmongOthersRejectsEverything)
{
    const std::string tooManyBytes = repeated("\xF0\x9F\x9A\xAA", 1024) + "a";
    for (const std::string &topic : {std::string(), std::string(1025, 'a'), tooManyBytes}) {
        EXPECT_EQ(
            set({{"fine", false, 0, false}, {topic, false, 0, false}, {"a/+", false, 0, true}}),
            status(-1));
        EXPECT_THAT(log.take(),
                    ElementsAre(LogLine{64, "Cannot create MQTT to Event configuration - Invalid "
                                            "topic"}));
    }
}

TEST_F(LegacyMethods, ATopicThatIsNotValidUtf8RejectsEverything)
{
    const std::string beforeTheLimit = repeated("\xF0\x9F\x9A\xAA", 1023); // 4092 bytes
    const std::string upToTheLimit = repeated("\xF0\x9F\x9A\xAA", 1024);   // 4096 bytes
    for (const std::string &topic :
         {std::string("\xFF"), std::string("a\xFF"), std::string("\xFFz"), std::string("a\xC3"),
          beforeTheLimit + "\xFF", beforeTheLimit + "\xFC\x80\x80\x80\x80\x80",
          upToTheLimit + "\xFF"}) {
        replaceReadText(topic, 2);
        EXPECT_EQ(set({{"fine", false, 0, false},
                       {"replaced", false, 0, false},
                       {"behind it", false, 0, false}}),
                  status(-1));
        EXPECT_THAT(log.take(),
                    ElementsAre(LogLine{64, "Cannot create MQTT to Event configuration - Invalid "
                                            "topic"}));
    }
}

TEST_F(LegacyMethods, AStatefulItemWithAWildcardRejectsEverything)
{
    for (const char *const topic : {"a/+/b", "a/#"}) {
        EXPECT_EQ(set({{topic, false, 0, true}, {"", false, 0, false}}), status(-1));
        EXPECT_THAT(
            log.take(),
            ElementsAre(LogLine{64, "Cannot produce stateful event with wildcard in MQTT topic"}));
    }
}

TEST_F(LegacyMethods, AStatelessItemMayHaveAWildcard)
{
    keepItems();
    EXPECT_EQ(set({{"a/+/b", false, 0, false}}), status(0));
}

TEST_F(LegacyMethods, AnItemThatTheMqttLibraryRefusesRejectsEverythingAfterAllWereRead)
{
    EXPECT_EQ(set({{"a#b", false, 0, false}, {"fine", false, 0, false}, {"", false, 0, false}}),
              status(-1));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{64, "Cannot create MQTT to Event configuration - "
                                                    "Invalid topic"}))
        << "the records behind the refused one are read";
}

TEST_F(LegacyMethods, ItemsThatTheBridgeRejectsAreToldApart)
{
    EXPECT_CALL(bridge, replaceSubscriptions)
        .WillOnce(Throw(SubscribeConfigException("Could not store configuration")));
    EXPECT_EQ(set({{"a", false, 0, false}}), status(-2));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(LegacyMethods, MoreThan256ItemsAreAnError)
{
    EXPECT_EQ(set(std::vector<WireItem>(257, {"a", false, 0, false})),
              internalError("No available IDs"));
    EXPECT_THAT(log.take(),
                ElementsAre(LogLine{256, "SetMQTTToEventConfig error: No available IDs"}));
}

TEST_F(LegacyMethods, AnExceptionOfTheBridgeBecomesAnError)
{
    EXPECT_CALL(bridge, replaceSubscriptions).WillOnce(Throw(EventBridgeException("bro\xFFken")));
    EXPECT_EQ(set({{"a", false, 0, false}}), internalError("bro\uFFFDken"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "SetMQTTToEventConfig error: bro\xFFken"}));
}

TEST_F(LegacyMethods, ItemsWithoutABridgeAreReadAndDropped)
{
    handler.emplace(nullptr);
    handler->start();
    EXPECT_EQ(set({{"a", false, 0, false}}), status(0));
    EXPECT_EQ(set({{"", false, 0, false}}), status(-1));
}

TEST_F(LegacyMethods, EveryStepOfReadingItemsMayFail)
{
    for (const auto &[function, number, text] :
         {FailingStep{"sd_bus_message_enter_container", 1, "Failed to open DBus array:"},
          FailingStep{"sd_bus_message_read", 1, "Failed to read message:"},
          FailingStep{"sd_bus_message_read", 2, "Failed to read message:"},
          FailingStep{"sd_bus_message_exit_container", 1, "Failed to exit container:"}}) {
        failSdBus(function, -EBADMSG, number);
        const std::string whole = std::string(text) + g_strerror(EBADMSG);
        EXPECT_EQ(set({{"a", false, 0, false}}), internalError(whole));
        EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "SetMQTTToEventConfig error: " + whole}));
        EXPECT_FALSE(sdBusFailurePending());
    }
}

// listing the items

TEST_F(LegacyMethods, ListsTheItemsInTheOrderOfTheirIdsAsTexts)
{
    offerItems();
    items.setSubscription("2", "two", true, 2, false);
    items.setSubscription("10", "ten", false, 1, true);
    Answer expected;
    expected.items = {{"ten", false, 1, true}, {"two", true, 2, false}};
    EXPECT_EQ(getItems(), expected);
}

TEST_F(LegacyMethods, ListsNoItems)
{
    offerItems();
    EXPECT_EQ(getItems(), Answer());
}

TEST_F(LegacyMethods, AnItemThatIsNotTextCannotBeListed)
{
    offerItems();
    items.setSubscription("0", "a\xFF", false, 0, false);
    const std::string text = std::string("Error appending to reply message: ") + g_strerror(EINVAL);
    EXPECT_EQ(getItems(), internalError(text));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "GetMQTTToEventConfig Error: " + text}));
}

TEST_F(LegacyMethods, EveryStepOfListingItemsMayFail)
{
    offerItems();
    items.setSubscription("0", "a", false, 0, false);
    for (const auto &[function, number, text] :
         {FailingStep{"sd_bus_message_open_container", 1, "Error opening reply container: "},
          FailingStep{"sd_bus_message_append", 1, "Error appending to reply message: "},
          FailingStep{"sd_bus_message_close_container", 1, "Error closing reply container: "}}) {
        failSdBus(function, -ENOMEM, number);
        const std::string whole = std::string(text) + g_strerror(ENOMEM);
        EXPECT_EQ(getItems(), internalError(whole));
        EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "GetMQTTToEventConfig Error: " + whole}));
        EXPECT_FALSE(sdBusFailurePending());
    }
}

TEST_F(LegacyMethods, AReplyWithItemsThatCannotBeMadeIsAnError)
{
    failSdBus("sd_bus_message_new_method_return", -ENOMEM);
    EXPECT_EQ(getItems(), internalError("Could not create reply"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, std::string("Error creating reply: ") +
                                                         g_strerror(ENOMEM)}));
}

TEST_F(LegacyMethods, ItemsCannotBeListedWithoutABridge)
{
    handler.emplace(nullptr);
    handler->start();
    EXPECT_EQ(getItems(), internalError("Could not construct reply"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "GetMQTTToEventConfig Error: Could not "
                                                     "construct reply"}));
}

} // namespace

} // namespace tovrel::test
