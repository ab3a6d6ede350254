#include "unit/events/publishing_bridge.h"

#include <stdexcept>

namespace tovrel::test {

namespace {

[[noreturn]] void unused()
{
    throw std::logic_error("the consumer has no business with this");
}

} // namespace

void PublishingBridge::run(std::unique_ptr<BaseDbusHandler> & /*dbusHandler*/,
                           std::unique_ptr<BaseEventProducerHandler> & /*producerHandler*/,
                           std::unique_ptr<BaseEventConsumerHandler> & /*consumerHandler*/)
{
    unused();
}

void PublishingBridge::quit()
{
    unused();
}

void PublishingBridge::replaceSubscriptions(const SubscriptionStore & /*newStore*/)
{
    unused();
}

void PublishingBridge::setPublicationConfig(const PublicationConfig & /*config*/)
{
    unused();
}

void PublishingBridge::refreshPublication()
{
    unused();
}

const PublicationConfig &PublishingBridge::getPublicationConfig() const
{
    unused();
}

PublicationConfig &PublishingBridge::getPublicationConfig()
{
    unused();
}

void PublishingBridge::setupSubscriptions()
{
    unused();
}

const SubscriptionStore &PublishingBridge::getSubscriptions() const
{
    unused();
}

SubscriptionStore &PublishingBridge::getSubscriptions()
{
    unused();
}

void PublishingBridge::resetConfiguration()
{
    unused();
}

std::string PublishingBridge::getDeviceTopicPrefix()
{
    unused();
}

} // namespace tovrel::test
