/**
 * Serves configuration as JSON documents: a program describes its document as an API, and a request
 * handler answers requests about it, a text in, a text out.
 *
 * docs/configuration-api.md defines requests and answers. In short: a request names the API, its
 * major version, an operation and a path; the library looks the node up in the API's description
 * (norq/dbh_node.h) and calls the node's operation, which uses typed fields (norq/dbh_fields.h) and
 * reports failures with a code (norq/dbh_error.h); the answer holds either data or the error.
 *
 * Threads: a request handler, with the APIs that it serves, is to be used by one thread at a time.
 * Different ones are independent of each other.
 */
#ifndef NORQ_DBH_H
#define NORQ_DBH_H

#include <norq/dbh_error.h>
#include <norq/dbh_fields.h>
#include <norq/dbh_node.h>

G_BEGIN_DECLS

/**
 * Bytes of a request, at most. A longer one is refused before it is parsed. Parsing takes up to
 * about 100 bytes of memory for each byte of a request.
 */
#define DBH_MAX_REQUEST_LENGTH 1048576

/** Levels of nodes in a description, at most. */
#define DBH_MAX_NODE_DEPTH 16

/** What an API is made of; stays valid as long as the API. */
typedef struct dbh_api_descriptor {
    /** Builds the description and hands it over, see dbh_node_t; NULL when it fails. */
    dbh_node_t *(*build)(void); // NOLINT(modernize-redundant-void-arg): C needs it
    /** Name that requests call the API by, not empty. */
    const char *name;
    /** Major version that requests have to name, 0 or more. */
    int major_version;
    /** Called as the last step of dbh_create_api(); may be NULL. */
    void (*created)(void *user_data);
    /** Called as the first step of dbh_delete_api(); may be NULL. */
    void (*deleted)(void *user_data);
} dbh_api_descriptor_t;

/** One API with its description and user data. */
typedef struct dbh_api dbh_api_t;

/** An API as a request handler sees it. */
typedef struct dbh_api_interface dbh_api_interface_t;

/** Answers requests to any number of APIs. */
typedef struct dbh_request_handler dbh_request_handler_t;

/**
 * Creates an API and builds its description, once.
 *
 * Fails when the description or the descriptor breaks a rule of this header or of norq/dbh_node.h,
 * or when memory is exhausted. On failure the description has been freed, and neither `created` nor
 * `user_data_free` has been called.
 *
 * @param descriptor     borrowed
 * @param user_data      passed to every operation
 * @param user_data_free called with user_data as the last step of dbh_delete_api(); may be NULL
 * @param error          set on failure, to be freed with dbh_error_free(); may be NULL
 * @return the API, to be freed with dbh_delete_api(); NULL on failure
 */
dbh_api_t *dbh_create_api(const dbh_api_descriptor_t *descriptor, void *user_data,
                          void (*user_data_free)(void *user_data), dbh_error_t **error);

/** The interface of an API, valid as long as the API; NULL for NULL. */
const dbh_api_interface_t *dbh_get_api_interface(const dbh_api_t *api);

/** Frees an API that no request handler serves any more. NULL is accepted. */
void dbh_delete_api(dbh_api_t *api);

/**
 * New request handler.
 *
 * @param interface an API to serve from the start, NULL for none. It may be added with
 *                  dbh_request_handler_add_api() all the same, which tells whether it is served
 * @return to be freed with dbh_request_handler_free(); NULL when memory is exhausted
 */
dbh_request_handler_t *dbh_request_handler_new(const dbh_api_interface_t *interface);

/** Frees a request handler, not its APIs. NULL is accepted. */
void dbh_request_handler_free(dbh_request_handler_t *handler);

/**
 * Serves an API. Nothing changes when it is served already. Fails when another API of this name and
 * major version is, when a parameter is NULL, or when memory is exhausted.
 *
 * @param interface borrowed until the handler is freed
 * @param error     set on failure, to be freed with dbh_error_free(); may be NULL
 * @return whether the API is served
 */
bool dbh_request_handler_add_api(dbh_request_handler_t *handler,
                                 const dbh_api_interface_t *interface, dbh_error_t **error);

/**
 * Answers one request. A request that fails, for whatever reason, has an answer too, one with an
 * error in it; there is none only when a parameter is NULL or memory is exhausted.
 *
 * Takes as long as the operation that it calls. An operation must not call it for the same handler.
 *
 * @param request  NUL-terminated
 * @param response set to the answer on success, one line of JSON in valid UTF-8, to be released
 *                 with free(); to NULL on failure
 * @param error    set on failure, to be freed with dbh_error_free(); may be NULL
 * @return whether there is an answer
 */
bool dbh_request_handler_process_request(dbh_request_handler_t *handler, const char *request,
                                         char **response, dbh_error_t **error);

G_END_DECLS

#endif
