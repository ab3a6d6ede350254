/** The functions on declarations of norq/event_producer.h. */
#include "event/client/api.h"
#include "event/client/declaration_handle.h"

#include <norq/event_producer.h>

#include <optional>
#include <utility>

using namespace norq::event;

event_declaration_t *event_declaration_new(unsigned int flags, GError **error)
{
    if (!Declaration::areFlags(flags)) {
        g_set_error(error, EVENT_ERROR, EVENT_ERROR_INVALID, "unknown flags %u", flags);
        return nullptr;
    }
    return withBarrier<event_declaration_t *>("Making a declaration", nullptr, [flags] {
        return new event_declaration{Declaration(flags)};
    });
}

void event_declaration_free(event_declaration_t *declaration)
{
    delete declaration;
}

int event_declaration_add_key_value(event_declaration_t *declaration, const char *key,
                                    event_value_t value, GError **error)
{
    g_return_val_if_fail(declaration != nullptr && key != nullptr, 0);
    return reported(error, [&] {
        std::optional<Value> fixed;
        Status valid = Value::fromApi(value, fixed);
        return valid ? declaration->content.addFixedKey(key, std::move(*fixed)) : valid;
    });
}

int event_declaration_add_key(event_declaration_t *declaration, const char *key,
                              event_value_type type, GError **error)
{
    g_return_val_if_fail(declaration != nullptr && key != nullptr, 0);
    return reported(error, [&] { return declaration->content.addOpenKey(key, type); });
}

int event_declaration_set_name_space(event_declaration_t *declaration, const char *key,
                                     const char *name_space)
{
    g_return_val_if_fail(declaration != nullptr && key != nullptr, 0);
    return reported(nullptr,
                    [&] { return declaration->content.setNameSpace(key, viewOf(name_space)); });
}

int event_declaration_set_nice_names(event_declaration_t *declaration, const char *key,
                                     const char *key_nice_name, const char *value_nice_name)
{
    g_return_val_if_fail(declaration != nullptr && key != nullptr, 0);
    return reported(nullptr, [&] {
        return declaration->content.setNiceNames(key, viewOf(key_nice_name),
                                                 viewOf(value_nice_name));
    });
}

int event_declaration_add_key_tag(event_declaration_t *declaration, const char *key,
                                  const char *tag)
{
    g_return_val_if_fail(declaration != nullptr && key != nullptr && tag != nullptr, 0);
    return reported(nullptr, [&] { return declaration->content.addTag(key, tag); });
}

int event_declaration_set_property(event_declaration_t *declaration, const char *key,
                                   unsigned int flags, GError **error)
{
    g_return_val_if_fail(declaration != nullptr && key != nullptr, 0);
    return reported(error, [&] {
        return flags == 0 ? declaration->content.setProperty(key)
                          : Status::failure(EVENT_ERROR_INVALID, "flags must be 0");
    });
}
