/** The functions on producers of norq/event_producer.h. */
#include "event/client/api.h"
#include "event/client/declaration_handle.h"
#include "event/client/producer.h"

#include <norq/event_producer.h>

#include <chrono>
#include <memory>
#include <utility>

using namespace norq::event;

/**
 * A producer behind its C type. Not derived from it: its thread must never see an object that is
 * only partly there.
 */
struct event_producer {
    template <typename... Arguments>
    explicit event_producer(Arguments &&...arguments)
        : content(std::forward<Arguments>(arguments)...)
    {
    }

    Producer content;
};

namespace {

constexpr int DEFAULT_TIMEOUT_MS = 2000;

Status checkArguments(const char *name, int timeout, unsigned int flags)
{
    if (*name == '\0') {
        return Status::failure(EVENT_ERROR_INVALID, "the client name is empty");
    }
    if (timeout < -1) {
        return Status::failure(EVENT_ERROR_INVALID, "the time-out is negative");
    }
    if (flags != 0) {
        return Status::failure(EVENT_ERROR_INVALID, "flags must be 0");
    }
    return checkName(name, "client name");
}

} // namespace

event_producer_t *event_producer_new(const char *name, void *user_data, int timeout_ms,
                                     unsigned int flags)
{
    g_return_val_if_fail(name != nullptr, nullptr);
    return withBarrier<event_producer_t *>(
        "Creating an event producer", nullptr, [&]() -> event_producer_t * {
            if (const Status valid = checkArguments(name, timeout_ms, flags); !valid) {
                norq_event_log(LOG_ERROR_LEVEL, "Creating an event producer failed: %s",
                               valid.text().c_str());
                return nullptr;
            }
            const int timeout = timeout_ms < 0 ? DEFAULT_TIMEOUT_MS : timeout_ms;
            return std::make_unique<event_producer>(name, user_data,
                                                    std::chrono::milliseconds(timeout))
                .release();
        });
}

void event_producer_free(event_producer_t *producer)
{
    delete producer;
}

void *event_producer_get_user_data(const event_producer_t *producer)
{
    g_return_val_if_fail(producer != nullptr, nullptr);
    return producer->content.userData();
}

int event_producer_declare(event_producer_t *producer, const event_declaration_t *declaration)
{
    g_return_val_if_fail(producer != nullptr && declaration != nullptr, -1);
    return withBarrier("Declaring events", -1, [&] {
        int id = -1;
        const Status declared = producer->content.declare(
            std::make_shared<const Declaration>(declaration->content), id);
        if (!declared) {
            norq_event_log(LOG_ERROR_LEVEL, "Declaring events failed: %s", declared.text().c_str());
            return -1;
        }
        return id;
    });
}

int event_producer_undeclare(event_producer_t *producer, int declaration_id)
{
    g_return_val_if_fail(producer != nullptr, 0);
    return reported(nullptr, [&] { return producer->content.undeclare(declaration_id); });
}

event_t *event_producer_prepare_event(event_producer_t *producer, int declaration_id,
                                      int64_t utc_time_us, GError **error)
{
    g_return_val_if_fail(producer != nullptr, nullptr);
    std::unique_ptr<event_t> prepared;
    reported(error,
             [&] { return producer->content.prepare(declaration_id, utc_time_us, prepared); });
    return prepared.release();
}

int event_producer_send_event(event_producer_t *producer, const event_t *event, GError **error)
{
    g_return_val_if_fail(producer != nullptr && event != nullptr, 0);
    return reported(error, [&] { return producer->content.send(*event); });
}
