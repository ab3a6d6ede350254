/** What a person is told when there is no answer. */
#include "tovrelctl/bus_failure.h"

#include <gmock/gmock.h>

#include <cerrno>

namespace tovrelctl::test {

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(BusFailure, TellsWhatWentWrongWithTheMessageOfTheBus)
{
    const std::pair<const char *, const char *> cases[] = {
        {"org.freedesktop.DBus.Error.ServiceUnknown", "tovrel is not installed (why)"},
        {"org.freedesktop.DBus.Error.NameHasNoOwner", "tovrel is not running (why)"},
        {"org.freedesktop.DBus.Error.AccessDenied", "this user may not call tovrel (why)"},
        {"org.freedesktop.DBus.Error.NoReply", "tovrel ended before it answered (why)"},
        {"org.freedesktop.DBus.Error.Timeout", "tovrel did not answer in time (why)"},
        {"org.freedesktop.DBus.Error.TimedOut", "tovrel could not be started (why)"},
        {"org.freedesktop.DBus.Error.Spawn.ChildExited", "tovrel could not be started (why)"},
        {"org.freedesktop.systemd1.NoSuchUnit", "tovrel could not be started (why)"},
        {"org.freedesktop.DBus.Error.UnknownMethod",
         "what has tovrel's name on the bus is not tovrel (why)"},
        {"com.example.Other", "tovrel cannot be reached (why)"},
        {"", "tovrel cannot be reached (why)"},
    };
    for (const auto &one : cases) {
        EXPECT_STREQ(explain({.name = one.first, .message = "why"}).what(), one.second);
    }
}

TEST(BusFailure, AlwaysTellsWhatToDo)
{
    EXPECT_THAT(explain({.name = "org.freedesktop.DBus.Error.ServiceUnknown"}).advice(),
                HasSubstr("Install the package tovrel"));
    EXPECT_THAT(explain({.name = "org.freedesktop.DBus.Error.AccessDenied"}).advice(),
                HasSubstr("as root"));
    EXPECT_THAT(explain({.name = "org.freedesktop.DBus.Error.Timeout"}).advice(),
                HasSubstr("--timeout"));
    EXPECT_THAT(explain({.number = EINVAL}).advice(), HasSubstr("systemctl status tovrel"));
}

TEST(BusFailure, OfALostBusIsKnownByItsNumber)
{
    for (const int number : {ECONNRESET, ENOTCONN, EPIPE}) {
        EXPECT_THAT(explain({.name = "System.Error.X", .number = number}).what(),
                    StartsWith("the system bus went away ("));
    }
    EXPECT_STREQ(explain({.number = ECONNRESET}).what(),
                 "the system bus went away (Connection reset by peer)");
}

TEST(BusFailure, SaysWhenNobodyKnowsWhetherAChangeWasMade)
{
    constexpr const char *UNKNOWN = "Whether it was done is not known";
    constexpr const char *NO_REPLY = "org.freedesktop.DBus.Error.NoReply";
    EXPECT_THAT(explain({.name = NO_REPLY, .mightHaveChanged = true}).advice(),
                StartsWith(UNKNOWN));
    EXPECT_THAT(explain({.name = NO_REPLY}).advice(), Not(HasSubstr(UNKNOWN)));
    EXPECT_THAT(
        explain({.name = "org.freedesktop.DBus.Error.AccessDenied", .mightHaveChanged = true})
            .advice(),
        Not(HasSubstr(UNKNOWN)));
}

TEST(BusFailure, OfAMissingBusTellsTheReason)
{
    EXPECT_STREQ(explainNoBus(ENOENT).what(),
                 "the system bus cannot be reached (No such file or directory)");
    EXPECT_THAT(explainNoBus(ENOENT).advice(), HasSubstr("systemctl status dbus"));
    EXPECT_THAT(explainNoBus(EACCES).advice(), HasSubstr("as root"));
}

} // namespace

} // namespace tovrelctl::test
