/** The operations that requests name. */
#pragma once

#include <norq/dbh_node.h>

#include <array>

namespace norq::dbh {

/** One operation: its names, where a node keeps it, and what it works on. */
struct Operation {
    const char *requestName; /**< in requests */
    const char *title;       /**< in messages */
    dbh_operation_t dbh_node_t::*slot;
    bool takesData;
    bool givesData;
    bool takesProperty;
    bool ofCollection; /**< works on a collection as a whole, not on an item */
};

inline constexpr Operation LIST_KEYS{.requestName = "listKeys",
                                     .title = "List keys",
                                     .slot = &dbh_node_t::list_keys,
                                     .takesData = false,
                                     .givesData = true,
                                     .takesProperty = false,
                                     .ofCollection = true};
inline constexpr Operation GET{.requestName = "get",
                               .title = "Get",
                               .slot = &dbh_node_t::get,
                               .takesData = false,
                               .givesData = true,
                               .takesProperty = true,
                               .ofCollection = false};
inline constexpr Operation SET{.requestName = "set",
                               .title = "Set",
                               .slot = &dbh_node_t::set,
                               .takesData = true,
                               .givesData = false,
                               .takesProperty = true,
                               .ofCollection = false};
inline constexpr Operation ADD{.requestName = "add",
                               .title = "Add",
                               .slot = &dbh_node_t::add,
                               .takesData = true,
                               .givesData = true,
                               .takesProperty = false,
                               .ofCollection = true};
inline constexpr Operation REMOVE{.requestName = "remove",
                                  .title = "Remove",
                                  .slot = &dbh_node_t::remove,
                                  .takesData = false,
                                  .givesData = false,
                                  .takesProperty = false,
                                  .ofCollection = false};
inline constexpr Operation IMPORT{.requestName = "import",
                                  .title = "Import",
                                  .slot = &dbh_node_t::import,
                                  .takesData = true,
                                  .givesData = false,
                                  .takesProperty = false,
                                  .ofCollection = false};

inline constexpr std::array OPERATIONS{&LIST_KEYS, &GET, &SET, &ADD, &REMOVE, &IMPORT};

} // namespace norq::dbh
