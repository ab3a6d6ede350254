/** JSON values for tests. */
#pragma once

#include "tovrelctl/json.h"

#include <gtest/gtest.h>

#include <string>

namespace tovrelctl::test {

/** A value of its text; the test fails when it is none. */
inline Json parsed(const std::string &text)
{
    json_error_t error;
    Json value(json_loads(text.c_str(), JSON_DECODE_ANY, &error));
    EXPECT_NE(value, nullptr) << error.text << " in " << text;
    return value;
}

} // namespace tovrelctl::test
