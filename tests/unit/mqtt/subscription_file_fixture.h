/** What tests of the subscription files share. */
#pragma once

#include "fakes/call_record.h"
#include "fakes/fake_config_paths.h"
#include "fakes/fake_confutils.h"
#include "interfaces/exceptions.h"
#include "mqtt/config_paths.h"
#include "mqtt/subscription_file.h"
#include "unit/mqtt/case_name.h"
#include "unit/mqtt/log_lines.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace tovrel::test {

/** A file that ends within a record, and the warning about it. */
struct TruncatedCase : NamedCase {
    const char *text;
    const char *warning;
};

/** An empty store, an empty configuration folder and an empty log. */
class SubscriptionFileTest : public testing::Test {
protected:
    void SetUp() override
    {
        resetCalls();
        fakeConfutils() = {};
        emptyConfigFolder();
    }

    static SubscriptionStore::Items read(const std::string &text)
    {
        std::istringstream stream(text);
        SubscriptionStore::Items items;
        readSubscriptions(stream, items);
        return items;
    }

    static const std::string &savedText()
    {
        return fakeConfutils().files.at(subscriptionsFile()).contents;
    }

    LogCapture log;
    SubscriptionStore store;
};

/** An item, field by field. */
inline SubscriptionConfig item(const std::string &topicFilter, bool useDeviceTopicPrefix, int qos,
                               bool isStateData)
{
    return {.isStateData = isStateData,
            .qos = qos,
            .useDeviceTopicPrefix = useDeviceTopicPrefix,
            .topicFilter = topicFilter};
}

} // namespace tovrel::test
