/** What the commands on the items of both collections share. */
#pragma once

#include "tovrelctl/commands.h"
#include "tovrelctl/service.h"

#include <optional>
#include <string>
#include <vector>

namespace tovrelctl {

using Path = std::vector<std::string>;

/** A collection, and the commands on it that differ from those of the other. */
struct Collection {
    const Path &path;
    const char *help;
    /** All items, an array of the document, for people. */
    std::string (*table)(const json_t *);
    Command add;
    Command set;
};

/** Runs the command on a collection that the first word names. */
int runOn(const Collection &collection, const GlobalOptions &options, const Path &words);

/** MQTT-to-event items, an array of the document. */
std::string subscriptionTable(const json_t *items);

/** Event filters, an array of the document. */
std::string filterTable(const json_t *filters);

/** The items of an array by the numbers of their ids; the service lists them as texts. */
std::vector<const json_t *> inOrder(const json_t *array);

/**
 * Adds an item and gives it as the service created it. After a restart the service may choose an id
 * that is taken; it then drops the new item and answers with the old one, and the next try gets the
 * next id.
 */
Json addItem(Service &service, const Path &collection, const Json &data);

/** The path of an item. */
Path below(Path collection, const std::string &id);

/** An item after a change: whole for programs, its id for people. */
void printItem(const GlobalOptions &options, const json_t *item);

/** The number in an item's "qos". */
std::string qosNumber(const json_t *item);

/** The only word that is given; throws UsageError, with what it should be, for none and several. */
std::string onlyOne(const Path &words, const char *what);

/** Throws UsageError when an object with changes is empty. */
void requireChange(const Json &data);

} // namespace tovrelctl
