#pragma once

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>

#include "TemporaryDirectory.h"

namespace tovu { namespace test {

/// A locale in Latin-1, which need not be installed: that of "de_DE" for example. Not made where the machine has no
/// sources for it.
class LatinLocale
{
public:
    explicit LatinLocale(std::string const& name) : name_(name), isMade_(Make()) {}

    bool IsMade() const { return isMade_; }

    /// Makes it that of the process, which is a child that ends with the test: the place to look for locales changes.
    void Use() const
    {
        ASSERT_EQ(0, setenv("LOCPATH", (folder_ / "").c_str(), 1));
        ASSERT_NE(nullptr, std::setlocale(LC_ALL, name_.c_str()));
    }

private:
    bool Make() const
    {
        std::string const command = "localedef -i " + name_ + " -f ISO-8859-1 '" + (folder_ / name_) + "'";
        return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
    }

    TemporaryDirectory const folder_;
    std::string const name_;
    bool const isMade_;
};

}}  // namespace tovu::test
