/** What is subscribed, what the broker still has to be told of it, and which messages fit. */
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace norq::mqtt {

/**
 * The subscriptions of a handle by complete filter. The same complete filter may be subscribed
 * with the prefix flag and without; the broker knows it once, with the higher of both QoS.
 * Any thread.
 */
class SubscriptionTable {
public:
    /** What the broker is to be told. */
    struct Change {
        std::string filter;
        /** The QoS to subscribe with; nothing: unsubscribe. */
        std::optional<int> qos;
    };
    /** Which kinds of subscriptions a topic fits. */
    struct Match {
        bool withFlag = false;
        bool withoutFlag = false;
    };

    /** More than anybody needs: it bounds memory. */
    static constexpr std::size_t MAX_SUBSCRIPTIONS = 10'000;

    /** Subscribes, or changes the QoS; false when there are too many. */
    bool add(const std::string &filter, bool prefixFlag, int qos);
    /** False when it is not subscribed. */
    bool remove(const std::string &filter, bool prefixFlag);
    [[nodiscard]] Match match(std::string_view topic) const;

    /**
     * A connection begins: everything is to be subscribed again. Without a session at the broker
     * it has nothing left to be unsubscribed.
     */
    void connectionBegan(bool sessionPresent);
    /** Hands out what the broker is to be told now, unsubscriptions first. */
    std::vector<Change> takeChanges();

private:
    struct Entry {
        std::optional<int> qosWithFlag;
        std::optional<int> qosWithoutFlag;
        bool told = false; // that it is subscribed, whatever its QoS
    };

    mutable std::mutex mutex; // guards all below
    std::map<std::string, Entry, std::less<>> entries;
    std::set<std::string, std::less<>> toSubscribe; // of the entries
    std::set<std::string, std::less<>> toUnsubscribe;
};

} // namespace norq::mqtt
