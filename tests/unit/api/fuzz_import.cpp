/**
 * Sends texts as import documents to the service's API, with the real handlers behind it.
 *
 * Each line is one document. Words before it, each with a blank behind, change the import:
 * "replace" resets the configuration first, "unsaved" lets the items' file fail to be written.
 */
#include "api/tovrel_v2_backend.h"
#include "fakes/call_record.h"
#include "fakes/fake_confutils.h"
#include "support/fuzz.h"
#include "support/served_api.h"
#include "unit/api/fuzz_bridge.h"
#include "unit/api/fuzz_document.h"

#include <array>
#include <memory>
#include <string>
#include <string_view>

using test_support::require;

namespace tovrel::test {

namespace {

/** The service's API in front of a configuration of its own. */
struct Service {
    KeepingBridge bridge;
    ServedApi api{
        OwnedApi(tovrel_v2_create_api(static_cast<BaseEventBridge *>(&bridge), nullptr, nullptr))};

    std::string importDocument(std::string_view document, bool replace)
    {
        return api.ask(R"({"api":"tovrel","version":2,"operation":"import","data":)" +
                       std::string(document) + R"(,"options":{"importType":")" +
                       (replace ? "replace" : "merge") + "\"}}");
    }

    /** The whole document, in the form that can be imported. */
    OwnedJson exported()
    {
        return dataOf(api.ask(R"({"api":"tovrel","version":2,"operation":"get",)"
                              R"("options":{"omitReadOnly":true}})"));
    }
};

/** An import while no file can be written. */
std::string unsavedImport(Service &service, std::string_view document, bool replace)
{
    setRecording(true);
    failCall("confutils_set_file_contents_with_sync_mode");
    std::string answer = service.importDocument(document, replace);
    resetCalls();
    setRecording(false);
    return answer;
}

bool take(std::string_view &line, std::string_view word)
{
    if (!line.starts_with(word)) {
        return false;
    }
    line.remove_prefix(word.size());
    return true;
}

/** Errors that no document gives rise to do not appear, and internal ones are the import's own. */
void requireKnownError(const std::string &answer)
{
    // Invalid JSON, malformed data, too many items, and the internal ones.
    static constexpr std::array<const char *, 5> KNOWN{
        R"({"error":{"code":1,)", R"({"error":{"code":5,)",
        R"({"error":{"code":7,"message":"Too many )",
        R"({"error":{"code":0,"message":"Could not perform import"}})",
        R"({"error":{"code":0,"message":"Cannot )"};
    for (const char *const beginning : KNOWN) {
        if (answer.starts_with(beginning)) {
            return;
        }
    }
    require(false, answer.c_str());
}

void checkRefused(const KeepingBridge &bridge, const ConfigurationState &before, bool replace)
{
    if (bridge.resets == 0) {
        require(bridge.state() == before, "an import that is refused changes nothing");
        return;
    }
    require(replace, "only a replacing import resets");
    require(bridge.state() == KeepingBridge().state(),
            "a replacing import that fails behind the reset leaves the defaults");
}

void checkTakenOver(Service &service, const OwnedJson &expected)
{
    const OwnedJson document = service.exported();
    requireEqual(document, expected, "the configuration is what was imported");
    require(savedState() == service.bridge.lastingState(), "what was imported outlives a restart");

    const auto files = fakeConfutils().files;
    Service other;
    require(other.importDocument(textOf(document), true) == R"({"data":null})",
            "what was exported can be imported");
    requireEqual(other.exported(), document, "and is exported again the same");
    const auto same = [](const auto &one, const auto &two) {
        return one.first == two.first && one.second.contents == two.second.contents;
    };
    require(std::equal(files.begin(), files.end(), fakeConfutils().files.begin(),
                       fakeConfutils().files.end(), same),
            "and saved the same");
}

void tryLine(Service &service, std::string_view line)
{
    line = line.substr(0, line.find('\0')); // where a request, which is a C text, would end
    const bool unsaved = take(line, "unsaved ");
    const bool replace = take(line, "replace ");
    const ConfigurationState before = service.bridge.state();
    const OwnedJson documentBefore = replace ? Service().exported() : service.exported();

    service.bridge.resets = 0;
    const std::string answer =
        unsaved ? unsavedImport(service, line, replace) : service.importDocument(line, replace);

    requireBounds(service.bridge.state());
    if (answer != R"({"data":null})") {
        requireKnownError(answer);
        checkRefused(service.bridge, before, replace);
        return;
    }
    require(!unsaved, "an import that cannot be saved is refused");
    checkTakenOver(service, imported(documentBefore, line));
}

} // namespace

} // namespace tovrel::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    tovrel::test::prepareFuzzing();
    tovrel::test::Service service;
    std::string_view rest(reinterpret_cast<const char *>(data), size);
    while (!rest.empty()) {
        const auto end = rest.find('\n');
        tovrel::test::tryLine(service, rest.substr(0, end));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    return 0;
}
