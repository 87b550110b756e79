#include "tovu/util/Format.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>
#include <memory>
#include <sstream>

#include "FormatBuffer.h"

namespace tovu { namespace util {

namespace {

constexpr std::size_t TEXT_SIZE = 2048;  // of the buffer for the first pass over a text
constexpr unsigned BYTES_PER_LINE = 16;
constexpr unsigned HEX_SIZE = 3 * BYTES_PER_LINE + 1;          // three characters for each byte, and a blank
constexpr unsigned LINE_SIZE = HEX_SIZE + BYTES_PER_LINE + 1;  // the bytes as text, and a line feed

// The bytes as a text column shows them. The locale is asked once for each value that occurs.
class TextColumn
{
public:
    char Show(unsigned char byte)
    {
        char& shown = shown_[byte];
        if (shown == '\0')
            shown = std::isprint(byte) != 0 ? static_cast<char>(byte) : '.';
        return shown;
    }

private:
    char shown_[256] = {};
};

// A shorter last line has less text.
std::size_t HexDumpSize(std::size_t length)
{
    std::size_t const lines = (length + BYTES_PER_LINE - 1) / BYTES_PER_LINE;
    return lines * (HEX_SIZE + 1) + length;
}

// Puts one line of a hex dump together and writes it to the stream's buffer; fewer than 16 bytes are padded, so that the
// text column stays aligned.
void WriteHexLine(std::ostream& stream, unsigned char const* bytes, unsigned count, TextColumn& column)
{
    static char const digits[] = "0123456789abcdef";

    char line[LINE_SIZE];
    char* end = line;
    for (unsigned i = 0; i < count; ++i) {
        *end++ = digits[bytes[i] >> 4];
        *end++ = digits[bytes[i] & 0xf];
        *end++ = ' ';
    }
    end = std::fill_n(end, line + HEX_SIZE - end, ' ');
    for (unsigned i = 0; i < count; ++i)
        *end++ = column.Show(bytes[i]);
    *end++ = '\n';
    std::copy(line, end, std::ostreambuf_iterator<char>(stream));
}

}  // namespace

namespace internal {

std::string FormatGrowing(char* buffer, std::size_t size, char const* format, va_list arguments)
{
    std::unique_ptr<char[]> larger;
    for (;;) {
        va_list pass;
        va_copy(pass, arguments);
        int const length = std::vsnprintf(buffer, size, format, pass);
        va_end(pass);

        if (length != -1 && static_cast<std::size_t>(length) < size)
            return std::string(buffer, static_cast<std::size_t>(length));

        size *= 2;
        larger.reset();  // before the next one is taken: the text in it is of no use
        larger.reset(new char[size]);
        buffer = larger.get();
    }
}

}  // namespace internal

std::string FormatString(char const* format, ...)  // NOLINT(cert-dcl50-cpp): that is what it is for
{
    char buffer[TEXT_SIZE];
    va_list arguments;
    va_start(arguments, format);
    std::string text = internal::FormatGrowing(buffer, sizeof(buffer), format, arguments);
    va_end(arguments);
    return text;
}

std::string FormatStringHelper(char const* format, va_list arguments)
{
    char buffer[TEXT_SIZE];
    return internal::FormatGrowing(buffer, sizeof(buffer), format, arguments);
}

std::string HexFormatBuffer(void const* data, unsigned length)
{
    if (data == nullptr || length == 0)
        return std::string();

    // The stream has the dump's size from the start and is written through its buffer: it neither grows, nor does it
    // look at its own state for every byte.
    std::ostringstream stream(std::string(HexDumpSize(length), ' '));
    TextColumn column;
    auto const* bytes = static_cast<unsigned char const*>(data);
    while (length != 0) {
        unsigned const count = std::min(length, BYTES_PER_LINE);
        WriteHexLine(stream, bytes, count, column);
        bytes += count;
        length -= count;
    }
    return stream.str();
}

std::string HexFormatstring(std::string const& text)
{
    return HexFormatBuffer(text.data(), static_cast<unsigned>(text.size()));
}

std::string bool2string(bool value)
{
    return value ? "true" : "false";
}

std::string Encodestring(std::string const& text)
{
    return text;
}

std::string Decodestring(std::string const& text)
{
    return text;
}

}}  // namespace tovu::util
