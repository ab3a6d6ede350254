/**
 * The description of an API: a tree of nodes with their operations, and the functions with which
 * these operations put the answers of several nodes together.
 *
 * Everything here runs inside of dbh_request_handler_process_request(), on its caller's thread.
 */
#ifndef NORQ_DBH_NODE_H
#define NORQ_DBH_NODE_H

#include <norq/dbh_error.h>

#include <stdint.h>

G_BEGIN_DECLS

/** What a node stands for. */
typedef enum dbh_node_kind {
    DBH_NODE_OBJECT = 0,    /**< one object with properties and children */
    DBH_NODE_COLLECTION = 1 /**< any number of such objects, each with a key */
} dbh_node_kind;

/** How an import treats what is configured already. */
typedef enum dbh_import_type {
    DBH_IMPORT_MERGE = 0,  /**< what the import does not mention stays; the default */
    DBH_IMPORT_REPLACE = 1 /**< everything is reset first */
} dbh_import_type;

/** What belongs to one request as a whole. Valid during the call that it is passed to. */
typedef struct dbh_request_context dbh_request_context_t;

/** The options of one request. */
typedef struct dbh_options dbh_options_t;

typedef struct dbh_node dbh_node_t;

/**
 * One operation of one node.
 *
 * What each operation is asked for and what it returns:
 *
 *  - list keys: nothing but the collection; an array of its items, as dbh_get_json_from_items()
 *    makes it
 *  - get: an object or an item; the object
 *  - set: an object or an item, with the data; NULL
 *  - add: a collection, with the data; the item as it was created
 *  - remove: an item; NULL
 *  - import: an object, with the data; NULL
 *
 * An operation that fails leaves an error in the slot and returns NULL. If it returns JSON all the
 * same, the JSON is released. A set, remove or import that returns JSON succeeds with it as the
 * data of the answer; a list keys, get or add that returns NULL without an error fails with
 * DBH_ERROR_INTERNAL "OPERATION operation of PATH gave no data".
 *
 * The library looks a node and a property up before it calls, and that data is there when the
 * operation needs it. It does not look at keys, nor at what is in the data: an operation on an
 * item checks its key, which is missing when the request's path ends with the collection.
 *
 * An operation must not throw. From one that does, the request gets DBH_ERROR_INTERNAL "Internal
 * error", and a warning with the exception's text is logged.
 *
 * @param node           the node that the operation belongs to
 * @param path           the keys on the way to the node, the outermost first, as NUL-terminated
 *                       UTF-8: `g_queue_peek_nth(path, 0)` is the key of an item of a collection
 *                       that is in no other one. The library's. An operation may push further keys
 *                       onto its end: texts from malloc(), which the library frees with the rest
 * @param property       the one property that the request addresses, NULL when it is the node as a
 *                       whole. A set gets its data in the same form, an object, in both cases; of
 *                       what a get returns, the library keeps the property
 * @param omit_read_only the option "omitReadOnly": whether properties that can only be read are
 *                       left out, so that the answer can be imported as it stands. It is passed
 *                       through for the operation to act on
 * @param data           the data of set, add and import, borrowed; NULL for the others
 * @param error          the slot for an error, never NULL, holding NULL
 * @param context        for dbh_request_context_get_options() and the functions below
 * @param user_data      what was given to dbh_create_api()
 * @return a new reference, or NULL
 */
typedef json_t *(*dbh_operation_t)(const dbh_node_t *node, GQueue *path, const char *property,
                                   bool omit_read_only, const json_t *data, dbh_api_error_t **error,
                                   dbh_request_context_t *context, void *user_data);

/**
 * One node. Allocated with malloc() (or calloc()) by the API's builder; the library frees it, its
 * queues and its children from the moment the builder returns. The names are not freed: they stay
 * valid as long as the API.
 *
 * An operation that is NULL is not defined for the node. A request for it gets
 * DBH_ERROR_NOT_DEFINED "OPERATION operation not defined for PATH".
 */
struct dbh_node {
    int32_t kind;       /**< a dbh_node_kind; that of the root is DBH_NODE_OBJECT */
    const char *name;   /**< not empty; unlike its siblings' and the parent's properties' */
    GQueue *children;   /**< of dbh_node_t, in the order of the answer; NULL for none */
    GQueue *properties; /**< of names; that of a collection's key first; NULL for none */
    dbh_operation_t list_keys;
    dbh_operation_t get;
    dbh_operation_t set;
    dbh_operation_t add;
    dbh_operation_t remove;
    dbh_operation_t reserved; /**< for an operation to come; has to be NULL */
    dbh_operation_t import;
};

/** Frees a node with its queues and all below it; for builders that fail half-way. NULL does. */
void dbh_node_free(dbh_node_t *node);

/**
 * Adds what the children of a node answer to the node's own object: of an object the result of its
 * get, of a collection that of its list keys, under the child's name. A child without that
 * operation is left out. Adds nothing when a single property is addressed, because the children
 * would be thrown away.
 *
 * Except for `json`, the parameters are those of the operation that calls.
 *
 * @param json an object, changed; on failure it holds a part of the children
 * @return false when a child failed; the error is in the slot
 */
bool dbh_add_to_json_from_children(const dbh_node_t *node, json_t *json, GQueue *path,
                                   const char *property, bool omit_read_only,
                                   dbh_api_error_t **error, dbh_request_context_t *context,
                                   void *user_data);

/**
 * Makes the answer of a collection's list keys: an array of what the node's get gives for each key,
 * in the order of the keys. The first failing get ends it.
 *
 * Except for `keys`, the parameters are those of the operation that calls.
 *
 * @param keys NUL-terminated texts, borrowed
 * @return a new array, or NULL with the error in the slot
 */
json_t *dbh_get_json_from_items(const dbh_node_t *node, const GQueue *keys, GQueue *path,
                                bool omit_read_only, dbh_api_error_t **error,
                                dbh_request_context_t *context, void *user_data);

/** The options of a request, valid as long as the context; NULL for NULL. */
const dbh_options_t *dbh_request_context_get_options(const dbh_request_context_t *context);

/** The option "importType" as a dbh_import_type; DBH_IMPORT_MERGE when not given, or for NULL. */
dbh_import_type dbh_options_get_import_type(const dbh_options_t *options);

G_END_DECLS

#endif
