#include "tovu/util/GUID.h"

#include <cstring>
#include <fstream>
#include <stdexcept>

namespace tovu { namespace util {

namespace {

constexpr std::size_t SIZE = 16;
constexpr std::size_t TEXT_SIZE = 2 * SIZE;
constexpr char const* DIGITS = "0123456789abcdef";

// Whatever the process's locale takes for a letter: these digits are ASCII.
char ToLower(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

// The value of a digit. Other characters give what the arithmetic gives, in 8 bits.
unsigned char Nibble(char character)
{
    bool const decimal = character >= '0' && character <= '9';
    return static_cast<unsigned char>(decimal ? character - '0' : ToLower(character) - 'a' + 10);
}

int Compare(GUID const& left, GUID const& right)
{
    return std::memcmp(left.GetBytes(), right.GetBytes(), SIZE);
}

// Nobody looks at how many bytes come, nor at a read that fails.
void ReadBytes(std::filebuf& device, unsigned char* bytes)
{
    try {
        device.sgetn(reinterpret_cast<char*>(bytes), SIZE);
    } catch (std::ios_base::failure const&) {
        return;
    }
}

}  // namespace

GUID const GUID::Empty(static_cast<unsigned char>(0xFF));

GUID::GUID(unsigned char byte) noexcept : bytes_()
{
    std::memset(bytes_, byte, sizeof(bytes_));
}

GUID::GUID(std::string const& text) : bytes_()
{
    for (std::size_t i = 0; i < SIZE; ++i)
        bytes_[i] = static_cast<unsigned char>(Nibble(text[2 * i]) * 16 + Nibble(text[2 * i + 1]));
}

GUID GUID::FromRandom()
{
    std::filebuf device;           // the stream around it would look up the facets of its locale each time
    device.pubsetbuf(nullptr, 0);  // the default buffer would take 8 KiB from the device for these 16 bytes
    if (device.open("/dev/urandom", std::ios::in | std::ios::binary) == nullptr)
        throw std::runtime_error("failed to open random device.");

    GUID guid(static_cast<unsigned char>(0));
    ReadBytes(device, guid.bytes_);

    guid.bytes_[8] = static_cast<unsigned char>((guid.bytes_[8] & 0xBF) | 0x80);  // the variant
    guid.bytes_[6] = static_cast<unsigned char>((guid.bytes_[6] & 0x4F) | 0x40);  // the version
    return guid;
}

std::string GUID::ToString() const
{
    std::string text(TEXT_SIZE, '0');
    for (std::size_t i = 0; i < SIZE; ++i) {
        text[2 * i] = DIGITS[bytes_[i] >> 4];
        text[2 * i + 1] = DIGITS[bytes_[i] & 0xF];
    }
    return text;
}

bool operator==(GUID const& left, GUID const& right)
{
    return Compare(left, right) == 0;
}

bool operator!=(GUID const& left, GUID const& right)
{
    return Compare(left, right) != 0;
}

bool operator<(GUID const& left, GUID const& right)
{
    return Compare(left, right) < 0;
}

}}  // namespace tovu::util
