/** Sends texts as requests, one a line, to the service's API with the real handlers behind it. */
#include "api/tovrel_v2_backend.h"
#include "support/fuzz.h"
#include "support/served_api.h"
#include "unit/api/fuzz_bridge.h"
#include "unit/api/fuzz_document.h"

#include <string>
#include <string_view>

using test_support::require;

namespace tovrel::test {

namespace {

constexpr const char *EXPORT =
    R"({"api":"tovrel","version":2,"operation":"get","options":{"omitReadOnly":true}})";

OwnedApi apiOf(KeepingBridge &bridge)
{
    return OwnedApi(
        tovrel_v2_create_api(static_cast<BaseEventBridge *>(&bridge), nullptr, nullptr));
}

/** A text member of a request; empty when there is none. */
std::string memberOf(const std::string &request, const char *member)
{
    const OwnedJson json(json_loads(request.c_str(), 0, nullptr));
    const char *const value = json_string_value(json_object_get(json.get(), member));
    return value == nullptr ? "" : value;
}

void checkRefused(const std::string &operation, const KeepingBridge &bridge,
                  const ConfigurationState &before)
{
    if (bridge.resets > 0) {
        require(operation == "import", "nothing but an import resets");
        require(bridge.state() == KeepingBridge().state(),
                "a replacing import that fails behind the reset leaves the defaults");
        return;
    }
    if (operation == "remove") {
        // A filter whose id is no number goes before its id is found to be none.
        ConfigurationState after = bridge.state();
        require(after.items == before.items && after.settings == before.settings,
                "a refused removal touches nothing but filters");
        require(after.filters.size() + 1 >= before.filters.size(), "and at most one of them");
        return;
    }
    require(bridge.state() == before, "what is refused changes nothing");
}

void tryRequest(ServedApi &api, KeepingBridge &bridge, const std::string &request)
{
    const ConfigurationState before = bridge.state();
    bridge.resets = 0;
    const std::string answer = api.ask(request);
    const std::string operation = memberOf(request, "operation");
    requireBounds(bridge.state());
    if (answer.starts_with(R"({"error")")) {
        checkRefused(operation, bridge, before);
    } else if (operation == "get" || operation == "listKeys") {
        require(bridge.state() == before, "reading changes nothing");
    } else if (operation == "set" || operation == "import") {
        require(answer == R"({"data":null})", "a change has nothing to say");
    }
}

void checkExport(ServedApi &api)
{
    const OwnedJson document = dataOf(api.ask(EXPORT));
    KeepingBridge other;
    ServedApi otherApi(apiOf(other));
    require(otherApi.ask(R"({"api":"tovrel","version":2,"operation":"import","data":)" +
                         textOf(document) + "}") == R"({"data":null})",
            "what was exported can be imported");
    requireEqual(dataOf(otherApi.ask(EXPORT)), document, "and is exported again the same");
}

} // namespace

} // namespace tovrel::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    using namespace tovrel::test;
    prepareFuzzing();
    KeepingBridge bridge;
    ServedApi api(apiOf(bridge));
    std::string_view rest(reinterpret_cast<const char *>(data), size);
    while (!rest.empty()) {
        const auto end = rest.find('\n');
        tryRequest(api, bridge, std::string(rest.substr(0, end)));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    checkExport(api);
    return 0;
}
