#include "events/publication_config.h"

#include "interfaces/exceptions.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tovrel {

PublicationConfig &PublicationConfig::operator=(const PublicationConfig &other)
{
    if (this == &other) {
        return *this;
    }
    PublicationConfig copy(other);
    const auto lock = guard.lock();
    idInUse = copy.idInUse;
    eventFilters.swap(copy.eventFilters);
    std::swap(settings, copy.settings);
    guardFilters();
    return *this;
}

std::string PublicationConfig::allocateId()
{
    const auto lock = guard.lock();
    auto *const free = std::find(idInUse.begin(), idInUse.end(), 0U);
    if (free == idInUse.end()) {
        throw ConfigException("No available IDs");
    }
    *free = 1;
    return std::to_string(std::distance(idInUse.begin(), free));
}

void PublicationConfig::releaseId(const std::string &id)
{
    const auto index = static_cast<unsigned int>(std::stoi(id));
    if (index >= idInUse.size()) {
        throw ConfigException("Invalid ID");
    }
    const auto lock = guard.lock();
    idInUse.at(index) = 0;
}

const EventFilterConfig &PublicationConfig::getEventFilter(const std::string &id) const
{
    const auto found = eventFilters.find(id);
    if (found == eventFilters.end()) {
        throw NoSuchConfigException("No such topic filter");
    }
    return found->second;
}

EventFilterConfig &PublicationConfig::getEventFilter(const std::string &id)
{
    return const_cast<EventFilterConfig &>(std::as_const(*this).getEventFilter(id));
}

void PublicationConfig::setEventFilter(const std::string &id, EventFilterConfig filter)
{
    const auto lock = guard.lock();
    const auto [place, inserted] = eventFilters.try_emplace(id, std::move(filter));
    if (!inserted) { // and then nothing was moved
        place->second.swapValues(filter);
    }
    place->second.guard.set(guard.get());
}

std::string PublicationConfig::addEventFilter(EventFilterConfig filter)
{
    auto id = allocateId();
    const auto lock = guard.lock();
    const auto place = eventFilters.insert({id, std::move(filter)}).first;
    place->second.guard.set(guard.get());
    return id;
}

void PublicationConfig::removeEventFilter(const std::string &id)
{
    const auto found = eventFilters.find(id);
    if (found == eventFilters.end()) {
        throw NoSuchConfigException("No such id");
    }
    EventFilters::node_type removed; // keeps the key, which `id` may be
    {
        const auto lock = guard.lock();
        removed = eventFilters.extract(found);
    }
    releaseId(removed.key());
}

void PublicationConfig::setTopicPrefixSetting(const std::string &text)
{
    const auto lock = guard.lock();
    settings.topicPrefixSetting = text;
}

void PublicationConfig::setCustomTopicPrefix(const std::string &text)
{
    const auto lock = guard.lock();
    settings.customTopicPrefix = text;
}

void PublicationConfig::setAppendEventTopic(bool value)
{
    const auto lock = guard.lock();
    settings.appendEventTopic = value;
}

void PublicationConfig::setIncludeTopicNamespaces(bool value)
{
    const auto lock = guard.lock();
    settings.includeTopicNamespaces = value;
}

void PublicationConfig::setIncludeSerialNumberInPayload(bool value)
{
    const auto lock = guard.lock();
    settings.includeSerialNumberInPayload = value;
}

void PublicationConfig::attachGuard(std::mutex &owner)
{
    guard.set(&owner);
    guardFilters();
}

PublicationConfig PublicationConfig::copyGuarded() const
{
    const auto lock = guard.lock();
    return *this;
}

PublicationSettings PublicationConfig::copySettingsGuarded() const
{
    const auto lock = guard.lock();
    return settings;
}

bool PublicationConfig::includesSerialNumberGuarded() const
{
    const auto lock = guard.lock();
    return settings.includeSerialNumberInPayload;
}

void PublicationConfig::guardFilters()
{
    for (auto &[id, filter] : eventFilters) {
        filter.guard.set(guard.get());
    }
}

} // namespace tovrel
