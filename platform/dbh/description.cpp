#include "dbh/description.h"

#include <norq/dbh.h>

#include <cstdlib>
#include <cstring>

namespace norq::dbh {

namespace {

const GList *listOf(const GQueue *queue)
{
    return queue != nullptr ? queue->head : nullptr;
}

void require(bool kept, const std::string &where, const char *rule)
{
    if (!kept) {
        throw DescriptionError(where + ": " + rule);
    }
}

bool isName(const char *text)
{
    return text != nullptr && *text != '\0' && g_utf8_validate(text, -1, nullptr);
}

unsigned int countOfName(const dbh_node_t &node, const char *name)
{
    unsigned int count = 0;
    for (const GList *child = listOf(node.children); child != nullptr; child = child->next) {
        const auto *data = static_cast<const dbh_node_t *>(child->data);
        count += data != nullptr && isName(data->name) && std::strcmp(data->name, name) == 0;
    }
    for (const GList *entry = listOf(node.properties); entry != nullptr; entry = entry->next) {
        const auto *property = static_cast<const char *>(entry->data);
        count += property != nullptr && std::strcmp(property, name) == 0;
    }
    return count;
}

void checkProperties(const dbh_node_t &node, const std::string &path)
{
    for (const GList *entry = listOf(node.properties); entry != nullptr; entry = entry->next) {
        const auto *name = static_cast<const char *>(entry->data);
        require(isName(name), path, "a property has no name");
        require(countOfName(node, name) == 1, path, "two properties or children have one name");
    }
    require(node.kind == DBH_NODE_OBJECT || listOf(node.properties) != nullptr, path,
            "a collection needs a key property");
}

} // namespace

Description::Description(NodeTree tree) : nodes(std::move(tree))
{
    if (nodes == nullptr) {
        throw DescriptionError("the builder gave no description");
    }
    require(nodes->kind == DBH_NODE_OBJECT, "the root", "it has to be an object");
    add(*nodes, "", 1);
}

const char *Description::pathOf(const dbh_node_t &node) const noexcept
{
    const auto found = paths.find(&node);
    return found != paths.end() ? found->second.c_str() : node.name;
}

void Description::add(const dbh_node_t &node, const std::string &parentPath, int depth)
{
    const std::string parent = parentPath.empty() ? "the root" : parentPath;
    require(isName(node.name), parent, "a node has no name");
    require(node.kind == DBH_NODE_OBJECT || node.kind == DBH_NODE_COLLECTION, parent,
            "a node is neither an object nor a collection");
    require(depth <= DBH_MAX_NODE_DEPTH, parent, "too many levels");

    const std::string path = (parentPath.empty() ? "" : parentPath + ".") + node.name +
                             (node.kind == DBH_NODE_COLLECTION ? "[]" : "");
    require(node.reserved == nullptr, path, "the reserved operation has to be NULL");
    checkProperties(node, path);
    paths.emplace(&node, path);
    for (const GList *entry = listOf(node.children); entry != nullptr; entry = entry->next) {
        const auto *child = static_cast<const dbh_node_t *>(entry->data);
        require(child != nullptr, path, "a child is NULL");
        add(*child, path, depth + 1);
        require(countOfName(node, child->name) == 1, path,
                "two properties or children have one name");
    }
}

const dbh_node_t *findChild(const dbh_node_t &node, const char *name)
{
    for (const GList *entry = listOf(node.children); entry != nullptr; entry = entry->next) {
        const auto *child = static_cast<const dbh_node_t *>(entry->data);
        if (std::strcmp(child->name, name) == 0) {
            return child;
        }
    }
    return nullptr;
}

bool hasProperty(const dbh_node_t &node, const char *name)
{
    for (const GList *entry = listOf(node.properties); entry != nullptr; entry = entry->next) {
        if (std::strcmp(static_cast<const char *>(entry->data), name) == 0) {
            return true;
        }
    }
    return false;
}

} // namespace norq::dbh

void dbh_node_free(dbh_node_t *node)
{
    if (node == nullptr) {
        return;
    }
    if (node->children != nullptr) {
        g_queue_free_full(node->children,
                          [](gpointer child) { dbh_node_free(static_cast<dbh_node_t *>(child)); });
    }
    if (node->properties != nullptr) {
        g_queue_free(node->properties);
    }
    std::free(node);
}
