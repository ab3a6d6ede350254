#include "fakes/fake_event_consumer.h"

#include "fakes/call_record.h"
#include "fakes/fake_event_consumer_state.h"

#include <algorithm>
#include <cstring>
#include <utility>

using namespace tovrel::test;

struct event_consumer {};

struct subscribe_expression {
    struct Condition {
        std::string key = {};
        std::optional<std::string> value = std::nullopt;
        std::string nameSpace = {};
        bool absent = false;
    };

    Condition *find(const std::string &key)
    {
        const auto found =
            std::find_if(conditions.begin(), conditions.end(),
                         [&](const auto &condition) { return condition.key == key; });
        return found == conditions.end() ? nullptr : &*found;
    }
    Condition &obtain(const std::string &key)
    {
        Condition *const found = find(key);
        return found != nullptr ? *found : conditions.emplace_back(Condition{.key = key});
    }
    std::string text() const
    {
        std::string text;
        for (const auto &condition : conditions) {
            text += text.empty() ? "" : " ";
            if (condition.absent) {
                text += "!" + condition.key;
                continue;
            }
            text += condition.key + "=" +
                    (condition.nameSpace.empty() ? "" : condition.nameSpace + ":") +
                    condition.value.value_or("*");
        }
        return text;
    }

    std::vector<Condition> conditions;
};

namespace {

FakeConsumerState &state()
{
    return fakeConsumerState();
}

void runHook()
{
    std::function<void()> hook;
    {
        const std::lock_guard lock(state().mutex);
        hook = state().hook;
    }
    if (hook) {
        hook();
    }
}

/** Waits for the callbacks of a subscription, except for one that the caller is in itself. */
void waitForCallbacks(std::unique_lock<std::mutex> &lock, int subscriptionId)
{
    if (!state().waits) {
        return;
    }
    state().ended.wait(lock, [subscriptionId] {
        const auto [first, last] = state().underWay.equal_range(subscriptionId);
        return std::all_of(first, last, [](const auto &callback) {
            return callback.second == std::this_thread::get_id();
        });
    });
}

std::vector<FakeReceivedEvent> keptValuesFor(const FakeSubscription &subscription)
{
    decltype(state().keptValues) values;
    {
        const std::lock_guard lock(state().mutex);
        values = state().keptValues;
    }
    return values ? values(subscription) : std::vector<FakeReceivedEvent>();
}

} // namespace

namespace tovrel::test {

FakeConsumerState &fakeConsumerState()
{
    static FakeConsumerState instance;
    return instance;
}

bool beginCall(const char *function, std::initializer_list<const char *> arguments)
{
    if (!isRecording()) {
        return true;
    }
    std::string call = function;
    for (const char *argument : arguments) {
        call += std::string(" ") + argument;
    }
    recordCall(call);
    return !shallFail(function);
}

bool beginCall(const char *function, unsigned int argument)
{
    return !isRecording() || beginCall(function, {std::to_string(argument).c_str()});
}

void resetFakeEventConsumer()
{
    state().livingEvents = 0;
    state().livingJsonOptions = 0;
    state().livingExpressions = 0;
    const std::lock_guard lock(state().mutex);
    state().livingConsumers = 0;
    state().nextId = 0;
    state().subscribeCount = 0;
    state().waits = true;
    state().subscriptions.clear();
    state().keptValues = nullptr;
    state().hook = nullptr;
}

std::vector<FakeSubscription> fakeSubscriptions()
{
    const std::lock_guard lock(state().mutex);
    std::vector<FakeSubscription> living;
    for (const auto &[id, entry] : state().subscriptions) {
        living.push_back(entry.subscription);
    }
    return living;
}

int fakeSubscribeCount()
{
    const std::lock_guard lock(state().mutex);
    return state().subscribeCount;
}

FakeLivingObjects fakeLivingObjects()
{
    const std::lock_guard lock(state().mutex);
    return {state().livingConsumers, state().livingExpressions, state().livingEvents,
            state().livingJsonOptions};
}

bool deliverFakeEvent(int subscriptionId, const FakeReceivedEvent &event)
{
    FakeSubscription subscription;
    std::multimap<int, std::thread::id>::iterator underWay;
    {
        const std::lock_guard lock(state().mutex);
        const auto found = state().subscriptions.find(subscriptionId);
        if (found == state().subscriptions.end()) {
            return false;
        }
        subscription = found->second.subscription;
        underWay = state().underWay.emplace(subscriptionId, std::this_thread::get_id());
    }
    subscription.callback(newFakeEvent(event), subscription.userData);
    const std::lock_guard lock(state().mutex);
    state().underWay.erase(underWay);
    state().ended.notify_all();
    return true;
}

void setFakeKeptValues(
    std::function<std::vector<FakeReceivedEvent>(const FakeSubscription &)> values)
{
    const std::lock_guard lock(state().mutex);
    state().keptValues = std::move(values);
}

void setFakeConsumerHook(std::function<void()> hook)
{
    const std::lock_guard lock(state().mutex);
    state().hook = std::move(hook);
}

void setFakeConsumerWaits(bool waits)
{
    const std::lock_guard lock(state().mutex);
    state().waits = waits;
}

} // namespace tovrel::test

