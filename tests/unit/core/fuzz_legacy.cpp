/**
 * Calls the methods on the bus as an input says and compares answers and configuration with what
 * the calls ask for.
 *
 * An input is a list of steps, each a letter and what belongs to it; other letters are skipped.
 * Texts end with a zero byte, a number is one byte.
 *   I  replaces the items. Each item: r TEXT FLAGS QOS; R COUNT: the last one so often again.
 *   P  replaces the publication: TEXT TEXT FLAGS. Each filter: f TEXT TEXT QOS; F COUNT as R.
 *   g  lists the items.  e  lists the publication.
 *   T  lets the bridge throw at its next use: KIND TEXT.
 *   N  lets the next call expect no reply.
 *   J  sends a request to the configuration API: TEXT.
 *   W  sends any bytes: METHOD OBJECT, the signature as TEXT, two numbers for the length, the body.
 */
#include "interfaces/exceptions.h"
#include "support/fuzz.h"
#include "unit/core/fuzz_input.h"
#include "unit/core/fuzz_model.h"
#include "unit/core/fuzz_service.h"

#include <functional>
#include <string>
#include <utility>

using test_support::require;

namespace tovrel::test {

namespace {

/** So many steps show what steps do to each other; more would only take time. */
constexpr int MOST_STEPS = 12;

/** Statuses for a configuration that the bridge does not take, of items and of a publication. */
constexpr std::int32_t REFUSED_BY_BRIDGE = -2;
constexpr std::int32_t NOT_APPLIED = -1;

std::function<void()> thrower(unsigned int kind, const std::string &text)
{
    switch (kind % 4) {
    case 0:
        return [text] { throw SubscribeConfigException(text); };
    case 1:
        return [text] { throw EventBridgeException(text); };
    case 2:
        return [text] { throw ConfigException(text); };
    default:
        return [text] { throw SdBusException(text); };
    }
}

class Trial {
public:
    Trial(FuzzedService &fuzzedService, FuzzInput &bytes) : service(fuzzedService), input(bytes)
    {
        service.startAnew();
    }

    void run()
    {
        for (int steps = 0; steps < MOST_STEPS && !input.empty(); ++steps) {
            step(input.byte());
        }
        service.bridge.onNextUse = nullptr;
        checkShown();
    }

private:
    void step(unsigned int letter)
    {
        switch (letter) {
        case 'I':
            return setItems();
        case 'P':
            return setPublication();
        case 'g':
            return get("GetMQTTToEventConfig");
        case 'e':
            return get("GetEventToMQTTConfig");
        case 'T':
            return armBridge();
        case 'N':
            expectsReply = false;
            return;
        case 'W':
            return sendBytes();
        case 'J':
            return sendRequest();
        default:
            return;
        }
    }

    void armBridge()
    {
        const unsigned int kind = input.byte();
        service.bridge.onNextUse = thrower(kind, input.text());
    }

    /** Sends a call; whether the bridge was to throw is in `failing`. */
    CallResult send(WireCall call)
    {
        failing = static_cast<bool>(service.bridge.onNextUse);
        call.expectsReply = std::exchange(expectsReply, true);
        CallResult result = service.call(call);
        service.bridge.onNextUse = nullptr;
        requireBounds(service.bridge.state());
        return result;
    }

    void setItems()
    {
        const std::vector<WireItem> items = readItems(input);
        const ConfigurationState before = service.bridge.state();
        const CallResult result = send(
            {.member = "SetMQTTToEventConfig", .signature = "a(sbib)", .body = itemsBody(items)});
        const ItemsOutcome outcome = expectedOutcome(items);
        const bool refusedByBridge = failing && outcome.applied;
        if (outcome.applied && !failing) {
            require(service.bridge.state().items == outcome.items, "the items are those sent");
            requireSaved();
        } else {
            require(service.bridge.state().items == before.items, "refused items change nothing");
        }
        require(service.bridge.state().settings == before.settings &&
                    service.bridge.state().filters == before.filters,
                "items do not touch the publication");
        require(!result.endsService || refusedByBridge, "no items end the service");
        if (result.reply) {
            const auto status = statusOf(result);
            require(refusedByBridge ? !status || *status == REFUSED_BY_BRIDGE
                                    : status == outcome.status,
                    "the status is the expected one");
        }
    }

    void setPublication()
    {
        const WirePublication publication = readPublication(input);
        const ConfigurationState before = service.bridge.state();
        const CallResult result = send({.member = "SetEventToMQTTConfig",
                                        .signature = "ssbbba(ssi)",
                                        .body = publicationBody(publication)});
        const PublicationOutcome outcome = expectedOutcome(publication);
        require(service.bridge.state().items == before.items,
                "the publication does not touch the items");
        if (outcome.applied && !failing) {
            require(publicationOf(service.bridge) == outcome.publication,
                    "the publication is the one sent");
            requireSaved();
        } else {
            require(service.bridge.state() == before, "a refused publication changes nothing");
        }
        require(result.endsService == outcome.endsService, "only too many filters end the service");
        if (result.reply && !result.endsService) {
            const bool refusedByBridge = failing && outcome.applied;
            require(statusOf(result) == (refusedByBridge ? NOT_APPLIED : outcome.status),
                    "the status is the expected one");
        }
    }

    void get(const char *member)
    {
        const ConfigurationState before = service.bridge.state();
        const CallResult result = send({.member = member});
        require(service.bridge.state() == before, "listing changes nothing");
        require(!result.endsService || failing, "only the bridge ends the service for a list");
    }

    void sendBytes()
    {
        const WireCall call = readRawCall(input);
        send(call);
        checkShown();
    }

    /** A request to the configuration API, which changes the same configuration. */
    void sendRequest()
    {
        const std::string request = input.text();
        const bool hasReply = expectsReply;
        const CallResult result = send({.interface = "com.norq.Mirel.Backend1",
                                        .member = "HandleRequest",
                                        .signature = "s",
                                        .body = textBody(request)});
        require(!result.endsService, "no request ends the service");
        if (hasReply && isReadable(request)) {
            responseOf(result);
        }
        checkShown();
    }

    /** Both lists show what the bridge has, or are errors when the bus does not carry its texts. */
    void checkShown()
    {
        expectsReply = true;
        const auto items = itemsOf(service.bridge);
        const CallResult itemsList = send({.member = "GetMQTTToEventConfig"});
        require(isError(itemsList) != isReadable(items), "items are listed if they can be");
        require(isError(itemsList) || itemsOf(itemsList) == items, "all items are listed");

        const auto publication = publicationOf(service.bridge);
        const CallResult settings = send({.member = "GetEventToMQTTConfig"});
        require(isError(settings) != isReadable(publication), "it is listed if it can be");
        require(isError(settings) || publicationOf(settings) == publication,
                "the whole publication is listed");
    }

    void requireSaved()
    {
        require(savedState() == service.bridge.lastingState(), "what was set outlives a restart");
    }

    FuzzedService &service;
    FuzzInput &input;
    bool expectsReply = true;
    bool failing = false;
};

} // namespace

} // namespace tovrel::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    using namespace tovrel::test;
    prepareFuzzing();
    // Never deleted: the handler leaves its connection open, which lives as long as the process.
    static auto &service = *new FuzzedService;
    FuzzInput input(data, size);
    Trial(service, input).run();
    return 0;
}
