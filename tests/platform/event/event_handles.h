/** Owning types for the library's handles, and short ways to make them. */
#pragma once

#include <norq/event.h>
#include <norq/event_consumer.h>
#include <norq/event_producer.h>

#include <memory>
#include <string>
#include <vector>

namespace event_test {

/** Deleter that calls one C function. */
template <auto Release>
struct ReleaseWith {
    template <typename Handle>
    void operator()(Handle *handle) const noexcept
    {
        Release(handle);
    }
};

using EventPtr = std::unique_ptr<event_t, ReleaseWith<event_free>>;
using ProducerPtr = std::unique_ptr<event_producer_t, ReleaseWith<event_producer_free>>;
using ConsumerPtr = std::unique_ptr<event_consumer_t, ReleaseWith<event_consumer_free>>;
using DeclarationPtr = std::unique_ptr<event_declaration_t, ReleaseWith<event_declaration_free>>;
using ExpressionPtr =
    std::unique_ptr<subscribe_expression_t, ReleaseWith<subscribe_expression_free>>;

/** Catches a GError and releases it. */
class ErrorSlot {
public:
    ErrorSlot() = default;
    ~ErrorSlot() { g_clear_error(&error); }
    ErrorSlot(const ErrorSlot &) = delete;
    ErrorSlot &operator=(const ErrorSlot &) = delete;

    /** For the call; forgets a former error. */
    GError **out()
    {
        g_clear_error(&error);
        return &error;
    }
    /** Code of an error in the library's domain; -1 for none, -2 for another domain. */
    [[nodiscard]] int code() const
    {
        if (error == nullptr) {
            return -1;
        }
        return error->domain == EVENT_ERROR ? error->code : -2;
    }
    [[nodiscard]] std::string text() const { return error == nullptr ? "" : error->message; }

private:
    GError *error = nullptr;
};

inline ProducerPtr newProducer(const char *name = "test producer", int timeout = -1)
{
    return ProducerPtr(event_producer_new(name, nullptr, timeout, 0));
}

inline ConsumerPtr newConsumer(const char *name = "test consumer")
{
    return ConsumerPtr(event_consumer_new(name));
}

/** A declaration with the fixed text key "topic0" = `topic` and the open integer key "number". */
inline DeclarationPtr numberDeclaration(const char *topic = "Number")
{
    DeclarationPtr declaration(event_declaration_new(0, nullptr));
    event_declaration_add_key_value(declaration.get(), "topic0", event_value_string(topic),
                                    nullptr);
    event_declaration_set_name_space(declaration.get(), "topic0", "tnsnorq");
    event_declaration_add_key(declaration.get(), "number", EVENT_VALUE_INT, nullptr);
    return declaration;
}

/** The same, with "number" as the state key. */
inline DeclarationPtr propertyDeclaration(const char *topic = "Number")
{
    DeclarationPtr declaration = numberDeclaration(topic);
    event_declaration_set_property(declaration.get(), "number", 0, nullptr);
    return declaration;
}

/** Prepares, sets "number" and sends; the outcome of the sending. */
inline bool sendNumber(event_producer_t *producer, int id, std::int64_t number,
                       GError **error = nullptr)
{
    const EventPtr event(event_producer_prepare_event(producer, id, 0, error));
    return event && event_set_value(event.get(), "number", event_value_int(number), error) != 0 &&
           event_producer_send_event(producer, event.get(), error) != 0;
}

/** An expression with one condition on a value; without a key: none. */
inline ExpressionPtr whereValue(const char *key = nullptr, const char *value = nullptr)
{
    ExpressionPtr expression(subscribe_expression_new());
    if (key != nullptr) {
        subscribe_expression_add_key_value(expression.get(), key, value);
    }
    return expression;
}

} // namespace event_test
