#include "greenhouse.h"

#include <cstdlib>
#include <initializer_list>

namespace greenhouse {

namespace {

dbh_node_t *newNode(dbh_node_kind kind, const char *name,
                    std::initializer_list<const char *> properties)
{
    auto *node = static_cast<dbh_node_t *>(std::calloc(1, sizeof(dbh_node_t)));
    node->kind = kind;
    node->name = name;
    node->children = g_queue_new();
    node->properties = g_queue_new();
    for (const char *property : properties) {
        g_queue_push_tail(node->properties, const_cast<char *>(property));
    }
    return node;
}

dbh_node_t *newCollection(const char *name, std::initializer_list<const char *> properties,
                          std::initializer_list<dbh_operation_t> operations)
{
    dbh_node_t *node = newNode(DBH_NODE_COLLECTION, name, properties);
    const auto *operation = operations.begin();
    node->list_keys = *operation++;
    node->get = *operation++;
    node->set = *operation++;
    node->add = *operation++;
    node->remove = *operation;
    return node;
}

dbh_node_t *build()
{
    dbh_node_t *root = newNode(DBH_NODE_OBJECT, "root", {"owner"});
    root->get = OPERATIONS.getRoot;
    root->import = OPERATIONS.import;

    dbh_node_t *climate = newNode(DBH_NODE_OBJECT, "climate", {"mode", "frostGuard"});
    climate->get = OPERATIONS.getClimate;
    climate->set = OPERATIONS.setClimate;
    g_queue_push_tail(root->children, climate);

    dbh_node_t *house =
        newCollection("house", {"id", "label", "heated"},
                      {OPERATIONS.listHouses, OPERATIONS.getHouse, OPERATIONS.setHouse,
                       OPERATIONS.addHouse, OPERATIONS.removeHouse});
    g_queue_push_tail(root->children, house);
    g_queue_push_tail(house->children, newCollection("plant", {"id", "species"},
                                                     {OPERATIONS.listPlants, OPERATIONS.getPlant,
                                                      OPERATIONS.setPlant, OPERATIONS.addPlant,
                                                      OPERATIONS.removePlant}));
    return root;
}

} // namespace

const dbh_api_descriptor_t &descriptor()
{
    static const dbh_api_descriptor_t DESCRIPTOR{.build = build,
                                                 .name = "greenhouse",
                                                 .major_version = 1,
                                                 .created = nullptr,
                                                 .deleted = nullptr};
    return DESCRIPTOR;
}

} // namespace greenhouse
