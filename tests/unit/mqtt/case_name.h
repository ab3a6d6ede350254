/** Lets the cases of a table test carry names. */
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace tovrel::test {

/** Base of a case; also how test output shows it. */
struct NamedCase {
    const char *name;

    friend std::ostream &operator<<(std::ostream &stream, const NamedCase &tested)
    {
        return stream << tested.name;
    }
};

/** Last argument of INSTANTIATE_TEST_SUITE_P. */
struct CaseName {
    template <typename Case>
    std::string operator()(const testing::TestParamInfo<Case> &tested) const
    {
        return tested.param.name;
    }
};

} // namespace tovrel::test
