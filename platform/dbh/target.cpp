#include "dbh/target.h"

#include "dbh/call.h"
#include "dbh/quoted.h"

#include <cstring>

namespace norq::dbh {

Target::Target(const Description &ownDescription)
    : description(&ownDescription), current(&ownDescription.root())
{
}

Target::~Target()
{
    shortenPath(&currentKeys, 0);
}

bool Target::find(const json_t *path, const char *property, dbh_api_error_t **error)
{
    for (std::size_t index = 0; index < json_array_size(path); ++index) {
        const char *step = json_string_value(json_array_get(path, index));
        if (current->kind == DBH_NODE_COLLECTION && !atItem) {
            g_queue_push_tail(&currentKeys, strdup(step));
            atItem = true;
            continue;
        }
        const dbh_node_t *child = findChild(*current, step);
        if (child == nullptr) {
            dbh_api_error_new(error, DBH_ERROR_UNKNOWN_PATH, "Unknown path %s.%s", text().c_str(),
                              Quoted(step).text());
            return false;
        }
        current = child;
        atItem = false;
    }
    if (property != nullptr && !hasProperty(*current, property)) {
        dbh_api_error_new(error, DBH_ERROR_UNKNOWN_PATH, "Unknown property %s.%s", text().c_str(),
                          Quoted(property).text());
        return false;
    }
    currentProperty = property;
    return true;
}

bool Target::allows(const Operation &operation, dbh_api_error_t **error) const
{
    const bool onItem = operation.ofCollection && atItem;
    if (current->*operation.slot != nullptr && !onItem &&
        (currentProperty == nullptr || operation.takesProperty) &&
        (current->kind == DBH_NODE_COLLECTION || !operation.ofCollection)) {
        return true;
    }
    dbh_api_error_new(error, DBH_ERROR_NOT_DEFINED, "%s operation not defined for %s%s",
                      operation.title, onItem ? "an item of " : "", text().c_str());
    return false;
}

std::string Target::text() const
{
    const std::string path = description->pathOf(*current);
    return currentProperty != nullptr ? path + "." + currentProperty : path;
}

} // namespace norq::dbh
