/** What a request's path leads to. */
#pragma once

#include "dbh/api.h"
#include "dbh/operation.h"

#include <string>

namespace norq::dbh {

/** A node, the keys on the way to it, and the property that is addressed. */
class Target {
public:
    /** The root of a description, which must outlive the target. */
    explicit Target(const Description &ownDescription);
    ~Target();
    Target(const Target &) = delete;
    Target &operator=(const Target &) = delete;

    /**
     * Goes along a path of names and keys and to a property; NULL for either stays. False with an
     * error in the slot when there is no such node or property.
     */
    bool find(const json_t *path, const char *property, dbh_api_error_t **error);

    /** Whether an operation is defined here; false with an error in the slot when not. */
    bool allows(const Operation &operation, dbh_api_error_t **error) const;

    const dbh_node_t &node() const { return *current; }
    const char *property() const { return currentProperty; }
    /** The keys, allocated by malloc(). */
    GQueue *keys() { return &currentKeys; }

private:
    std::string text() const;

    const Description *description;
    const dbh_node_t *current;
    const char *currentProperty = nullptr;
    bool atItem = false;
    GQueue currentKeys = G_QUEUE_INIT;
};

} // namespace norq::dbh
