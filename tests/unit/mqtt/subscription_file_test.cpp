/** Loading and saving the configuration file whole. */
#include "unit/mqtt/subscription_file_fixture.h"

#include <filesystem>
#include <string>

namespace tovrel::test {

TEST_F(SubscriptionFileTest, AnEmptyStoreIsAnEmptyText)
{
    EXPECT_EQ(formatSubscriptions({}), "");
}

TEST_F(SubscriptionFileTest, ARecordIsFiveLines)
{
    EXPECT_EQ(formatSubscriptions(
                  {{"0", item("a/b", true, 2, false)}, {"1", item("c", false, -1, true)}}),
              "0\na/b\n1\n2\n0\n1\nc\n0\n-1\n1\n");
}

TEST_F(SubscriptionFileTest, WhatIsWrittenIsReadBack)
{
    SubscriptionStore::Items items;
    for (int number = 0; number < 256; ++number) {
        items[std::to_string(number)] = item("topic/" + std::to_string(number) + "/\xC3\xA5/+/#",
                                             number % 2 == 0, number % 3, number % 5 == 0);
    }
    EXPECT_EQ(read(formatSubscriptions(items)), items);
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(SubscriptionFileTest, AFilterIsCutAtItsFirstBlankWhenItIsRead)
{
    const SubscriptionStore::Items items{{"0", item("a b/c", false, 1, false)}};
    EXPECT_EQ(read(formatSubscriptions(items)).at("0"), item("a", false, 1, false));
}

TEST_F(SubscriptionFileTest, TheFirstRecordWithAnIdWins)
{
    EXPECT_EQ(read("3\na\n0\n0\n0\n3\nb\n1\n2\n1\n"),
              (SubscriptionStore::Items{{"3", item("a", false, 0, false)}}));
    std::istringstream stream("3\nb\n1\n2\n1\n");
    SubscriptionStore::Items items{{"3", item("present", false, 0, false)}};
    readSubscriptions(stream, items);
    EXPECT_EQ(items.at("3").topicFilter, "present");
}

TEST_F(SubscriptionFileTest, AnIdLineIsTakenWholeAndUnchecked)
{
    const auto items = read("no number at all\na\n0\n0\n0\n999\nb\n0\n0\n0\n\nc\n0\n0\n0\n");
    EXPECT_EQ(items.size(), 3U);
    EXPECT_EQ(items.at("no number at all").topicFilter, "a");
    EXPECT_EQ(items.at("999").topicFilter, "b");
    EXPECT_EQ(items.at("").topicFilter, "c");
}

TEST_F(SubscriptionFileTest, TheLastLineNeedsNoLineFeed)
{
    EXPECT_EQ(read("0\na\n1\n2\n1"), (SubscriptionStore::Items{{"0", item("a", true, 2, true)}}));
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(SubscriptionFileTest, LoadingSweepsTemporaryFilesFirstAndReadsTheFile)
{
    writeFile(subscriptionsFile(), "0\na\n0\n0\n0\n");
    store.loadFromFile();
    EXPECT_EQ(store.items.at("0").topicFilter, "a");
    EXPECT_EQ(recordedCalls(),
              Calls{std::string("confutils_sweep_temporary_files ") + subscriptionsFile()});
}

TEST_F(SubscriptionFileTest, AMissingFileLoadsNothingSilently)
{
    store.loadFromFile();
    EXPECT_TRUE(store.items.empty());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(SubscriptionFileTest, AFolderInPlaceOfTheFileLoadsNothingSilently)
{
    std::filesystem::create_directory(subscriptionsFile());
    store.loadFromFile();
    EXPECT_TRUE(store.items.empty());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(SubscriptionFileTest, LoadedIdsAreNotTaken)
{
    writeFile(subscriptionsFile(), "0\na\n0\n0\n0\n1\nb\n1\n1\n1\n");
    store.loadFromFile();
    EXPECT_EQ(store.addSubscription("new", false, 0, false), "0");
    EXPECT_EQ(store.items.at("0").topicFilter, "a");
    EXPECT_EQ(store.items.size(), 2U);
    EXPECT_EQ(store.addSubscription("new", false, 0, false), "1");
    EXPECT_EQ(store.addSubscription("new", false, 0, false), "2");
    EXPECT_EQ(store.items.at("2").topicFilter, "new");
}

TEST_F(SubscriptionFileTest, SavingReplacesTheFileWithItsMode)
{
    store.addSubscription("a/b", true, 1, true);
    store.saveToFile();
    EXPECT_EQ(savedText(), "0\na/b\n1\n1\n1\n");
    EXPECT_EQ(fakeConfutils().files.at(subscriptionsFile()).mode, 0640);
    EXPECT_EQ(recordedCalls({"confutils_set_file_contents_with_sync_mode"}).size(), 1U);
}

TEST_F(SubscriptionFileTest, AnEmptyStoreIsSavedAsAnEmptyFile)
{
    store.saveToFile();
    EXPECT_EQ(savedText(), "");
}

TEST_F(SubscriptionFileTest, TwelveItemsAreSavedInTheOrderOfTheirIdTexts)
{
    for (int count = 0; count < 12; ++count) {
        store.addSubscription("t", false, 0, false);
    }
    store.saveToFile();
    std::string expected;
    for (const char *id : {"0", "1", "10", "11", "2", "3", "4", "5", "6", "7", "8", "9"}) {
        expected += std::string(id) + "\nt\n0\n0\n0\n";
    }
    EXPECT_EQ(savedText(), expected);
}

TEST_F(SubscriptionFileTest, AFailedSaveIsLoggedAndThrown)
{
    failCall("confutils_set_file_contents_with_sync_mode");
    fakeConfutils().failureMessage = "disk is full";
    try {
        store.saveToFile();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const SubscribeConfigException &error) {
        EXPECT_STREQ(error.what(), "Could not store configuration");
    }
    EXPECT_EQ(log.take(), Lines{failureLine("Could not save MQTT-to-event configurations to file: "
                                            "disk is full")});
}

TEST_F(SubscriptionFileTest, AFailedSaveWithoutAReasonIsLoggedToo)
{
    failCall("confutils_set_file_contents_with_sync_mode");
    fakeConfutils().failureMessage.reset();
    EXPECT_THROW(store.saveToFile(), SubscribeConfigException);
    EXPECT_EQ(log.take(),
              Lines{failureLine("Could not save MQTT-to-event configurations to file: ")});
}

} // namespace tovrel::test
