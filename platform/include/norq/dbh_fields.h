/**
 * Typed fields: the values of properties with what is declared of them.
 *
 * A field is a plain structure that its user puts anywhere, initialises, uses and deinitialises.
 * Its members are the library's own. It starts unset. A value that breaks the declaration never
 * gets into it: the functions that set it fail and leave the field as it was.
 *
 * A field belongs to one thread at a time. Passing NULL for a field is a programming error: it is
 * logged as critical, and the call fails or gives what an unset field gives.
 */
#ifndef NORQ_DBH_FIELDS_H
#define NORQ_DBH_FIELDS_H

#include <norq/dbh_error.h>

G_BEGIN_DECLS

/**
 * Bytes of a text in a request, at most: no topic of MQTT is longer. What a backend sets itself may
 * be longer.
 */
#define DBH_MAX_TEXT_LENGTH 65535

/** A text: always valid UTF-8 without noncharacters when it is set. Members are private. */
typedef struct dbh_string {
    const char *name;
    char *value;
    int min_length;
    int max_length;
    const char *const *allowed_values;
} dbh_string_t;

/** A truth value. Members are private. */
typedef struct dbh_boolean {
    const char *name;
    bool value;
    bool is_set;
} dbh_boolean_t;

/**
 * Makes an unset field that accepts any text.
 *
 * @param name of the property, used in messages; must stay valid as long as the field
 */
void dbh_string_init(dbh_string_t *field, const char *name);

/**
 * Makes an unset field that accepts certain texts.
 *
 * @param name           as for dbh_string_init()
 * @param min_length     in characters (Unicode code points), -1 for no minimum
 * @param max_length     in characters, -1 for no maximum
 * @param allowed_values the only texts accepted, a list that ends with NULL and stays valid as long
 *                       as the field; NULL when every text is accepted
 */
void dbh_string_init_full(dbh_string_t *field, const char *name, int min_length, int max_length,
                          const char *const *allowed_values);

/** Frees the value. The field may be initialised again afterwards, nothing else. */
void dbh_string_deinit(dbh_string_t *field);

/** Whether the field has a value; an empty text is one. */
bool dbh_string_is_set(const dbh_string_t *field);

/** The value, valid until the field is set or deinitialised; NULL when it is unset. */
const char *dbh_string_value(const dbh_string_t *field);

/**
 * Whether a text is valid UTF-8 without noncharacters and fits the declaration; false for NULL.
 * Changes nothing.
 */
bool dbh_string_validate_value(const dbh_string_t *field, const char *value);

/**
 * Sets the field to a copy of a text.
 *
 * Made for backends that fill an answer: a value that does not fit is their failure, so the error
 * is DBH_ERROR_INTERNAL, with the messages of dbh_string_deserialize() and "Value is not valid
 * UTF-8" or "Value is missing" (NULL) after "Property NAME: ".
 *
 * @param error slot as for dbh_api_error_new()
 * @return whether the field has the value now
 */
bool dbh_string_set(dbh_string_t *field, const char *value, dbh_api_error_t **error);

/** The value as a new JSON string; NULL when the field is unset or memory is exhausted. */
json_t *dbh_string_serialize(const dbh_string_t *field);

/**
 * Sets the field from JSON. Errors are DBH_ERROR_MALFORMED_DATA with one of the messages
 *
 *  - "Property NAME: Expected JSON string but got TYPE" (TYPE as dbh_json_type() has it),
 *  - "Property NAME: Value contains a NUL character",
 *  - "Property NAME: Value is longer than 65535 bytes",
 *  - "Property NAME: Value is shorter than N characters",
 *  - "Property NAME: Value is longer than N characters",
 *  - "Property NAME: Value VALUE is not one of A, B, C" (a long VALUE cut).
 *
 * @return whether the field has the value now
 */
bool dbh_string_deserialize(dbh_string_t *field, const json_t *json, dbh_api_error_t **error);

/** Makes an unset field; `name` as for dbh_string_init(). */
void dbh_boolean_init(dbh_boolean_t *field, const char *name);

/** Ends the use of the field. The field may be initialised again afterwards, nothing else. */
void dbh_boolean_deinit(dbh_boolean_t *field);

/** Whether the field has a value. */
bool dbh_boolean_is_set(const dbh_boolean_t *field);

/** The value; false when the field is unset. */
bool dbh_boolean_value(const dbh_boolean_t *field);

/** Sets the field. Fails, with an error as for dbh_string_set(), for a NULL field only. */
bool dbh_boolean_set(dbh_boolean_t *field, bool value, dbh_api_error_t **error);

/** The value as a JSON true or false; NULL when the field is unset. */
json_t *dbh_boolean_serialize(const dbh_boolean_t *field);

/**
 * Sets the field from JSON. The error is DBH_ERROR_MALFORMED_DATA "Property NAME: Expected JSON
 * boolean but got TYPE". Numbers are no booleans.
 *
 * @return whether the field has the value now
 */
bool dbh_boolean_deserialize(dbh_boolean_t *field, const json_t *json, dbh_api_error_t **error);

G_END_DECLS

#endif
