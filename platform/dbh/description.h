/** An API's description once it is built: checked, and with the paths that messages show. */
#pragma once

#include "dbh/handles.h"

#include <stdexcept>
#include <string>
#include <unordered_map>

namespace norq::dbh {

/** The description breaks a rule; the text says which node and which rule. */
class DescriptionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** A tree of nodes that keeps the rules. */
class Description {
public:
    /** Takes the tree over. Throws DescriptionError. */
    explicit Description(NodeTree tree);

    const dbh_node_t &root() const { return *nodes; }

    /** What messages call a node: "root.area.shelf[]"; its bare name when it is not in the tree. */
    const char *pathOf(const dbh_node_t &node) const noexcept;

private:
    void add(const dbh_node_t &node, const std::string &parentPath, int depth);

    NodeTree nodes;
    std::unordered_map<const dbh_node_t *, std::string> paths;
};

/** The child of this name; NULL when there is none. */
const dbh_node_t *findChild(const dbh_node_t &node, const char *name);

/** Whether the node has a property of this name. */
bool hasProperty(const dbh_node_t &node, const char *name);

} // namespace norq::dbh
