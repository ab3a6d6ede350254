/** The bridge as the consumer needs it: what is not about publishing is a fault. */
#pragma once

#include "interfaces/base_event_bridge.h"

#include <memory>
#include <string>

namespace tovrel::test {

/** A bridge that can do nothing but publish. */
class PublishingBridge : public BaseEventBridge {
public:
    void run(std::unique_ptr<BaseDbusHandler> &, std::unique_ptr<BaseEventProducerHandler> &,
             std::unique_ptr<BaseEventConsumerHandler> &) override;
    void quit() override;
    void replaceSubscriptions(const SubscriptionStore &) override;
    void setPublicationConfig(const PublicationConfig &) override;
    void refreshPublication() override;
    [[nodiscard]] const PublicationConfig &getPublicationConfig() const override;
    PublicationConfig &getPublicationConfig() override;
    void setupSubscriptions() override;
    [[nodiscard]] const SubscriptionStore &getSubscriptions() const override;
    SubscriptionStore &getSubscriptions() override;
    void resetConfiguration() override;
    std::string getDeviceTopicPrefix() override;
};

} // namespace tovrel::test
