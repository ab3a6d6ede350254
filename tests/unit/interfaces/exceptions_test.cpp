#include "interfaces/exceptions.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

namespace tovrel::test {

namespace {

template <typename Base, typename... Exceptions>
constexpr bool DERIVE_FROM = (std::is_base_of_v<Base, Exceptions> && ...);

static_assert(DERIVE_FROM<std::runtime_error, SdBusException, EventBridgeException,
                          SubscribeConfigException, NoSuchConfigException>);
static_assert(DERIVE_FROM<std::exception, ConfigException>);
static_assert(!DERIVE_FROM<std::runtime_error, ConfigException>);
// None is caught by a handler of another.
static_assert(!DERIVE_FROM<SubscribeConfigException, NoSuchConfigException> &&
              !DERIVE_FROM<NoSuchConfigException, SubscribeConfigException>);
// Throwing and catching by value copies them.
static_assert(std::is_copy_constructible_v<ConfigException>);

TEST(ConfigExceptionTest, TellsItsMessage)
{
    std::string text = "No available IDs";
    const ConfigException error(text);
    text.clear();
    EXPECT_STREQ(error.what(), "No available IDs");
    EXPECT_STREQ(static_cast<const std::exception &>(error).what(), "No available IDs");
}

TEST(ConfigExceptionTest, KeepsItsMessageWhenCopied)
{
    auto original = std::make_unique<ConfigException>("Invalid ID");
    const ConfigException copy = *original;
    original.reset();
    EXPECT_STREQ(copy.what(), "Invalid ID");
}

} // namespace

} // namespace tovrel::test