subscribe_expression_t *subscribe_expression_new(void)
{
    if (!beginCall("subscribe_expression_new")) {
        return nullptr;
    }
    ++state().livingExpressions;
    return new subscribe_expression;
}

void subscribe_expression_free(subscribe_expression_t *expression)
{
    if (expression != nullptr) {
        beginCall("subscribe_expression_free");
        --state().livingExpressions;
    }
    delete expression;
}

int subscribe_expression_add_key_value(subscribe_expression_t *expression, const char *key,
                                       const char *value)
{
    if (!beginCall("subscribe_expression_add_key_value", {key, value}) || expression == nullptr) {
        return 0;
    }
    subscribe_expression::Condition &condition = expression->obtain(key);
    if (condition.value) {
        return 0;
    }
    condition.value = value;
    return 1;
}

int subscribe_expression_set_name_space(subscribe_expression_t *expression, const char *key,
                                        const char *name_space)
{
    if (!beginCall("subscribe_expression_set_name_space", {key, name_space}) ||
        expression == nullptr) {
        return 0;
    }
    expression->obtain(key).nameSpace = name_space;
    return 1;
}

int subscribe_expression_add_not_key(subscribe_expression_t *expression, const char *key)
{
    if (!beginCall("subscribe_expression_add_not_key", {key}) || expression == nullptr) {
        return 0;
    }
    expression->obtain(key).absent = true;
    return 1;
}

char *subscribe_expression_serialize_xml(const subscribe_expression_t *expression)
{
    return beginCall("subscribe_expression_serialize_xml") && expression != nullptr
               ? strdup(expression->text().c_str())
               : nullptr;
}

event_consumer_t *event_consumer_new(const char *name)
{
    if (!beginCall("event_consumer_new", {name})) {
        return nullptr;
    }
    const std::lock_guard lock(state().mutex);
    ++state().livingConsumers;
    return new event_consumer;
}

void event_consumer_free(event_consumer_t *consumer)
{
    beginCall("event_consumer_free");
    runHook();
    if (consumer == nullptr) {
        return;
    }
    std::unique_lock lock(state().mutex);
    std::vector<int> ended;
    for (const auto &[id, entry] : state().subscriptions) {
        if (entry.consumer == consumer) {
            ended.push_back(id);
        }
    }
    for (const int id : ended) {
        state().subscriptions.erase(id);
        waitForCallbacks(lock, id);
    }
    --state().livingConsumers;
    delete consumer;
}

int event_consumer_subscribe(event_consumer_t *consumer, const subscribe_expression_t *expression,
                             event_callback_t callback, void *user_data)
{
    g_return_val_if_fail(consumer != nullptr, -1);
    runHook();
    FakeSubscription made{-1, expression == nullptr ? "" : expression->text(), callback, user_data};
    const bool refused = expression == nullptr || isToFail("event_consumer_subscribe");
    {
        // In one: whoever sees the subscription finds the call recorded, and the other way round.
        const std::lock_guard lock(state().mutex);
        if (!refused) {
            made.id = state().nextId++;
            ++state().subscribeCount;
            state().subscriptions[made.id] = {made, consumer};
        }
        if (isRecording()) {
            recordCall("event_consumer_subscribe " + std::to_string(made.id) + " " +
                       made.conditions);
        }
    }
    if (!refused) {
        for (const auto &value : keptValuesFor(made)) {
            deliverFakeEvent(made.id, value);
        }
    }
    return made.id;
}

int event_consumer_unsubscribe(event_consumer_t *consumer, int subscription_id, unsigned int flags)
{
    g_return_val_if_fail(consumer != nullptr, 0);
    runHook();
    if (!beginCall("event_consumer_unsubscribe",
                   {std::to_string(subscription_id).c_str(), std::to_string(flags).c_str()})) {
        return 0;
    }
    std::unique_lock lock(state().mutex);
    const bool known = state().subscriptions.erase(subscription_id) == 1;
    waitForCallbacks(lock, subscription_id);
    return known ? 1 : 0;
}
