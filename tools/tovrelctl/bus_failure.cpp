#include "tovrelctl/bus_failure.h"

#include <glib.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace tovrelctl {

namespace {

struct Explanation {
    /** The D-Bus error, or with a "." at its end all that begin so. */
    std::string_view name;
    const char *message;
    const char *advice;
    /** Whether tovrel may have had the call. */
    bool wasSent = false;
};

constexpr const char *LOOK_AT_SERVICE = "See: systemctl status tovrel; journalctl -u tovrel";
constexpr const char *LOOK_AT_BUS = "See: systemctl status dbus";
constexpr const char *ASK_AS_ROOT =
    "Try it as root (sudo), or see the system bus's policy com.norq.Tovrel1.conf.";

constexpr Explanation NOT_STARTED{{}, "tovrel could not be started", LOOK_AT_SERVICE};
constexpr Explanation BUS_LOST{{}, "the system bus went away", LOOK_AT_BUS, true};
constexpr Explanation UNKNOWN{{}, "tovrel cannot be reached", LOOK_AT_SERVICE};

constexpr std::array EXPLANATIONS{
    Explanation{SD_BUS_ERROR_SERVICE_UNKNOWN, "tovrel is not installed",
                "Install the package tovrel. If it was installed just now: systemctl reload dbus"},
    Explanation{SD_BUS_ERROR_NAME_HAS_NO_OWNER, "tovrel is not running",
                "Start it: systemctl start tovrel"},
    Explanation{SD_BUS_ERROR_ACCESS_DENIED, "this user may not call tovrel", ASK_AS_ROOT},
    Explanation{SD_BUS_ERROR_AUTH_FAILED, "the system bus does not let this user in", ASK_AS_ROOT},
    Explanation{SD_BUS_ERROR_NO_REPLY, "tovrel ended before it answered", LOOK_AT_SERVICE, true},
    Explanation{SD_BUS_ERROR_TIMEOUT, "tovrel did not answer in time",
                "Wait longer with --timeout SECONDS. See: systemctl status tovrel; "
                "journalctl -u tovrel",
                true},
    Explanation{"org.freedesktop.DBus.Error.TimedOut", NOT_STARTED.message, NOT_STARTED.advice},
    Explanation{"org.freedesktop.DBus.Error.Spawn.", NOT_STARTED.message, NOT_STARTED.advice},
    Explanation{"org.freedesktop.systemd1.", NOT_STARTED.message, NOT_STARTED.advice},
    Explanation{SD_BUS_ERROR_DISCONNECTED, BUS_LOST.message, BUS_LOST.advice, true},
    Explanation{SD_BUS_ERROR_LIMITS_EXCEEDED, "the system bus is at a limit",
                "Try again later. See: journalctl -u dbus"},
    Explanation{SD_BUS_ERROR_UNKNOWN_METHOD, "what has tovrel's name on the bus is not tovrel",
                LOOK_AT_SERVICE},
    Explanation{SD_BUS_ERROR_UNKNOWN_OBJECT, "what has tovrel's name on the bus is not tovrel",
                LOOK_AT_SERVICE},
    Explanation{SD_BUS_ERROR_UNKNOWN_INTERFACE, "what has tovrel's name on the bus is not tovrel",
                LOOK_AT_SERVICE},
};

constexpr std::array NUMBERS_OF_A_LOST_BUS{ECONNRESET, ENOTCONN, EPIPE, ESHUTDOWN};

const Explanation &explanationOf(const BusFailure &failure)
{
    const auto *const found = std::ranges::find_if(EXPLANATIONS, [&](const Explanation &known) {
        return known.name.ends_with('.') ? failure.name.starts_with(known.name)
                                         : failure.name == known.name;
    });
    if (found != EXPLANATIONS.end()) {
        return *found;
    }
    return std::ranges::count(NUMBERS_OF_A_LOST_BUS, failure.number) > 0 ? BUS_LOST : UNKNOWN;
}

} // namespace

Unreachable explain(const BusFailure &failure)
{
    const Explanation &known = explanationOf(failure);
    const std::string_view detail =
        failure.message.empty() ? std::string_view(g_strerror(failure.number)) : failure.message;
    std::string advice = known.advice;
    if (failure.mightHaveChanged && known.wasSent) {
        advice = "Whether it was done is not known: tovrelctl show\n" + advice;
    }
    return {known.message + (" (" + std::string(detail)) + ")", advice};
}

Unreachable explainNoBus(int number)
{
    const bool isForbidden = number == EACCES || number == EPERM;
    return {std::string("the system bus cannot be reached (") + g_strerror(number) + ")",
            isForbidden ? ASK_AS_ROOT : LOOK_AT_BUS};
}

} // namespace tovrelctl
