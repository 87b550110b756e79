#pragma once

#include <locale>
#include <string>

namespace tovu { namespace test {

/// Groups the digits of numbers in the process's global C++ locale for the length of a scope, as many countries do:
/// "1,234,567".
class DigitGroups
{
public:
    DigitGroups() : before_(std::locale::global(std::locale(std::locale::classic(), new Grouping))) {}
    DigitGroups(DigitGroups const&) = delete;
    DigitGroups& operator=(DigitGroups const&) = delete;
    ~DigitGroups() { std::locale::global(before_); }

private:
    struct Grouping : std::numpunct<char>
    {
        char do_thousands_sep() const override { return ','; }
        std::string do_grouping() const override { return "\3"; }
    };

    std::locale const before_;
};

}}  // namespace tovu::test
