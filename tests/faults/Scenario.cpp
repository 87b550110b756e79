#include "Scenario.h"

#include <algorithm>
#include <cstring>

namespace tovu { namespace test {

Text& Text::Append(char const* text)
{
    std::size_t const room = sizeof(text_) - 1 - length_;
    std::size_t const length = std::min(room, std::strlen(text));
    std::memcpy(text_ + length_, text, length);
    length_ += length;
    text_[length_] = '\0';
    return *this;
}

Text& Text::operator<<(char const* text)
{
    if (length_ != 0)
        Append(" ");
    return Append(text);
}

Text& Text::AppendNumber(long long value)
{
    char digits[32];
    std::size_t start = sizeof(digits) - 1;
    digits[start] = '\0';
    bool const negative = value < 0;
    auto rest = static_cast<unsigned long long>(value);
    if (negative)
        rest = 0 - rest;
    do {
        digits[--start] = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    if (negative)
        digits[--start] = '-';
    return *this << digits + start;
}

void Text::Clear()
{
    length_ = 0;
    text_[0] = '\0';
}

}}  // namespace tovu::test
