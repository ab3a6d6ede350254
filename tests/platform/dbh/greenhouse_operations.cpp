#include "greenhouse.h"

#include <cstring>

// What every operation is called with; not each of them needs all of it.
#define OPERATION_PARAMETERS                                                                       \
    [[maybe_unused]] const dbh_node_t *node, [[maybe_unused]] GQueue *path,                        \
        [[maybe_unused]] const char *property, [[maybe_unused]] bool omitReadOnly,                 \
        [[maybe_unused]] const json_t *data, [[maybe_unused]] dbh_api_error_t **error,             \
        [[maybe_unused]] dbh_request_context_t *context, [[maybe_unused]] void *userData
#define OPERATION_ARGUMENTS node, path, property, omitReadOnly, data, error, context, userData

namespace greenhouse {

namespace {

/** A text property that is optional in the data: reads it into `target` when it is there. */
bool readText(const json_t *data, dbh_string_t field, std::string &target, dbh_api_error_t **error)
{
    const json_t *json = json_object_get(data, field.name);
    const bool fine = json == nullptr || dbh_string_deserialize(&field, json, error);
    if (dbh_string_is_set(&field)) {
        target = dbh_string_value(&field);
    }
    dbh_string_deinit(&field);
    return fine;
}

bool readBoolean(const json_t *data, const char *name, bool &target, dbh_api_error_t **error)
{
    const json_t *json = json_object_get(data, name);
    dbh_boolean_t field;
    dbh_boolean_init(&field, name);
    if (json == nullptr || !dbh_boolean_deserialize(&field, json, error)) {
        return json == nullptr;
    }
    target = dbh_boolean_value(&field);
    return true;
}

dbh_string_t text(const char *name)
{
    dbh_string_t field;
    dbh_string_init(&field, name);
    return field;
}

dbh_string_t label()
{
    dbh_string_t field;
    dbh_string_init_full(&field, "label", 1, 20, nullptr);
    return field;
}

dbh_string_t mode()
{
    dbh_string_t field;
    dbh_string_init_full(&field, "mode", -1, -1, MODES);
    return field;
}

json_t *toJson(const std::string &value)
{
    return json_stringn(value.data(), value.size());
}

bool isObject(const json_t *data, const char *context, const char *const *fields,
              dbh_api_error_t **error)
{
    if (!json_is_object(data)) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_DATA, "%s: Expected JSON object but got %s",
                          context, dbh_json_type(data));
        return false;
    }
    return !dbh_json_object_contains_unexpected_field(data, context, fields, error);
}

Model &model(void *userData)
{
    return *static_cast<Model *>(userData);
}

template <typename Items>
std::string lowestFreeId(const Items &items)
{
    int id = 0;
    while (items.count(std::to_string(id)) > 0) {
        ++id;
    }
    return std::to_string(id);
}

template <typename Items>
bool hasRoom(const Items &items, dbh_api_error_t **error)
{
    if (items.size() >= MOST_ITEMS) {
        dbh_api_error_new(error, DBH_ERROR_TOO_MANY_ITEMS, "Too many items");
    }
    return items.size() < MOST_ITEMS;
}

/** The item of the key at a place of the path; NULL with an error in the slot when there is none.
 */
template <typename Items>
auto find(Items &items, GQueue *path, unsigned int place, dbh_api_error_t **error)
    -> decltype(&items.begin()->second)
{
    const auto *key = static_cast<const char *>(g_queue_peek_nth(path, place));
    const auto item = key != nullptr ? items.find(key) : items.end();
    if (item == items.end()) {
        dbh_api_error_new(error, DBH_ERROR_NO_SUCH_ITEM, "There is no such item");
        return nullptr;
    }
    return &item->second;
}

template <typename Items>
json_t *list(const Items &items, OPERATION_PARAMETERS)
{
    GQueue keys = G_QUEUE_INIT;
    for (const auto &item : items) {
        g_queue_push_tail(&keys, const_cast<char *>(item.first.c_str()));
    }
    json_t *array =
        dbh_get_json_from_items(node, &keys, path, omitReadOnly, error, context, userData);
    g_queue_clear(&keys);
    return array;
}

json_t *withChildren(json_t *object, OPERATION_PARAMETERS)
{
    if (!dbh_add_to_json_from_children(node, object, path, property, omitReadOnly, error, context,
                                       userData)) {
        json_decref(object);
        return nullptr;
    }
    return object;
}

json_t *readCreated(const std::string &key, OPERATION_PARAMETERS)
{
    g_queue_push_tail(path, strdup(key.c_str()));
    return node->get(OPERATION_ARGUMENTS);
}

json_t *getRoot(OPERATION_PARAMETERS)
{
    json_t *object = json_object();
    if (!omitReadOnly) {
        json_object_set_new(object, "owner", toJson(model(userData).owner));
    }
    return withChildren(object, OPERATION_ARGUMENTS);
}

json_t *getClimate(OPERATION_PARAMETERS)
{
    json_t *object = json_object();
    json_object_set_new(object, "mode", toJson(model(userData).mode));
    json_object_set_new(object, "frostGuard", json_boolean(model(userData).frostGuard));
    return withChildren(object, OPERATION_ARGUMENTS);
}

bool readClimate(const json_t *data, Model &target, dbh_api_error_t **error)
{
    static constexpr const char *FIELDS[] = {"mode", "frostGuard", nullptr};
    return isObject(data, "Set root.climate", FIELDS, error) &&
           readText(data, mode(), target.mode, error) &&
           readBoolean(data, "frostGuard", target.frostGuard, error);
}

