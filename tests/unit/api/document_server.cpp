/**
 * Answers requests to the service's own API: reads one a line, prints the answer of each as a line.
 * Handlers, backend, stores and libraries are the real ones; the hub is none, so that nothing is
 * subscribed and nobody ends the process.
 */
#include "api/tovrel_v2_backend.h"
#include "events/publication_config.h"
#include "interfaces/base_dbus_handler.h"
#include "interfaces/base_event_bridge.h"
#include "interfaces/base_event_consumer_handler.h"
#include "interfaces/base_event_producer_handler.h"
#include "mqtt/subscription_store.h"
#include "support/served_api.h"

#include <cstdlib>
#include <iostream>

namespace {

using namespace tovrel;

class DocumentBridge final : public BaseEventBridge {
public:
    void run(std::unique_ptr<BaseDbusHandler> &, std::unique_ptr<BaseEventProducerHandler> &,
             std::unique_ptr<BaseEventConsumerHandler> &) override
    {
    }
    void quit() override {}
    void replaceSubscriptions(const SubscriptionStore &newStore) override
    {
        newStore.saveToFile();
        items = newStore;
    }
    void setPublicationConfig(const PublicationConfig &config) override
    {
        publication = config;
        publication.save();
    }
    void refreshPublication() override {}
    const PublicationConfig &getPublicationConfig() const override { return publication; }
    PublicationConfig &getPublicationConfig() override { return publication; }
    void setupSubscriptions() override {}
    void publish(const std::string &, bool, const char *, std::size_t, int, bool) override {}
    const SubscriptionStore &getSubscriptions() const override { return items; }
    SubscriptionStore &getSubscriptions() override { return items; }
    void resetConfiguration() override
    {
        items = {};
        publication = {};
    }
    std::string getDeviceTopicPrefix() override { return "devices/d1"; }

private:
    SubscriptionStore items;
    PublicationConfig publication;
};

} // namespace

int main()
{
    DocumentBridge bridge;
    ServedApi api(
        OwnedApi(tovrel_v2_create_api(static_cast<BaseEventBridge *>(&bridge), nullptr, nullptr)));
    for (std::string request; std::getline(std::cin, request);) {
        std::cout << api.ask(request) << '\n' << std::flush;
    }
    return EXIT_SUCCESS;
}
