/**
 * Answers requests to the service's own API: reads one a line, prints the answer of each as a line.
 * Handlers, backend, stores and libraries are the real ones; behind the hub there is nothing, so
 * that nothing is subscribed and nobody ends the process.
 */
#include "api/tovrel_v2_backend.h"
#include "support/served_api.h"
#include "unit/api/fuzz_bridge.h"

#include <cstdlib>
#include <iostream>

using namespace tovrel;

int main()
{
    test::KeepingBridge bridge;
    ServedApi api(
        OwnedApi(tovrel_v2_create_api(static_cast<BaseEventBridge *>(&bridge), nullptr, nullptr)));
    for (std::string request; std::getline(std::cin, request);) {
        std::cout << api.ask(request) << '\n' << std::flush;
    }
    return EXIT_SUCCESS;
}
