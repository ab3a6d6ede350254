/** What stands behind event_consumer_t. */
#pragma once

#include "event/client/service_link.h"
#include "event/core/event_content.h"
#include "event/core/expression.h"
#include "event/core/frame_buffer.h"
#include "event/core/frames.h"

#include <norq/event_consumer.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace norq::event {

/** A consumer. All of it may be called from any thread, also from callbacks. */
class Consumer final : private LinkUser {
public:
    /** Waits for the service, but not for long. Throws std::system_error. */
    explicit Consumer(const std::string &name);
    /** Not from a callback. */
    ~Consumer() override;

    /** Id of the new subscription; a failure when there are too many or the service refuses. */
    Status subscribe(const Expression &expression, event_callback_t callback, void *userData,
                     int &id);
    /** Returns when the callback does not run any more; false for an unknown id. */
    bool unsubscribe(int id);

private:
    struct Subscription {
        std::shared_ptr<const Expression> expression;
        event_callback_t callback;
        void *userData;
        bool registered = false; // the service at the other end of the socket knows it
    };

    bool onOpened(ServiceCalls &calls, int socket) override;
    bool onReadable(int socket) override;
    void onClosed() override;

    CallResult registerWith(ServiceCalls &calls, int id);
    CallResult registerNow(int id);
    void endAtService(int id);
    bool take(std::string_view frame);
    bool define(std::string_view frame);
    bool deliver(std::string_view frame);
    void deliverTo(int id, const std::shared_ptr<EventContent> &content);
    std::optional<Subscription> enter(int id);
    void leave();

    std::mutex mutex; // guards subscriptions, nextId, running, closing
    std::condition_variable callbackEnded;
    std::map<int, Subscription> subscriptions;
    int nextId = 0;
    std::optional<int> running; // the subscription whose callback is under way
    bool closing = false;

    // what belongs to the link's thread
    FrameBuffer received{MAX_SERVICE_FRAME};
    std::vector<SharedDeclaration> slots;

    ServiceLink link; // the last member: its thread ends before the others go
};

} // namespace norq::event
