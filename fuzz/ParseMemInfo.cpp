// What the kernel tells about the memory, or any other text. The first line is the key.

#include <cstdlib>
#include <string>

#include "Fuzz.h"
#include "tovu/util/StatusParams.h"

namespace tovu { namespace fuzz { namespace {

char const* const WHITE_SPACE = " \t\n\v\f\r";

// What is to be left of the text.
std::string Left(std::string const& key, std::string const& text)
{
    std::string::size_type const found = text.find(key);
    if (found == std::string::npos)
        return text;
    std::string const behind = text.substr(found + key.size());
    std::string::size_type const unit = behind.find("kB");
    if (unit == std::string::npos)
        return behind;
    std::string number = behind.substr(0, unit);
    number.erase(0, number.find_first_not_of(WHITE_SPACE));
    number.erase(number.find_last_not_of(WHITE_SPACE) + 1);
    return number;
}

bool HasValue(std::string const& key, std::string const& text)
{
    std::string::size_type const found = text.find(key);
    return found != std::string::npos && text.find("kB", found + key.size()) != std::string::npos;
}

}}}  // namespace tovu::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace tovu::fuzz;

    Input input(data, size);
    std::string const key = input.TakeUntil("\n");
    std::string const text = input.TakeRest();

    std::string left = text;
    unsigned long long const value = tovu::util::StatusParams::ParseMemInfo(key, left);
    RequireEqual(Left(key, text), left, "the text is cut down to the number");
    Require(value == (HasValue(key, text) ? std::strtoull(left.c_str(), nullptr, 10) : 0),
            "the value is the number, and 0 without one");
    return 0;
}
