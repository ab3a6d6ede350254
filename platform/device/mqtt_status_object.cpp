#include "device/mqtt_status_object.h"

#include "device/declaration_list.h"
#include "device/status_topic.h"
#include "event/core/barrier.h"
#include "event/core/bus_names.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace norq::device {

namespace {

constexpr const char *PATH = "/com/norq/MQTTMessagingService1";

/** A client of this service may not have to wait for one that hangs. */
constexpr std::uint64_t LONGEST_QUESTION_US = 500'000;
constexpr std::size_t MOST_WAITING = 256;

const char *textOf(bool value)
{
    return value ? "true" : "false";
}

/** Only the declarations of the status: a device may have thousands of others. */
int appendStatusConditions(sd_bus_message *question)
{
    int result = sd_bus_message_open_container(question, 'a', "(ss)");
    for (const TopicLevel &level : STATUS_TOPIC) {
        if (result >= 0) {
            result = sd_bus_message_append(question, "(ss)", level.key, level.value);
        }
    }
    if (result >= 0) {
        result = sd_bus_message_close_container(question);
    }
    return result < 0 ? result : sd_bus_message_append(question, "a(ss)as", 0, 0);
}

/** The pairs of a reply; the first failure of the bus library is kept. */
class StatusReply {
public:
    explicit StatusReply(sd_bus_message *call)
    {
        keep(sd_bus_message_new_method_return(call, event::Out(reply)));
        keep(sd_bus_message_open_container(reply.get(), 'a', "{ss}"));
    }

    void add(const char *key, const std::string &value)
    {
        keep(sd_bus_message_append(reply.get(), "{ss}", key, value.c_str()));
    }

    int send()
    {
        keep(sd_bus_message_close_container(reply.get()));
        if (failure >= 0) {
            keep(sd_bus_send(nullptr, reply.get(), nullptr));
        }
        return failure;
    }

private:
    void keep(int result)
    {
        if (failure >= 0 && result < 0) {
            failure = result;
        }
    }

    event::BusMessage reply;
    int failure = 0;
};

} // namespace

const sd_bus_vtable MqttStatusObject::METHODS[] = { // NOLINT(modernize-avoid-c-arrays): above
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES("GetDefaultStatus", "", , "a{ss}", SD_BUS_PARAM(status),
                             onGetDefaultStatus, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

int MqttStatusObject::attach(sd_bus *connection)
{
    bus = connection;
    return sd_bus_add_object_vtable(bus, event::Out(slot), PATH, BUS_NAME, METHODS, this);
}

int MqttStatusObject::onGetDefaultStatus(sd_bus_message *call, void *self, sd_bus_error * /*error*/)
{
    return event::withBarrier("Telling the MQTT client's status", -ENOMEM, [&] {
        const int result = static_cast<MqttStatusObject *>(self)->getDefaultStatus(call);
        return result < 0 ? result : 1;
    });
}

int MqttStatusObject::getDefaultStatus(sd_bus_message *call)
{
    if (waiting.size() >= MOST_WAITING) {
        return -EBUSY;
    }
    const auto announced = status.last();
    if (!announced) {
        return answer(call, std::nullopt);
    }
    if (!question) {
        numberInQuestion = announced->number;
        if (askWhatIsHeld() < 0) {
            return answer(call, std::nullopt);
        }
    }
    waiting.emplace_back(sd_bus_message_ref(call));
    return 0;
}

int MqttStatusObject::askWhatIsHeld()
{
    event::BusMessage message;
    int result =
        sd_bus_message_new_method_call(bus, event::Out(message), event::BUS_NAME, event::BUS_PATH,
                                       event::BUS_INTERFACE, "ListMatching");
    if (result >= 0) {
        result = appendStatusConditions(message.get());
    }
    if (result >= 0) {
        result = sd_bus_message_set_auto_start(message.get(), 0);
    }
    if (result >= 0) {
        result = sd_bus_call_async(bus, event::Out(question), message.get(), onDeclarations, this,
                                   LONGEST_QUESTION_US);
    }
    return result;
}

int MqttStatusObject::onDeclarations(sd_bus_message *answer, void *self, sd_bus_error * /*error*/)
{
    return event::withBarrier("Telling the MQTT client's status", -ENOMEM, [&] {
        static_cast<MqttStatusObject *>(self)->answerAll(answer);
        return 0;
    });
}

void MqttStatusObject::answerAll(sd_bus_message *declarations)
{
    question.reset();
    const char *list = nullptr;
    const bool isAnswered = sd_bus_message_is_method_error(declarations, nullptr) == 0 &&
                            sd_bus_message_read(declarations, "s", &list) > 0;
    const bool isHeld = isAnswered && holdsClientStatus(list);
    if (isAnswered && !isHeld) {
        status.forget(numberInQuestion);
    }
    const auto announced = status.last();
    const bool isKnown = announced && (isHeld || announced->number != numberInQuestion);
    for (const event::BusMessage &call : std::exchange(waiting, {})) {
        const int result =
            answer(call.get(), isKnown ? std::optional(announced->status) : std::nullopt);
        if (result < 0) {
            sd_bus_reply_method_errno(call.get(), result, nullptr);
        }
    }
}

int MqttStatusObject::answer(sd_bus_message *call, const std::optional<ClientStatus> &known)
{
    const MqttSettings &settings = facts.current().mqtt;
    StatusReply reply(call);
    reply.add("deviceTopicPrefix", settings.deviceTopicPrefix);
    reply.add("active", known ? textOf(known->active) : "unknown");
    reply.add("connected", known ? textOf(known->connected) : "unknown");
    reply.add("enabled", textOf(settings.active));
    reply.add("host", settings.host);
    reply.add("port", std::to_string(settings.port));
    reply.add("keepalive", std::to_string(settings.keepalive));
    reply.add("clientId", settings.clientId);
    reply.add("user", settings.user);
    reply.add("cleanSession", textOf(settings.cleanSession));
    reply.add("tls", textOf(settings.tls.enabled));
    reply.add("settingsFile", mqttSettingsFile());
    return reply.send();
}

} // namespace norq::device
