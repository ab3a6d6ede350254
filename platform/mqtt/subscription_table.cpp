#include "mqtt/subscription_table.h"

#include "mqtt/topic_rules.h"

#include <algorithm>

namespace norq::mqtt {

bool SubscriptionTable::add(const std::string &filter, bool prefixFlag, int qos)
{
    const std::lock_guard guard(mutex);
    // Those that the broker does not know yet to be gone count, too.
    if (entries.size() + toUnsubscribe.size() >= MAX_SUBSCRIPTIONS && !entries.contains(filter)) {
        return false;
    }
    const bool known = toUnsubscribe.erase(filter) > 0;
    Entry &entry = entries[filter];
    (prefixFlag ? entry.qosWithFlag : entry.qosWithoutFlag) = qos;
    toSubscribe.insert(filter);
    entry.told = entry.told || known;
    return true;
}

bool SubscriptionTable::remove(const std::string &filter, bool prefixFlag)
{
    const std::lock_guard guard(mutex);
    const auto found = entries.find(filter);
    if (found == entries.end()) {
        return false;
    }
    Entry &entry = found->second;
    std::optional<int> &qos = prefixFlag ? entry.qosWithFlag : entry.qosWithoutFlag;
    if (!qos) {
        return false;
    }
    qos.reset();
    if (!entry.qosWithFlag && !entry.qosWithoutFlag) {
        if (entry.told) {
            toUnsubscribe.insert(filter);
        }
        toSubscribe.erase(filter);
        entries.erase(found);
    }
    return true;
}

SubscriptionTable::Match SubscriptionTable::match(std::string_view topic) const
{
    const std::lock_guard guard(mutex);
    Match result;
    for (const auto &[filter, entry] : entries) {
        const bool addsSomething = (entry.qosWithFlag && !result.withFlag) ||
                                   (entry.qosWithoutFlag && !result.withoutFlag);
        if (addsSomething && filterMatches(filter, topic)) {
            result.withFlag = result.withFlag || entry.qosWithFlag;
            result.withoutFlag = result.withoutFlag || entry.qosWithoutFlag;
        }
    }
    return result;
}

void SubscriptionTable::connectionBegan(bool sessionPresent)
{
    const std::lock_guard guard(mutex);
    for (auto &[filter, entry] : entries) {
        toSubscribe.insert(toSubscribe.end(), filter);
        entry.told = sessionPresent && entry.told;
    }
    if (!sessionPresent) {
        toUnsubscribe.clear();
    }
}

std::vector<SubscriptionTable::Change> SubscriptionTable::takeChanges()
{
    const std::lock_guard guard(mutex);
    std::vector<Change> changes;
    for (const std::string &filter : toUnsubscribe) {
        changes.push_back({filter, std::nullopt});
    }
    toUnsubscribe.clear();
    for (const std::string &filter : toSubscribe) {
        Entry &entry = entries.at(filter);
        const int qos = std::max(entry.qosWithFlag.value_or(0), entry.qosWithoutFlag.value_or(0));
        changes.push_back({filter, qos});
        entry.told = true;
    }
    toSubscribe.clear();
    return changes;
}

} // namespace norq::mqtt
