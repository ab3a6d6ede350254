#include "mqtt/client_id.h"

#include "settings/device_identity.h"

#include <glib.h>

#include <cerrno>

#include <mutex>
#include <set>

namespace norq::mqtt {
namespace {

struct UsedIds {
    std::mutex mutex; // guards ids
    std::set<std::string> ids;
};

/** Never destroyed: handles may be deleted while the process ends. */
UsedIds &usedIds()
{
    static auto *const used = new UsedIds;
    return *used;
}

} // namespace

std::string deriveClientId()
{
    const char *program = g_get_prgname();
    std::string name = program != nullptr ? program : program_invocation_short_name;
    for (char &c : name) {
        c = g_ascii_isgraph(c) ? c : '-';
    }
    return "norq-" + serialNumber() + "-" + name;
}

ClientIdLease::~ClientIdLease()
{
    UsedIds &used = usedIds();
    const std::lock_guard guard(used.mutex);
    used.ids.erase(id);
}

void ClientIdLease::take(const std::string &wish)
{
    UsedIds &used = usedIds();
    const std::lock_guard guard(used.mutex);
    std::string candidate = wish;
    for (int number = 2; !used.ids.insert(candidate).second; ++number) {
        candidate = wish + "-" + std::to_string(number);
    }
    id = candidate;
}

} // namespace norq::mqtt
