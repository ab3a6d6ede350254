/** Settings for people. */
#pragma once

#include "tovrelctl/json.h"
#include "tovrelctl/table.h"

namespace tovrelctl {

/** The settings of "publication", which has all of them. */
Table settingTable(const json_t *publication);

} // namespace tovrelctl
