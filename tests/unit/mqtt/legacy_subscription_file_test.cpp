/** Moving the items of the former format to the configuration file. */
#include "unit/mqtt/subscription_file_fixture.h"

#include <filesystem>
#include <string>

namespace tovrel::test {

namespace {

class TruncatedLegacyFile : public testing::TestWithParam<TruncatedCase> {};

} // namespace

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

TEST_F(SubscriptionFileTest, ALegacyFileThatCannotBeDeletedIsLoggedAndTheItemsAreSaved)
{
    writeFile(legacySubscriptionsFile(), "a\n0\n0\n0\n");
    failCall("remove", 1);
    store.migrateLegacyFile();
    EXPECT_EQ(log.take(),
              Lines{warningLine(std::string("Could not delete ") + legacySubscriptionsFile() +
                                ": Read-only file system")});
    EXPECT_EQ(savedText(), "0\na\n0\n0\n0\n");
    EXPECT_TRUE(std::filesystem::exists(legacySubscriptionsFile()));
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
    testing::Values(TruncatedCase{{"AfterTopic"}, "a\n", "Missing device_prefix_flag"},
                    TruncatedCase{{"WithinTopic"}, "a", "Missing device_prefix_flag"},
                    TruncatedCase{{"AfterFlag"}, "a\n0\n", "Missing qos"},
                    TruncatedCase{{"AfterQos"}, "a\n0\n0\n", "Missing stateful"},
                    TruncatedCase{{"EmptyLineAtTheEnd"}, "\n", "Missing device_prefix_flag"}),
    CaseName());

} // namespace tovrel::test
