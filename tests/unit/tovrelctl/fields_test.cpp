/** Words of the command line as values of the document. */
#include "tovrelctl/fields.h"

#include "command_line/usage_error.h"

#include <gtest/gtest.h>

#include <string>

namespace tovrelctl::test {

namespace {

using command_line::UsageError;

std::string complaintOf(const auto &action)
{
    try {
        action();
    } catch (const UsageError &error) {
        return error.what();
    }
    return {};
}

TEST(Settings, AreFoundByTheirNames)
{
    EXPECT_STREQ(settingOf("customTopicPrefix").name, "customTopicPrefix");
    EXPECT_EQ(complaintOf([] { settingOf("prefix"); }),
              "unknown setting 'prefix', expected one of topicPrefix, customTopicPrefix, "
              "appendEventTopic, includeTopicNamespaces, includeSerialNumberInPayload");
}

TEST(Settings, ThatCanOnlyBeReadAreNotChanged)
{
    EXPECT_EQ(&readableOf("deviceTopicPrefix"), &DEVICE_TOPIC_PREFIX);
    EXPECT_EQ(&readableOf("topicPrefix"), &settingOf("topicPrefix"));
    EXPECT_EQ(complaintOf([] { settingOf("deviceTopicPrefix"); }),
              "deviceTopicPrefix can only be read");
    EXPECT_EQ(complaintOf([] { readableOf("prefix"); }),
              "unknown setting 'prefix', expected one of topicPrefix, customTopicPrefix, "
              "appendEventTopic, includeTopicNamespaces, includeSerialNumberInPayload, "
              "deviceTopicPrefix");
}

TEST(Settings, TakeSeveralWordsForATruth)
{
    const Field &field = settingOf("appendEventTopic");
    for (const char *word : {"true", "yes", "on", "1"}) {
        EXPECT_TRUE(json_is_true(parseValue(field, "here", word).get())) << word;
    }
    for (const char *word : {"false", "no", "off", "0"}) {
        EXPECT_TRUE(json_is_false(parseValue(field, "here", word).get())) << word;
    }
    EXPECT_EQ(complaintOf([&] { parseValue(field, "here", "maybe"); }),
              "here: 'maybe' is neither yes nor no");
}

TEST(Settings, TakeOnlyTheirChoices)
{
    const Field &field = settingOf("topicPrefix");
    EXPECT_EQ(plainText(parseValue(field, "here", "custom").get()), "custom");
    EXPECT_EQ(complaintOf([&] { parseValue(field, "here", "Custom"); }),
              "here: 'Custom' is not one of default, custom, none");
}

TEST(Settings, TakeAnyTextWhereOneIsMeant)
{
    EXPECT_EQ(plainText(parseValue(settingOf("customTopicPrefix"), "here", "").get()), "");
    EXPECT_EQ(plainText(parseValue(settingOf("customTopicPrefix"), "here", "ä/b").get()), "ä/b");
}

TEST(Qos, IsWrittenAsANumber)
{
    EXPECT_EQ(plainText(parseQos("2").get()), "QOS_2");
    for (const char *word : {"", "3", "-1", "01", "QOS_1", "/"}) {
        EXPECT_EQ(complaintOf([word] { parseQos(word); }),
                  "--qos: '" + std::string(word) + "' is not 0, 1 or 2");
    }
}

} // namespace

} // namespace tovrelctl::test
