#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace tovu { namespace test {

/// Sets a variable of this process's environment for the length of a scope, or takes it out with a null value.
class EnvironmentVariable
{
public:
    EnvironmentVariable(char const* name, char const* value) : name_(name)
    {
        if (char const* const before = std::getenv(name)) {
            wasSet_ = true;
            before_ = before;
        }
        Set(value);
    }

    EnvironmentVariable(char const* name, std::string const& value) : EnvironmentVariable(name, value.c_str()) {}
    EnvironmentVariable(EnvironmentVariable const&) = delete;
    EnvironmentVariable& operator=(EnvironmentVariable const&) = delete;
    ~EnvironmentVariable() { Set(wasSet_ ? before_.c_str() : nullptr); }

private:
    void Set(char const* value) const { EXPECT_EQ(0, value != nullptr ? setenv(name_, value, 1) : unsetenv(name_)); }

    char const* name_;
    bool wasSet_ = false;
    std::string before_;
};

}}  // namespace tovu::test
