/** Feeds bytes to both readers of subscription files and checks what must hold for any content. */
#include "mqtt/subscription_file.h"
#include "support/fuzz.h"

#include <glib.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

using test_support::require;

namespace {

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
