#include "dbh/call.h"

#include <cstring>

using norq::dbh::Arguments;
using norq::dbh::call;
using norq::dbh::GET;
using norq::dbh::Json;
using norq::dbh::LIST_KEYS;
using norq::dbh::shortenPath;

namespace {

bool addChild(const dbh_node_t &child, json_t *json, const Arguments &arguments) noexcept
{
    const auto &operation = child.kind == DBH_NODE_COLLECTION ? LIST_KEYS : GET;
    if (child.*operation.slot == nullptr) {
        return true;
    }
    const auto keys = g_queue_get_length(arguments.path);
    Json answer = call(operation, child, arguments);
    shortenPath(arguments.path, keys);
    if (answer == nullptr) {
        return false;
    }
    if (json_object_set_new(json, child.name, answer.release()) != 0) {
        dbh_api_error_new(arguments.error, DBH_ERROR_INTERNAL, "Cannot add %s to the answer",
                          child.name);
        return false;
    }
    return true;
}

} // namespace

bool dbh_add_to_json_from_children(const dbh_node_t *node, json_t *json, GQueue *path,
                                   const char *property, bool omit_read_only,
                                   dbh_api_error_t **error, dbh_request_context_t *context,
                                   void *user_data)
{
    if (property != nullptr || node->children == nullptr) {
        return true;
    }
    const Arguments arguments{.path = path,
                              .property = nullptr,
                              .omitReadOnly = omit_read_only,
                              .data = nullptr,
                              .error = error,
                              .context = context,
                              .userData = user_data};
    for (const GList *entry = node->children->head; entry != nullptr; entry = entry->next) {
        if (!addChild(*static_cast<const dbh_node_t *>(entry->data), json, arguments)) {
            return false;
        }
    }
    return true;
}

json_t *dbh_get_json_from_items(const dbh_node_t *node, const GQueue *keys, GQueue *path,
                                bool omit_read_only, dbh_api_error_t **error,
                                dbh_request_context_t *context, void *user_data)
{
    const Arguments arguments{.path = path,
                              .property = nullptr,
                              .omitReadOnly = omit_read_only,
                              .data = nullptr,
                              .error = error,
                              .context = context,
                              .userData = user_data};
    if (node->get == nullptr) {
        dbh_api_error_new(error, DBH_ERROR_INTERNAL, "Items of %s cannot be got",
                          context->api->description.pathOf(*node));
        return nullptr;
    }
    Json items(json_array());
    const auto length = g_queue_get_length(path);
    for (const GList *key = keys->head; key != nullptr; key = key->next) {
        g_queue_push_tail(path, strdup(static_cast<const char *>(key->data)));
        Json item = call(GET, *node, arguments);
        shortenPath(path, length);
        if (item == nullptr) {
            return nullptr;
        }
        if (json_array_append_new(items.get(), item.release()) != 0) {
            dbh_api_error_new(error, DBH_ERROR_INTERNAL, "Cannot add an item to the answer");
            return nullptr;
        }
    }
    return items.release();
}