json_t *setClimate(OPERATION_PARAMETERS)
{
    Model changed = model(userData);
    if (readClimate(data, changed, error)) {
        model(userData) = changed;
    }
    return nullptr;
}

json_t *listHouses(OPERATION_PARAMETERS)
{
    return list(model(userData).houses, OPERATION_ARGUMENTS);
}

json_t *getHouse(OPERATION_PARAMETERS)
{
    const House *house = find(model(userData).houses, path, 0, error);
    if (house == nullptr) {
        return nullptr;
    }
    json_t *object = json_object();
    json_object_set_new(object, "id", toJson(static_cast<const char *>(g_queue_peek_nth(path, 0))));
    json_object_set_new(object, "label", toJson(house->label));
    json_object_set_new(object, "heated", json_boolean(house->heated));
    return withChildren(object, OPERATION_ARGUMENTS);
}

bool readHouse(const json_t *data, const char *context, House &target, dbh_api_error_t **error)
{
    static constexpr const char *FIELDS[] = {"label", "heated", nullptr};
    return isObject(data, context, FIELDS, error) && readText(data, label(), target.label, error) &&
           readBoolean(data, "heated", target.heated, error);
}

json_t *setHouse(OPERATION_PARAMETERS)
{
    House *house = find(model(userData).houses, path, 0, error);
    House changed = house != nullptr ? *house : House();
    if (house != nullptr && readHouse(data, "Set root.house[]", changed, error)) {
        *house = changed;
    }
    return nullptr;
}

json_t *addHouse(OPERATION_PARAMETERS)
{
    auto &houses = model(userData).houses;
    House created;
    if (!hasRoom(houses, error) || !readHouse(data, "Add item to root.house[]", created, error)) {
        return nullptr;
    }
    const std::string key = lowestFreeId(houses);
    houses[key] = created;
    return readCreated(key, OPERATION_ARGUMENTS);
}

json_t *removeHouse(OPERATION_PARAMETERS)
{
    auto &houses = model(userData).houses;
    if (find(houses, path, 0, error) != nullptr) {
        houses.erase(static_cast<const char *>(g_queue_peek_nth(path, 0)));
    }
    return nullptr;
}

json_t *listPlants(OPERATION_PARAMETERS)
{
    const House *house = find(model(userData).houses, path, 0, error);
    return house != nullptr ? list(house->plants, OPERATION_ARGUMENTS) : nullptr;
}

std::string *findPlant(GQueue *path, dbh_api_error_t **error, void *userData)
{
    House *house = find(model(userData).houses, path, 0, error);
    return house != nullptr ? find(house->plants, path, 1, error) : nullptr;
}

json_t *getPlant(OPERATION_PARAMETERS)
{
    const std::string *species = findPlant(path, error, userData);
    if (species == nullptr) {
        return nullptr;
    }
    json_t *object = json_object();
    json_object_set_new(object, "id", toJson(static_cast<const char *>(g_queue_peek_nth(path, 1))));
    json_object_set_new(object, "species", toJson(*species));
    return object;
}

constexpr const char *PLANT_FIELDS[] = {"species", nullptr};

json_t *setPlant(OPERATION_PARAMETERS)
{
    std::string *species = findPlant(path, error, userData);
    if (species != nullptr && isObject(data, "Set root.house[].plant[]", PLANT_FIELDS, error)) {
        readText(data, text("species"), *species, error);
    }
    return nullptr;
}

json_t *addPlant(OPERATION_PARAMETERS)
{
    House *house = find(model(userData).houses, path, 0, error);
    std::string species;
    if (house == nullptr || !hasRoom(house->plants, error) ||
        !isObject(data, "Add item to root.house[].plant[]", PLANT_FIELDS, error) ||
        !readText(data, text("species"), species, error)) {
        return nullptr;
    }
    const std::string key = lowestFreeId(house->plants);
    house->plants[key] = species;
    return readCreated(key, OPERATION_ARGUMENTS);
}

json_t *removePlant(OPERATION_PARAMETERS)
{
    if (findPlant(path, error, userData) != nullptr) {
        House *house = find(model(userData).houses, path, 0, error);
        house->plants.erase(static_cast<const char *>(g_queue_peek_nth(path, 1)));
    }
    return nullptr;
}

/** Takes a climate only: what the library does with an import does not depend on more. */
json_t *import(OPERATION_PARAMETERS)
{
    static constexpr const char *FIELDS[] = {"climate", nullptr};
    if (!isObject(data, "Import root", FIELDS, error)) {
        return nullptr;
    }
    const auto *options = dbh_request_context_get_options(context);
    Model changed = dbh_options_get_import_type(options) == DBH_IMPORT_REPLACE ? Model{.houses = {}}
                                                                               : model(userData);
    const json_t *climate = json_object_get(data, "climate");
    if (climate == nullptr || readClimate(climate, changed, error)) {
        model(userData) = changed;
    }
    return nullptr;
}

} // namespace

const Operations OPERATIONS{.getRoot = getRoot,
                            .import = import,
                            .getClimate = getClimate,
                            .setClimate = setClimate,
                            .listHouses = listHouses,
                            .getHouse = getHouse,
                            .setHouse = setHouse,
                            .addHouse = addHouse,
                            .removeHouse = removeHouse,
                            .listPlants = listPlants,
                            .getPlant = getPlant,
                            .setPlant = setPlant,
                            .addPlant = addPlant,
                            .removePlant = removePlant};

} // namespace greenhouse
