#pragma once

#include <gtest/gtest.h>

#include <string>

namespace tovu { namespace test {

/// Names the cases of INSTANTIATE_TEST_SUITE_P after the `name` of their parameters.
struct ParameterName
{
    template <typename Parameter>
    std::string operator()(testing::TestParamInfo<Parameter> const& info) const
    {
        return info.param.name;
    }
};

}}  // namespace tovu::test
