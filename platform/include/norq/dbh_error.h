/**
 * Errors of the configuration API and the helpers for JSON that report them.
 *
 * There are two kinds. A dbh_api_error_t is the reason why one request fails; the library makes the
 * error answer of it. A dbh_error_t tells the program that uses the library that there is no API or
 * no answer at all (norq/dbh.h).
 *
 * The functions keep no state between calls: any thread may use them with objects of its own.
 */
#ifndef NORQ_DBH_ERROR_H
#define NORQ_DBH_ERROR_H

#include <glib.h>
#include <jansson.h>
#include <stdbool.h>

G_BEGIN_DECLS

/** Codes of error answers. An API may use others, from 100 on, for what is special to it. */
typedef enum dbh_error_code {
    DBH_ERROR_INTERNAL = 0,          /**< the backend or the library failed, not the request */
    DBH_ERROR_MALFORMED_REQUEST = 1, /**< no JSON, or a member of the request is wrong */
    DBH_ERROR_NO_SUCH_ITEM = 2,      /**< no item of this key, or the key is not a valid one */
    DBH_ERROR_UNKNOWN_API = 3,       /**< the handler serves no API of this name */
    DBH_ERROR_ITEM_WITHOUT_KEY = 4,  /**< an imported item has no key; for APIs, not the library */
    DBH_ERROR_MALFORMED_DATA = 5,    /**< data missing, or not as the API describes it */
    DBH_ERROR_UNKNOWN_VERSION = 6,   /**< the API is served, but not in this major version */
    DBH_ERROR_TOO_MANY_ITEMS = 7,    /**< the collection is full; for APIs, not the library */
    DBH_ERROR_UNKNOWN_PATH = 8,      /**< no such node, or no such property of it */
    DBH_ERROR_NOT_DEFINED = 9,       /**< no such operation, or not for what the path names */
    DBH_ERROR_REQUEST_TOO_LARGE = 10 /**< longer than DBH_MAX_REQUEST_LENGTH */
} dbh_error_code;

/** Why a request fails: a code and a message. */
typedef struct dbh_api_error dbh_api_error_t;

/** Why there is no API or no answer. */
typedef struct dbh_error dbh_error_t;

/**
 * Makes an error and leaves it in a slot.
 *
 * The first error stays: nothing happens when the slot is filled already. What is not valid UTF-8
 * in the message is replaced by U+FFFD. Nothing happens either when `error` is NULL.
 *
 * @param error  slot that owns the error from then on; holds NULL or an error
 * @param code   see dbh_error_code
 * @param format of the message, as for printf()
 */
void dbh_api_error_new(dbh_api_error_t **error, int code, const char *format, ...)
    G_GNUC_PRINTF(3, 4);

/** Code of an error; DBH_ERROR_INTERNAL for NULL. */
int dbh_api_error_code(const dbh_api_error_t *error);

/** Message of an error, valid as long as it; an empty text for NULL. Never NULL. */
const char *dbh_api_error_message(const dbh_api_error_t *error);

/** Frees an error; NULL is accepted. Errors in the slot of an operation are freed by the library.
 */
void dbh_api_error_free(dbh_api_error_t *error);

/**
 * Message of an error, valid as long as it. "Unknown error" for NULL, which is what is left when
 * there was no memory for the error. Never NULL.
 */
const char *dbh_error_message(const dbh_error_t *error);

/** Frees an error; NULL is accepted. */
void dbh_error_free(dbh_error_t *error);

/**
 * What the type of a JSON value is called in error messages: "object", "array", "string",
 * "integer", "real", "boolean" or "null"; "nothing" for NULL. A static text.
 */
const char *dbh_json_type(const json_t *json);

/**
 * Whether an object has a field that it must not have. If so, the error
 * DBH_ERROR_MALFORMED_DATA "CONTEXT: Unexpected field NAME" names the first one, in the order of
 * the text that was parsed. A long name is cut, see DBH_MAX_QUOTED_LENGTH.
 *
 * @param json          an object; of anything else the result is false
 * @param context       what is being done, begins the message
 * @param allowed_names a list of texts that ends with NULL
 * @param error         slot as for dbh_api_error_new()
 */
bool dbh_json_object_contains_unexpected_field(const json_t *json, const char *context,
                                               const char *const *allowed_names,
                                               dbh_api_error_t **error);

/**
 * Characters that the library's own messages quote of a text from a request, at most. Behind what
 * was cut stands "...".
 */
#define DBH_MAX_QUOTED_LENGTH 64

G_END_DECLS

#endif
