#include "roads.h"

#include <norq/event_producer.h>

#include <mosquitto.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

namespace end_to_end {
namespace {

constexpr std::string_view NUMBER_MARK = "\"number\":";
constexpr std::size_t NUMBER_WIDTH = 10;
constexpr std::size_t TEXT_SIZE = 120; // the payload has about 300 bytes then
constexpr int KEEPALIVE_SECONDS = 60;

constexpr std::array<const char *, 3> LEVELS{"Qos0", "Qos1", "Qos2"};
constexpr std::array<const char *, 3> TOPIC_FILTERS{
    "benchmark/Device/Load/Qos0/#", "benchmark/Device/Load/Qos1/#", "benchmark/Device/Load/Qos2/#"};
constexpr std::array<const char *, 3> EVENT_FILTERS{"onvif:Device/norq:Load/norq:Qos0",
                                                    "onvif:Device/norq:Load/norq:Qos1",
                                                    "onvif:Device/norq:Load/norq:Qos2"};

void require(bool condition, const char *what)
{
    if (!condition) {
        throw std::runtime_error(what);
    }
}

template <typename Type, void (*RELEASE)(Type *)>
struct ReleaseWith {
    void operator()(Type *object) const { RELEASE(object); }
};
template <typename Type, void (*RELEASE)(Type *)>
using Handle = std::unique_ptr<Type, ReleaseWith<Type, RELEASE>>;

using Event = Handle<event_t, event_free>;
using Declaration = Handle<event_declaration_t, event_declaration_free>;
using Mosquitto = Handle<mosquitto, mosquitto_destroy>;

class EventSender final : public Sender {
public:
    explicit EventSender(int qos)
        : producer(event_producer_new("end to end benchmark", nullptr, -1, 0))
    {
        require(producer != nullptr, "no event producer");
        const Declaration declaration(event_declaration_new(0, nullptr));
        addLevel(declaration.get(), "topic0", "Device", "tns1");
        addLevel(declaration.get(), "topic1", "Load", "tnsnorq");
        addLevel(declaration.get(), "topic2", LEVELS.at(static_cast<std::size_t>(qos)), "tnsnorq");
        event_declaration_add_key_value(declaration.get(), "index", event_value_int(1), nullptr);
        event_declaration_add_key_tag(declaration.get(), "index", "onvif-source");
        event_declaration_add_key(declaration.get(), "number", EVENT_VALUE_INT, nullptr);
        event_declaration_add_key(declaration.get(), "state", EVENT_VALUE_BOOLEAN, nullptr);
        event_declaration_add_key(declaration.get(), "text", EVENT_VALUE_STRING, nullptr);
        id = event_producer_declare(producer.get(), declaration.get());
        require(id >= 0, "the declaration was refused");
    }

    void send(std::uint64_t number) override
    {
        const Event event(event_producer_prepare_event(producer.get(), id, 0, nullptr));
        event_set_value(event.get(), "number", event_value_int(static_cast<std::int64_t>(number)),
                        nullptr);
        event_set_value(event.get(), "state", event_value_boolean(1), nullptr);
        event_set_value(event.get(), "text", event_value_string(text.c_str()), nullptr);
        require(event_producer_send_event(producer.get(), event.get(), nullptr) != 0,
                "an event cannot be sent");
    }

private:
    static void addLevel(event_declaration_t *declaration, const char *key, const char *value,
                         const char *nameSpace)
    {
        event_declaration_add_key_value(declaration, key, event_value_string(value), nullptr);
        event_declaration_set_name_space(declaration, key, nameSpace);
    }

    const std::string text = std::string(TEXT_SIZE, 'x');
    Handle<event_producer_t, event_producer_free> producer;
    int id = -1;
};

/** A client that is not yet connected. */
Mosquitto newClient(void *userData)
{
    mosquitto_lib_init();
    Mosquitto client(mosquitto_new(nullptr, true, userData));
    require(client != nullptr, "no libmosquitto client");
    mosquitto_int_option(client.get(), MOSQ_OPT_TCP_NODELAY, 1);
    return client;
}

class DirectSender final : public Sender {
public:
    DirectSender(int port, int publishQos, const Sample &sample)
        : client(newClient(nullptr)),
          topic(sample.topic.data()),
          payload(sample.payload.data()),
          numberAt(payload.find(NUMBER_MARK) + NUMBER_MARK.size()),
          qos(publishQos)
    {
        require(numberAt + NUMBER_WIDTH <= payload.size(), "the sample has no number");
        require(mosquitto_connect(client.get(), "127.0.0.1", port, KEEPALIVE_SECONDS) == 0 &&
                    mosquitto_loop_start(client.get()) == 0,
                "libmosquitto cannot connect");
    }
    ~DirectSender() override
    {
        mosquitto_disconnect(client.get());
        mosquitto_loop_stop(client.get(), false);
    }
    DirectSender(const DirectSender &) = delete;
    DirectSender &operator=(const DirectSender &) = delete;

