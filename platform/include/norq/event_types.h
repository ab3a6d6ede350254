/**
 * Types shared by producers and consumers of the device's event service.
 *
 * Conventions of the whole library:
 *  - A function that returns `int` and has no other meaning documented returns non-zero on
 *    success and 0 on failure. Ids are non-negative; a negative id means failure.
 *  - `GError **error` may be NULL. It is set only on failure, in the domain EVENT_ERROR.
 *  - Texts are NUL-terminated UTF-8. Texts handed in are copied; texts given out as
 *    `const char *` belong to the object they were asked of and live as long as it does.
 *  - Passing NULL for an object is a programming error: it is logged as critical and the
 *    function returns its failure value. Every `_free` accepts NULL.
 */
#ifndef NORQ_EVENT_TYPES_H
#define NORQ_EVENT_TYPES_H

#include <glib.h>
#include <stdint.h>

G_BEGIN_DECLS

/** Most keys that one declaration or event may have, and most conditions of an expression. */
#define EVENT_MAX_KEYS 1024
/** Most tags of one key. */
#define EVENT_MAX_TAGS 64
/**
 * Longest key, namespace, tag, nice name or client name, in bytes without the NUL. Keys and tags
 * are not empty; an empty namespace or nice name is the same as none.
 */
#define EVENT_MAX_NAME 255
/**
 * Largest event, in bytes: the sum of the texts of its declaration (keys, namespaces, nice names,
 * tags), and of its values (an integer or double counts 8, a boolean 1). Also the largest sum of
 * the texts of a declaration or expression.
 */
#define EVENT_MAX_SIZE 262144
/** Most declarations of one producer, and most subscriptions of one consumer. */
#define EVENT_MAX_IDS 4096

/** What the value of a key is. The numbers are part of the interface. */
typedef enum event_value_type {
    EVENT_VALUE_INT = 1,     /**< signed 64-bit integer */
    EVENT_VALUE_BOOLEAN = 2, /**< "0" or "1" in text form */
    EVENT_VALUE_DOUBLE = 3,  /**< IEEE double, finite */
    EVENT_VALUE_STRING = 4   /**< UTF-8 text, may be empty */
} event_value_type;

/** A typed value on its way in. A string is borrowed for the call only. */
typedef struct event_value {
    event_value_type type;
    union {
        int64_t integer;
        int boolean; /**< 0 is false, everything else is true */
        double number;
        const char *string;
    } as;
} event_value_t;

/** Makes an integer value. */
static inline event_value_t event_value_int(int64_t integer)
{
    event_value_t value;
    value.type = EVENT_VALUE_INT;
    value.as.integer = integer;
    return value;
}

/** Makes a boolean value. */
static inline event_value_t event_value_boolean(int boolean)
{
    event_value_t value;
    value.type = EVENT_VALUE_BOOLEAN;
    value.as.integer = 0;
    value.as.boolean = boolean != 0;
    return value;
}

/** Makes a floating point value. */
static inline event_value_t event_value_double(double number)
{
    event_value_t value;
    value.type = EVENT_VALUE_DOUBLE;
    value.as.number = number;
    return value;
}

/** Makes a string value; `string` must stay valid until the call it is passed to returns. */
static inline event_value_t event_value_string(const char *string)
{
    event_value_t value;
    value.type = EVENT_VALUE_STRING;
    value.as.string = string;
    return value;
}

/** One event: prepared by a producer, or received by a consumer. Not thread-safe by itself. */
typedef struct event event_t;

/** Error domain of the event library. */
#define EVENT_ERROR (event_error_quark())
GQuark event_error_quark(void);

/** Codes in the domain EVENT_ERROR. */
typedef enum event_error {
    EVENT_ERROR_INVALID,     /**< an argument, text or limit is wrong */
    EVENT_ERROR_UNKNOWN_ID,  /**< the id is not declared, or belongs to another producer */
    EVENT_ERROR_UNKNOWN_KEY, /**< the declaration has no such key */
    EVENT_ERROR_FIXED_VALUE, /**< the key's value is fixed and differs */
    EVENT_ERROR_TYPE,        /**< the value is of another type than declared */
    EVENT_ERROR_UNSET_KEY,   /**< an open key was left unset when sending */
    EVENT_ERROR_UNAVAILABLE, /**< the event service cannot be reached, or did not take it in time */
    EVENT_ERROR_TOO_LARGE    /**< the event exceeds EVENT_MAX_SIZE */
} event_error;

G_END_DECLS

#endif
