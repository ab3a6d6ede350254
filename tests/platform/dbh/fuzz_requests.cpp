/** Sends any text as a request to the greenhouse API; the form of each answer is checked. */
#include "greenhouse.h"
#include "support/fuzz.h"
#include "support/served_api.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    greenhouse::Model model;
    ServedApi api(greenhouse::descriptor(), &model);
    // One request a line, so that one input can add what the next one changes.
    std::string_view rest(reinterpret_cast<const char *>(data), size);
    while (!rest.empty()) {
        const auto end = rest.find('\n');
        api.ask(std::string(rest.substr(0, end)));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    test_support::require(model.houses.size() <= greenhouse::MOST_ITEMS, "houses are bounded");
    return 0;
}
