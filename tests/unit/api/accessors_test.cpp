#include "api/tovrel_v2_backend.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

namespace {

struct Accessor {
    std::string name;
    void (*callWithNull)();
};

#define ACCESSOR(name)                                                                             \
    Accessor                                                                                       \
    {                                                                                              \
#name, [] { name(nullptr); }                                                               \
    }
#define KEY_ACCESSOR(name)                                                                         \
    Accessor                                                                                       \
    {                                                                                              \
#name, [] { name(nullptr, "0", nullptr); }                                                 \
    }

// clang-format off
const Accessor ACCESSORS[] = {
    ACCESSOR(gdt_tovrel_v2_deviceTopicPrefix),

    ACCESSOR(gdt_tovrel_v2_subscription_id),
    ACCESSOR(gdt_tovrel_v2_subscription_topicFilter),
    ACCESSOR(gdt_tovrel_v2_subscription_qos),
    ACCESSOR(gdt_tovrel_v2_subscription_isStateData),
    ACCESSOR(gdt_tovrel_v2_subscription_useDeviceTopicPrefix),
    ACCESSOR(sdt_tovrel_v2_subscription_topicFilter),
    ACCESSOR(sdt_tovrel_v2_subscription_qos),
    ACCESSOR(sdt_tovrel_v2_subscription_isStateData),
    ACCESSOR(sdt_tovrel_v2_subscription_useDeviceTopicPrefix),
    ACCESSOR(adt_tovrel_v2_subscription_topicFilter),
    ACCESSOR(adt_tovrel_v2_subscription_qos),
    ACCESSOR(adt_tovrel_v2_subscription_isStateData),
    ACCESSOR(adt_tovrel_v2_subscription_useDeviceTopicPrefix),
    ACCESSOR(idt_tovrel_v2_subscription_id),
    ACCESSOR(idt_tovrel_v2_subscription_topicFilter),
    ACCESSOR(idt_tovrel_v2_subscription_qos),
    ACCESSOR(idt_tovrel_v2_subscription_isStateData),
    ACCESSOR(idt_tovrel_v2_subscription_useDeviceTopicPrefix),

    ACCESSOR(gdt_tovrel_v2_publication_topicPrefix),
    ACCESSOR(gdt_tovrel_v2_publication_customTopicPrefix),
    ACCESSOR(gdt_tovrel_v2_publication_appendEventTopic),
    ACCESSOR(gdt_tovrel_v2_publication_includeTopicNamespaces),
    ACCESSOR(gdt_tovrel_v2_publication_includeSerialNumberInPayload),
    ACCESSOR(sdt_tovrel_v2_publication_topicPrefix),
    ACCESSOR(sdt_tovrel_v2_publication_customTopicPrefix),
    ACCESSOR(sdt_tovrel_v2_publication_appendEventTopic),
    ACCESSOR(sdt_tovrel_v2_publication_includeTopicNamespaces),
    ACCESSOR(sdt_tovrel_v2_publication_includeSerialNumberInPayload),
    ACCESSOR(idt_tovrel_v2_publication_topicPrefix),
    ACCESSOR(idt_tovrel_v2_publication_customTopicPrefix),
    ACCESSOR(idt_tovrel_v2_publication_appendEventTopic),
    ACCESSOR(idt_tovrel_v2_publication_includeTopicNamespaces),
    ACCESSOR(idt_tovrel_v2_publication_includeSerialNumberInPayload),

    ACCESSOR(gdt_tovrel_v2_publication_eventFilter_id),
    ACCESSOR(gdt_tovrel_v2_publication_eventFilter_topicFilter),
    ACCESSOR(gdt_tovrel_v2_publication_eventFilter_qos),
    ACCESSOR(gdt_tovrel_v2_publication_eventFilter_retain),
    ACCESSOR(sdt_tovrel_v2_publication_eventFilter_topicFilter),
    ACCESSOR(sdt_tovrel_v2_publication_eventFilter_qos),
    ACCESSOR(sdt_tovrel_v2_publication_eventFilter_retain),
    ACCESSOR(adt_tovrel_v2_publication_eventFilter_topicFilter),
    ACCESSOR(adt_tovrel_v2_publication_eventFilter_qos),
    ACCESSOR(adt_tovrel_v2_publication_eventFilter_retain),
    ACCESSOR(idt_tovrel_v2_publication_eventFilter_id),
    ACCESSOR(idt_tovrel_v2_publication_eventFilter_topicFilter),
    ACCESSOR(idt_tovrel_v2_publication_eventFilter_qos),
    ACCESSOR(idt_tovrel_v2_publication_eventFilter_retain),

    KEY_ACCESSOR(kdt_tovrel_v2_subscription_add_key),
    KEY_ACCESSOR(kdt_tovrel_v2_publication_eventFilter_add_key),
    ACCESSOR(idt_tovrel_v2_subscription),
    ACCESSOR(idt_tovrel_v2_subscription_iterator_next),
    ACCESSOR(idt_tovrel_v2_publication),
    ACCESSOR(idt_tovrel_v2_publication_eventFilter),
    ACCESSOR(idt_tovrel_v2_publication_eventFilter_iterator_next),
};
// clang-format on

TEST(BackendAccessors, AreTheseAndNoOthers)
{
    std::ifstream file(BACKEND_HEADER);
    const std::string header{std::istreambuf_iterator<char>(file), {}};
    std::set<std::string> declared;
    constexpr const char *PREFIXES[] = {"gdt_", "sdt_", "adt_", "idt_", "kdt_"};
    for (const char *prefix : PREFIXES) {
        for (auto at = header.find(prefix); at != std::string::npos;
             at = header.find(prefix, at + 1)) {
            declared.insert(header.substr(at, header.find('(', at) - at));
        }
    }
    std::set<std::string> expected;
    for (const Accessor &accessor : ACCESSORS) {
        expected.insert(accessor.name);
    }
    EXPECT_EQ(expected.size(), 55U);
    EXPECT_EQ(declared, expected);
}

TEST(BackendAccessorsDeathTest, EndTheProcessWithoutAStructure)
{
    for (const Accessor &accessor : ACCESSORS) {
        EXPECT_EXIT(accessor.callWithNull(), testing::KilledBySignal(SIGABRT),
                    "tovrel_v2_backend.*" + accessor.name +
                        ": assertion failed: \\(obj != NULL\\)");
    }
}

TEST(BackendAccessorsDeathTest, EndTheProcessWithoutAKey)
{
    // never read: the key is looked at first
    int place = 0;
    auto *subscriptions = reinterpret_cast<tovrel_v2_subscription_keys *>(&place);
    EXPECT_EXIT(kdt_tovrel_v2_subscription_add_key(subscriptions, nullptr, nullptr),
                testing::KilledBySignal(SIGABRT), "assertion failed: \\(key != NULL\\)");
    auto *filters = reinterpret_cast<tovrel_v2_publication_eventFilter_keys *>(&place);
    EXPECT_EXIT(kdt_tovrel_v2_publication_eventFilter_add_key(filters, nullptr, nullptr),
                testing::KilledBySignal(SIGABRT), "assertion failed: \\(key != NULL\\)");
}

} // namespace
