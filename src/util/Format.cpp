#include "tovu/util/Format.h"

#include <cctype>
#include <cstdio>
#include <memory>
#include <sstream>

#include "FormatBuffer.h"

namespace tovu { namespace util {

namespace {

constexpr unsigned BYTES_PER_LINE = 16;

// Writes one line of a hex dump; fewer than 16 bytes are padded, so that the text column stays aligned.
void WriteHexLine(std::ostream& stream, unsigned char const* bytes, unsigned count)
{
    static char const digits[] = "0123456789abcdef";

    for (unsigned i = 0; i < count; ++i)
        stream.put(digits[bytes[i] >> 4]).put(digits[bytes[i] & 0xf]).put(' ');
    stream.put(' ');

    for (unsigned i = count; i < BYTES_PER_LINE; ++i)
        stream << "   ";

    for (unsigned i = 0; i < count; ++i)
        stream.put(std::isprint(bytes[i]) != 0 ? static_cast<char>(bytes[i]) : '.');
    stream.put('\n');
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
    va_list arguments;
    va_start(arguments, format);
    std::string text = FormatStringHelper(format, arguments);
    va_end(arguments);
    return text;
}

std::string FormatStringHelper(char const* format, va_list arguments)
{
    char buffer[2048];
    return internal::FormatGrowing(buffer, sizeof(buffer), format, arguments);
}

std::string HexFormatBuffer(void const* data, unsigned length)
{
    if (data == nullptr || length == 0)
        return std::string();

    std::ostringstream stream;
    auto const* bytes = static_cast<unsigned char const*>(data);
    for (; length >= BYTES_PER_LINE; bytes += BYTES_PER_LINE, length -= BYTES_PER_LINE)
        WriteHexLine(stream, bytes, BYTES_PER_LINE);
    if (length != 0)
        WriteHexLine(stream, bytes, length);
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
