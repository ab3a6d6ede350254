/** One declaration at the event service, and the sending of its events. */
#pragma once

#include "event/tool/handles.h"
#include "event/tool/send_options.h"

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace norq::tool {

/** Declares in its constructor, withdraws in its destructor. Used from one thread. */
class EventSender {
public:
    /** Declares the event of the options. Throws Failure. */
    explicit EventSender(const SendOptions &options);
    /** Withdraws the declaration; the service has taken every event before it answers. */
    ~EventSender();
    EventSender(const EventSender &) = delete;
    EventSender &operator=(const EventSender &) = delete;

    /** Whether every key has a value, so that the event can be sent. */
    [[nodiscard]] bool isComplete() const;

    /** Changes values of open keys, given as key and text. Throws UsageError, nothing changed. */
    void change(const std::vector<std::pair<std::string, std::string>> &values);

    /** Sends the event with its current values. Throws Failure when it was not taken in time. */
    void send();

private:
    void declare(const SendOptions &options);

    std::vector<Item> items;
    std::chrono::seconds timeout;
    Producer producer;
    int id = -1;
};

} // namespace norq::tool
