#include "event/client/api.h"

namespace norq::event {

int report(const Status &status, GError **error)
{
    if (status) {
        return 1;
    }
    g_set_error_literal(error, EVENT_ERROR, status.code(), status.text().c_str());
    return 0;
}

} // namespace norq::event
