#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

/// What a harness is: makes something of one input, and ends the process when a promise is broken. An exception that
/// comes out of it breaks one as well.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace tovu { namespace fuzz {

/// Ends the process and names the promise, unless it is kept.
inline void Require(bool kept, char const* promise)
{
    if (kept)
        return;
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}

/// As Require, and shows both texts.
inline void RequireEqual(std::string const& expected, std::string const& actual, char const* promise)
{
    if (expected != actual)
        std::fprintf(stderr, "expected: '%s'\ngot:      '%s'\n", expected.c_str(), actual.c_str());
    Require(expected == actual, promise);
}

inline unsigned char const* Bytes(std::string const& text)
{
    return reinterpret_cast<unsigned char const*>(text.data());
}

/// One input, from which a harness takes what it needs: first numbers and lines, then the rest.
class Input
{
public:
    Input(std::uint8_t const* data, std::size_t size) : rest_(reinterpret_cast<char const*>(data), size) {}

    bool IsEmpty() const { return rest_.empty(); }
    bool Has(std::string const& text) const { return rest_.find(text) != std::string::npos; }

    /// At most `size` bytes.
    std::string Take(std::size_t size)
    {
        std::string const taken = rest_.substr(0, size);
        rest_.erase(0, taken.size());
        return taken;
    }

    /// A number of that many bytes; those that are missing are 0.
    std::uint64_t TakeNumber(unsigned bytes)
    {
        std::uint64_t number = 0;
        for (char const byte : Take(bytes))
            number = number << 8 | static_cast<unsigned char>(byte);
        return number;
    }

    /// What stands in front of the next `end`, which goes as well; all when there is none.
    std::string TakeUntil(std::string const& end)
    {
        std::string::size_type const found = rest_.find(end);
        std::string const taken = Take(found);
        Take(end.size());
        return taken;
    }

    std::string TakeRest() { return Take(std::string::npos); }

private:
    std::string rest_;
};

}}  // namespace tovu::fuzz
