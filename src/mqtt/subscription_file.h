/**
 * The files of the MQTT-to-event items: plain text, one field a line, no separators.
 *
 * A record is: id, topic filter, device prefix flag ("0" or "1"), QoS, stateful flag ("0" or "1").
 * The former format has no id line.
 */
#pragma once

#include "mqtt/subscription_store.h"

#include <istream>
#include <string>

namespace tovrel {

/** The items as the text of the configuration file, in the order of the store. */
std::string formatSubscriptions(const SubscriptionStore::Items &items);

/**
 * Adds the records of a stream to `items`; the first record with an id wins. Of a topic filter only
 * what stands before the first blank is read. Stops with a warning at a record that is not whole.
 */
void readSubscriptions(std::istream &stream, SubscriptionStore::Items &items);

/**
 * Adds the records of a stream in the former format under new ids. A record that the store refuses
 * is skipped with a warning. True when the stream was read to its end; false, with a warning, when
 * it ends within a record or could not be read.
 */
bool readLegacySubscriptions(std::istream &stream, SubscriptionStore &store);

/** SubscriptionStore::loadFromFile() with the path named. */
void loadSubscriptionFile(const char *path, SubscriptionStore &store);

/** SubscriptionStore::migrateLegacyFile() with the paths named. */
void migrateLegacySubscriptionFile(const char *legacyPath, const char *path,
                                   SubscriptionStore &store);

/** SubscriptionStore::saveToFile() with the path named. */
void saveSubscriptionFile(const char *path, const SubscriptionStore &store);

} // namespace tovrel
