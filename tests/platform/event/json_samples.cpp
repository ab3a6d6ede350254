/**
 * Prints the rendering of every sample event, one a line, for the check against the schema.
 * Each sample is printed with default options and with every option set.
 */
#include "json_events.h"

#include <cstdio>
#include <exception>

namespace {

bool print(const std::string &text)
{
    return !text.empty() && std::printf("%s\n", text.c_str()) > 0;
}

int printSamples()
{
    const json_test::Options options(json_options_new());
    json_options_set_onvif_namespace(options.get(), "onvif");
    json_options_set_norq_namespace(options.get(), "norq");
    json_options_set_serialnumber(options.get(), "0123456789AB");
    for (const json_test::Sample &sample : json_test::samples()) {
        const json_test::Event event = sample.event.build();
        if (!print(json_test::render(event)) || !print(json_test::render(event, options.get()))) {
            std::fprintf(stderr, "cannot render '%s'\n", sample.name.c_str());
            return 1;
        }
    }
    return 0;
}

} // namespace

int main()
{
    try {
        return printSamples();
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
