/**
 * Feeds bytes to both readers of subscription files and checks what must hold for any content.
 *
 * With TOVREL_LIBFUZZER it is a libFuzzer target; otherwise a program that takes the files named
 * on its command line and fails when it is given none.
 */
#include "mqtt/subscription_file.h"

#include <glib.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace {

void require(bool condition, const char *what)
{
    if (!condition) {
        std::fprintf(stderr, "violated: %s\n", what);
        std::abort();
    }
}

void ignoreLog(const gchar * /*domain*/, GLogLevelFlags /*level*/, const gchar * /*message*/,
               gpointer /*userData*/)
{
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    g_log_set_default_handler(ignoreLog, nullptr);
    const std::string text(data, data + size);

    std::istringstream stream(text);
    tovrel::SubscriptionStore::Items items;
    tovrel::readSubscriptions(stream, items);
    require(items.size() <= size / 5 + 1, "a record needs five lines");

    std::istringstream again(tovrel::formatSubscriptions(items));
    tovrel::SubscriptionStore::Items reread;
    tovrel::readSubscriptions(again, reread);
    require(reread == items, "what was read reads back the same");

    std::istringstream legacy(text);
    tovrel::SubscriptionStore store;
    tovrel::readLegacySubscriptions(legacy, store);
    require(store.items.size() <= tovrel::SubscriptionStore::ID_COUNT, "ids bound the items");
    return 0;
}

#ifndef TOVREL_LIBFUZZER
int main(int argc, char **argv)
{
    for (int number = 1; number < argc; ++number) {
        std::ifstream file(argv[number], std::ios::binary);
        require(file.is_open(), argv[number]);
        const std::string content{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(content.data()),
                               content.size());
    }
    return argc > 1 ? EXIT_SUCCESS : EXIT_FAILURE;
}
#endif
