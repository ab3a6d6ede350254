/** What the commands on the items of both collections share. */
#pragma once

#include "tovrelctl/commands.h"
#include "tovrelctl/fields.h"
#include "tovrelctl/service.h"
#include "tovrelctl/table.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tovrelctl {

/** A collection, and the commands on it that differ from those of the other. */
struct Collection {
    /** The word for one of its items, which is that of the command, too. */
    const char *word;
    Path path;
    Fields fields;
    const char *help;
    /** All items, an array of the document, for people. */
    Table (*table)(const json_t *);
    Command add;
    Command set;
};

/** Runs the command on a collection that the first word names. */
int runOn(const Collection &collection, GlobalOptions options, const Words &words);

/** Does something with an item; a refusal then says which item it was. */
void onItem(const char *word, const std::string &id, const std::function<void()> &action);

/** Where MQTT-to-event items are. */
Path subscriptionPath();

/** Where event filters are. */
Path filterPath();

/** MQTT-to-event items, an array of the document. */
Table subscriptionTable(const json_t *items);

/** Event filters, an array of the document. */
Table filterTable(const json_t *filters);

/** The items of an array by the numbers of their ids; the service lists them as texts. */
std::vector<const json_t *> inOrder(const json_t *array);

/**
 * Adds an item and gives it as the service created it. After a restart the service may choose an id
 * that is taken; it then drops the new item and answers with the old one, and the next try gets the
 * next id.
 */
Json addItem(Service &service, const Path &collection, Fields fields, const Json &data);

/** An item as it is now. */
Json getItem(Service &service, const Path &path, Fields fields);

/** The path of an item. */
Path below(Path collection, const std::string &id);

/** The number in an item's "qos". */
std::string qosNumber(const json_t *item);

/** Puts the value of a field, as it is written behind an option, if it is given. */
void putGiven(const Json &data, const Field &field, const std::string &option,
              const std::optional<std::string> &text);

/** Puts "qos", which is a number on the command line, if it is given. */
void putGivenQos(const Json &data, const std::optional<std::string> &text);

/** Throws UsageError when an object with changes is empty. */
void requireChange(const Json &data);

} // namespace tovrelctl
