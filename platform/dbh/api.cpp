#include "dbh/api.h"

#include "dbh/error.h"

#include <exception>
#include <utility>

using norq::dbh::Description;
using norq::dbh::DescriptionError;
using norq::dbh::NodeTree;
using norq::dbh::reportFailure;

struct dbh_api {
    const dbh_api_descriptor_t *descriptor;
    void (*userDataFree)(void *userData);
    dbh_api_interface_t interface;
};

namespace {

dbh_api_t *create(const dbh_api_descriptor_t *descriptor, void *userData,
                  void (*userDataFree)(void *userData))
{
    if (descriptor == nullptr || descriptor->build == nullptr) {
        throw DescriptionError("there is no builder");
    }
    const char *name = descriptor->name;
    if (name == nullptr || *name == '\0' || !g_utf8_validate(name, -1, nullptr)) {
        throw DescriptionError("the API has no name");
    }
    if (descriptor->major_version < 0) {
        throw DescriptionError("the major version is negative");
    }
    return new dbh_api{.descriptor = descriptor,
                       .userDataFree = userDataFree,
                       .interface = {.name = name,
                                     .majorVersion = descriptor->major_version,
                                     .description = Description(NodeTree(descriptor->build())),
                                     .userData = userData}};
}

} // namespace

dbh_api_t *dbh_create_api(const dbh_api_descriptor_t *descriptor, void *user_data,
                          void (*user_data_free)(void *user_data), dbh_error_t **error)
{
    dbh_api_t *api = nullptr;
    try {
        api = create(descriptor, user_data, user_data_free);
    } catch (const std::exception &failure) {
        reportFailure(error, "Cannot create the API: %s", failure.what());
        return nullptr;
    }
    if (descriptor->created != nullptr) {
        descriptor->created(user_data);
    }
    return api;
}

const dbh_api_interface_t *dbh_get_api_interface(const dbh_api_t *api)
{
    return api != nullptr ? &api->interface : nullptr;
}

void dbh_delete_api(dbh_api_t *api)
{
    if (api == nullptr) {
        return;
    }
    void *userData = api->interface.userData;
    const auto userDataFree = api->userDataFree;
    if (api->descriptor->deleted != nullptr) {
        api->descriptor->deleted(userData);
    }
    delete api;
    if (userDataFree != nullptr) {
        userDataFree(userData);
    }
}

const dbh_options_t *dbh_request_context_get_options(const dbh_request_context_t *context)
{
    return context != nullptr ? &context->options : nullptr;
}

dbh_import_type dbh_options_get_import_type(const dbh_options_t *options)
{
    return options != nullptr ? options->importType : DBH_IMPORT_MERGE;
}
