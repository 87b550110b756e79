// The text of identifiers, and what is made of texts that are none.

#include <cctype>
#include <cstring>
#include <string>

#include "Fuzz.h"
#include "tovu/util/Format.h"
#include "tovu/util/GUID.h"

namespace tovu { namespace fuzz { namespace {

using util::GUID;

constexpr std::size_t BYTES = 16;

std::string Digits(std::string const& bytes, char const* format)
{
    std::string digits;
    for (char const byte : bytes)
        digits += util::FormatString(format, static_cast<unsigned>(static_cast<unsigned char>(byte)));
    return digits;
}

void CheckBytes(std::string const& bytes)
{
    std::string const text = Digits(bytes, "%02x");
    GUID const guid(text);
    Require(std::memcmp(guid.GetBytes(), bytes.data(), BYTES) == 0, "digits give their bytes");
    RequireEqual(text, guid.ToString(), "and the bytes give the digits");
    Require(guid == GUID(Digits(bytes, "%02X")), "capital digits count as well");
    Require(guid == GUID(text + "-and more"), "what follows does not count");
}

void CheckOrder(GUID const& a, GUID const& b)
{
    Require((a == b) == (a.ToString() == b.ToString()), "identifiers are equal when their texts are");
    Require((a < b) == (a.ToString() < b.ToString()), "identifiers are ordered as their texts are");
    Require((a != b) == (a < b || b < a), "of two that are not equal one is less");
}

// The value of what need not be a digit, in 8 bits.
unsigned Nibble(char character)
{
    int const code = character >= 'A' && character <= 'Z' ? character + 32 : character;
    return static_cast<unsigned>(character >= '0' && character <= '9' ? character - '0' : code - 87) & 0xFF;
}

void CheckText(std::string const& text)
{
    GUID const guid(text);
    for (std::size_t i = 0; i < BYTES; ++i)
        Require(guid.GetBytes()[i] == ((Nibble(text[2 * i]) * 16 + Nibble(text[2 * i + 1])) & 0xFF),
                "any character has the value that the arithmetic gives it");
    RequireEqual(guid.ToString(), GUID(guid.ToString()).ToString(), "the text of an identifier gives it back");
    CheckOrder(guid, GUID(text.substr(1) + text[0]));
}

}}}  // namespace tovu::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace tovu::fuzz;

    Input input(data, size);
    std::string text = input.TakeRest();
    text.resize(text.size() < 2 * BYTES ? 2 * BYTES : text.size());
    CheckText(text);
    CheckBytes(text.substr(0, BYTES));
    CheckOrder(GUID(text), GUID::Empty);
    return 0;
}
