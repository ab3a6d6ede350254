/**
 * An API to try the library with: greenhouses, each a collection of its own plants.
 *
 *   root            owner (read only)                     get, import
 *     climate       mode, frostGuard                      get, set
 *     house[]       id, label, heated                     list keys, get, set, add, remove
 *       plant[]     id, species                           list keys, get, set, add, remove
 */
#pragma once

#include <norq/dbh.h>

#include <map>
#include <string>

namespace greenhouse {

struct House {
    std::string label;
    bool heated = false;
    std::map<std::string, std::string> plants; /**< species by id */
};

/** What is configured: the user data of the API. Starts with one house and one plant in it. */
struct Model {
    std::string owner = "Gärtnerei Nord";
    std::string mode = "off";
    bool frostGuard = true;
    std::map<std::string, House> houses{{"0", {"Palms", true, {{"0", "Phoenix"}}}}};
};

/** Houses, and plants of one house, at most. */
inline constexpr std::size_t MOST_ITEMS = 10;

/** The values of "mode", ended by NULL. */
inline constexpr const char *MODES[] = {"off", "auto", "manual", nullptr};

/** The descriptor of API "greenhouse", major version 1; the user data is a Model. */
const dbh_api_descriptor_t &descriptor();

/** The operations, by node; `import` is root's. */
struct Operations {
    dbh_operation_t getRoot, import;
    dbh_operation_t getClimate, setClimate;
    dbh_operation_t listHouses, getHouse, setHouse, addHouse, removeHouse;
    dbh_operation_t listPlants, getPlant, setPlant, addPlant, removePlant;
};
extern const Operations OPERATIONS;

} // namespace greenhouse
