#include "mqtt/subscription_file.h"

#include "fakes/call_record.h"
#include "fakes/fake_config_paths.h"
#include "fakes/fake_confutils.h"
#include "interfaces/exceptions.h"
#include "mqtt/config_paths.h"
#include "unit/mqtt/case_name.h"
#include "unit/mqtt/log_lines.h"

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <sstream>
#include <string>

namespace tovrel::test {

namespace {

class SubscriptionFileTest : public testing::Test {
protected:
    void SetUp() override
    {
        resetCalls();
        fakeConfutils() = {};
        emptyConfigFolder();
    }

    SubscriptionStore::Items read(const std::string &text)
    {
        std::istringstream stream(text);
        SubscriptionStore::Items items;
        readSubscriptions(stream, items);
        return items;
    }

    const std::string &savedText()
    {
        return fakeConfutils().files.at(subscriptionsFile()).contents;
    }

    LogCapture log;
    SubscriptionStore store;
};

SubscriptionConfig item(const std::string &topicFilter, bool useDeviceTopicPrefix, int qos,
                        bool isStateData)
{
    return {.isStateData = isStateData,
            .qos = qos,
            .useDeviceTopicPrefix = useDeviceTopicPrefix,
            .topicFilter = topicFilter};
}

} // namespace

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

namespace {

struct FieldCase : NamedCase {
    const char *line;
    int expected;
};

SubscriptionConfig readOne(const std::string &record)
{
    std::istringstream stream(record);
    SubscriptionStore::Items items;
    readSubscriptions(stream, items);
    return items.at("0");
}

class FlagLine : public testing::TestWithParam<FieldCase> {};
class QosLine : public testing::TestWithParam<FieldCase> {};

struct TopicCase : NamedCase {
    const char *line;
    const char *expected;
};

class TopicLine : public testing::TestWithParam<TopicCase> {};

} // namespace

TEST_P(FlagLine, IsExtractedAsAStreamBoolean)
{
    const std::string line = GetParam().line;
    const bool expected = GetParam().expected != 0;
    EXPECT_EQ(readOne("0\na\n" + line + "\n0\n0\n").useDeviceTopicPrefix, expected);
    EXPECT_EQ(readOne("0\na\n0\n0\n" + line + "\n").isStateData, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, FlagLine,
    testing::Values(FieldCase{"Zero", "0", 0}, FieldCase{"One", "1", 1},
                    FieldCase{"OtherNumberIsTrue", "2", 1}, FieldCase{"NegativeIsTrue", "-1", 1},
                    FieldCase{"WordIsFalse", "true", 0}, FieldCase{"EmptyIsFalse", "", 0},
                    FieldCase{"BlankIsFalse", "   ", 0}, FieldCase{"LeadingBlank", "  1", 1},
                    FieldCase{"TrailingText", "1 or so", 1}, FieldCase{"LeadingZero", "01", 1},
                    FieldCase{"CarriageReturn", "1\r", 1},
                    FieldCase{"HugeIsTrue", "99999999999999999999", 1}),
    CaseName());

TEST_P(QosLine, IsExtractedAsAnInteger)
{
    EXPECT_EQ(readOne(std::string("0\na\n0\n") + GetParam().line + "\n0\n").qos,
              GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Lines, QosLine,
                         testing::Values(FieldCase{"Two", "2", 2}, FieldCase{"Negative", "-5", -5},
                                         FieldCase{"OutsideOfMqtt", "17", 17},
                                         FieldCase{"Word", "qos", 0}, FieldCase{"Empty", "", 0},
                                         FieldCase{"TrailingText", "1x", 1},
                                         FieldCase{"LeadingBlank", "\t 2", 2},
                                         FieldCase{"TooLarge", "2147483648", INT_MAX},
                                         FieldCase{"TooSmall", "-2147483649", INT_MIN}),
                         CaseName());

TEST_P(TopicLine, IsReadUpToItsFirstBlank)
{
    EXPECT_EQ(readOne(std::string("0\n") + GetParam().line + "\n0\n0\n0\n").topicFilter,
              GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, TopicLine,
    testing::Values(TopicCase{"Plain", "a/b", "a/b"}, TopicCase{"InnerBlank", "a b/c", "a"},
                    TopicCase{"LeadingBlank", "  a", "a"}, TopicCase{"Tabulator", "a\tb", "a"},
                    TopicCase{"CarriageReturn", "a\r", "a"}, TopicCase{"Empty", "", ""}),
    CaseName());

namespace {

struct TruncatedCase : NamedCase {
    const char *text;
    const char *warning;
};

class TruncatedFile : public testing::TestWithParam<TruncatedCase> {};
class TruncatedLegacyFile : public testing::TestWithParam<TruncatedCase> {};

} // namespace

TEST_P(TruncatedFile, KeepsTheRecordsBeforeAndWarns)
{
    LogCapture log;
    std::istringstream stream(std::string("5\nwhole\n1\n1\n1\n") + GetParam().text);
    SubscriptionStore::Items items;
    readSubscriptions(stream, items);
    EXPECT_EQ(items, (SubscriptionStore::Items{{"5", item("whole", true, 1, true)}}));
    EXPECT_EQ(log.take(), Lines{warningLine(GetParam().warning)});
}

INSTANTIATE_TEST_SUITE_P(
    Files, TruncatedFile,
    testing::Values(TruncatedCase{"AfterId", "0\n", "Missing topic"},
                    TruncatedCase{"WithinId", "0", "Missing topic"},
                    TruncatedCase{"AfterTopic", "0\na\n", "Missing device_prefix_flag"},
                    TruncatedCase{"AfterFlag", "0\na\n0\n", "Missing qos"},
                    TruncatedCase{"AfterQos", "0\na\n0\n0\n", "Missing stateful flag"},
                    TruncatedCase{"WithinQos", "0\na\n0\n0", "Missing stateful flag"},
                    TruncatedCase{"EmptyLineAtTheEnd", "\n", "Missing topic"}),
    CaseName());

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

TEST_F(SubscriptionFileTest, WithoutALegacyFileNothingIsMigrated)
{
    store.migrateLegacyFile();
    EXPECT_TRUE(store.items.empty());
    EXPECT_EQ(recordedCalls(), Calls());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(SubscriptionFileTest, LegacyRecordsGetFreshIdsAndMoveToTheNewFile)
{
    writeFile(legacySubscriptionsFile(), "a/b\n1\n2\n0\nc d\n0\n1\n1\n");
    store.migrateLegacyFile();
    EXPECT_EQ(store.items, (SubscriptionStore::Items{{"0", item("a/b", true, 2, false)},
                                                     {"1", item("c d", false, 1, true)}}));
    EXPECT_EQ(store.allocateId(), "2");
    EXPECT_FALSE(std::filesystem::exists(legacySubscriptionsFile()));
    EXPECT_EQ(savedText(), "0\na/b\n1\n2\n0\n1\nc d\n0\n1\n1\n");
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(SubscriptionFileTest, AnEmptyLegacyFileIsDeletedAndTheStoreSaved)
{
    writeFile(legacySubscriptionsFile(), "");
    store.migrateLegacyFile();
    EXPECT_FALSE(std::filesystem::exists(legacySubscriptionsFile()));
    EXPECT_EQ(savedText(), "");
}

TEST_F(SubscriptionFileTest, LegacyRecordsDoNotReplaceLoadedItems)
{
    writeFile(subscriptionsFile(), "0\nloaded\n0\n0\n0\n");
    writeFile(legacySubscriptionsFile(), "dropped\n0\n0\n0\nadded\n0\n0\n0\n");
    store.loadFromFile();
    store.migrateLegacyFile();
    EXPECT_EQ(store.items, (SubscriptionStore::Items{{"0", item("loaded", false, 0, false)},
                                                     {"1", item("added", false, 0, false)}}));
}

TEST_F(SubscriptionFileTest, ARefusedLegacyRecordIsSkipped)
{
    writeFile(legacySubscriptionsFile(), "a/#/b\n0\n0\n0\ngood\n0\n0\n0\n");
    store.migrateLegacyFile();
    EXPECT_EQ(store.items, (SubscriptionStore::Items{{"0", item("good", false, 0, false)}}));
    EXPECT_FALSE(std::filesystem::exists(legacySubscriptionsFile()));
    EXPECT_EQ(log.take(),
              Lines{warningLine("Could not create new subscription: Invalid MQTT topic")});
}

TEST_F(SubscriptionFileTest, LegacyRecordsBeyondTheIdsAreSkipped)
{
    std::string text;
    for (int count = 0; count < 257; ++count) {
        text += "t\n0\n0\n0\n";
    }
    writeFile(legacySubscriptionsFile(), text);
    store.migrateLegacyFile();
    EXPECT_EQ(store.items.size(), 256U);
    EXPECT_EQ(log.take(),
              Lines{warningLine("Could not create new subscription: No available IDs")});
}

TEST_F(SubscriptionFileTest, TheLegacyFileIsDeletedBeforeSavingSoThatAFailureToSaveThrows)
{
    writeFile(legacySubscriptionsFile(), "a\n0\n0\n0\n");
    failCall("confutils_set_file_contents_with_sync_mode");
    EXPECT_THROW(store.migrateLegacyFile(), SubscribeConfigException);
    EXPECT_FALSE(std::filesystem::exists(legacySubscriptionsFile()));
    EXPECT_EQ(store.items.size(), 1U);
}

TEST_F(SubscriptionFileTest, AnUnreadableLegacyFileIsKept)
{
    std::filesystem::create_directory(legacySubscriptionsFile());
    store.migrateLegacyFile();
    EXPECT_TRUE(std::filesystem::exists(legacySubscriptionsFile()));
    EXPECT_EQ(recordedCalls(), Calls());
    EXPECT_EQ(log.take(), Lines{warningLine("Could not read former MQTT-to-event configurations")});
}

TEST_P(TruncatedLegacyFile, IsKeptWhileItsWholeRecordsStayInMemory)
{
    resetCalls();
    fakeConfutils() = {};
    emptyConfigFolder();
    LogCapture log;
    SubscriptionStore store;
    writeFile(legacySubscriptionsFile(), std::string("whole\n1\n1\n1\n") + GetParam().text);
    store.migrateLegacyFile();
    EXPECT_EQ(store.items, (SubscriptionStore::Items{{"0", item("whole", true, 1, true)}}));
    EXPECT_TRUE(std::filesystem::exists(legacySubscriptionsFile()));
    EXPECT_EQ(recordedCalls(), Calls());
    EXPECT_EQ(log.take(), Lines{warningLine(GetParam().warning)});
}

INSTANTIATE_TEST_SUITE_P(
    Files, TruncatedLegacyFile,
    testing::Values(TruncatedCase{"AfterTopic", "a\n", "Missing device_prefix_flag"},
                    TruncatedCase{"WithinTopic", "a", "Missing device_prefix_flag"},
                    TruncatedCase{"AfterFlag", "a\n0\n", "Missing qos"},
                    TruncatedCase{"AfterQos", "a\n0\n0\n", "Missing stateful"},
                    TruncatedCase{"EmptyLineAtTheEnd", "\n", "Missing device_prefix_flag"}),
    CaseName());

} // namespace tovrel::test