    void send(std::uint64_t number) override
    {
        std::to_chars(payload.data() + numberAt, payload.data() + numberAt + NUMBER_WIDTH, number);
        require(mosquitto_publish(client.get(), nullptr, topic.c_str(),
                                  static_cast<int>(payload.size()), payload.data(), qos,
                                  false) == 0,
                "libmosquitto does not publish");
    }

private:
    Mosquitto client;
    const std::string topic;
    std::string payload;
    const std::size_t numberAt;
    const int qos;
};

void takeSample(Sample &sample, const mosquitto_message &message)
{
    std::strncpy(sample.topic.data(), message.topic, sample.topic.size() - 1);
    const auto length =
        std::min(sample.payload.size() - 1, static_cast<std::size_t>(message.payloadlen));
    std::memcpy(sample.payload.data(), message.payload, length);
}

/** The number in a payload; 0 when there is none. */
std::uint64_t numberIn(std::string_view payload)
{
    const std::size_t mark = payload.find(NUMBER_MARK);
    std::uint64_t number = 0;
    if (mark != std::string_view::npos) {
        const char *const begin = payload.data() + mark + NUMBER_MARK.size();
        std::from_chars(begin, payload.data() + payload.size(), number);
    }
    return number;
}

void arrived(mosquitto * /*client*/, void *state, const mosquitto_message *message)
{
    SharedState &shared = *static_cast<SharedState *>(state);
    const std::int64_t time = now();
    const std::uint64_t count = shared.received.load(std::memory_order_relaxed);
    if (count == 0) {
        takeSample(shared.sample, *message);
    }
    const std::uint64_t number = numberIn({static_cast<const char *>(message->payload),
                                           static_cast<std::size_t>(message->payloadlen)});
    if (number != FIRST_NUMBER + count) {
        shared.gaps.fetch_add(1, std::memory_order_relaxed);
    } else if (count < SharedState::MAX_TIMED) {
        shared.latency[count] = time - shared.sentAt[count];
    }
    shared.lastArrival.store(time, std::memory_order_relaxed);
    shared.received.store(count + 1, std::memory_order_release);
    if ((count + 1) % MESSAGES_PER_CREDIT == 0) {
        sem_post(&shared.credits);
    }
}

} // namespace

std::unique_ptr<Sender> makeEventSender(int qos)
{
    return std::make_unique<EventSender>(qos);
}

std::unique_ptr<Sender> makeDirectSender(int port, int qos, const Sample &sample)
{
    return std::make_unique<DirectSender>(port, qos, sample);
}

const char *topicFilter(int qos)
{
    return TOPIC_FILTERS.at(static_cast<std::size_t>(qos));
}

const char *eventFilter(int qos)
{
    return EVENT_FILTERS.at(static_cast<std::size_t>(qos));
}

void subscribe(int port, int qos, SharedState &shared)
{
    const Mosquitto client = newClient(&shared);
    mosquitto_subscribe_callback_set(client.get(),
                                     [](mosquitto *, void *state, int, int, const int *) {
                                         static_cast<SharedState *>(state)->subscribed = true;
                                     });
    mosquitto_message_callback_set(client.get(), arrived);
    require(mosquitto_connect(client.get(), "127.0.0.1", port, KEEPALIVE_SECONDS) == 0 &&
                mosquitto_subscribe(client.get(), nullptr, topicFilter(qos), qos) == 0,
            "the subscriber cannot connect");
    while (mosquitto_loop(client.get(), -1, 1) == MOSQ_ERR_SUCCESS) {
    }
    throw std::runtime_error("the subscriber lost the broker");
}

} // namespace end_to_end
