// The dump of any bytes, from which they can be read.

#include <algorithm>
#include <string>

#include "Fuzz.h"
#include "tovu/util/Format.h"

namespace tovu { namespace fuzz { namespace {

constexpr std::size_t BYTES_PER_LINE = 16;
constexpr std::size_t TEXT_COLUMN = 3 * BYTES_PER_LINE + 1;

// A byte as two digits and a blank; empty unless it is written that way.
std::string ReadByte(std::string const& written)
{
    std::string const digits = "0123456789abcdef";
    std::string::size_type const high = digits.find(written[0]);
    std::string::size_type const low = digits.find(written[1]);
    bool const isByte = high != std::string::npos && low != std::string::npos && written[2] == ' ';
    return isByte ? std::string(1, static_cast<char>(high * 16 + low)) : std::string();
}

// The bytes of one line, which has its line feed no more.
std::string ReadLine(std::string const& line)
{
    Require(line.size() > TEXT_COLUMN && line.size() <= TEXT_COLUMN + BYTES_PER_LINE, "a line has 1 to 16 characters");
    std::string const text = line.substr(TEXT_COLUMN);
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i)
        bytes += ReadByte(line.substr(3 * i, 3));
    Require(bytes.size() == text.size(), "there is a byte for each character");
    Require(line.find_first_not_of(' ', 3 * text.size()) >= TEXT_COLUMN, "blanks fill the columns");

    std::string expected = bytes;
    std::replace_if(
        expected.begin(), expected.end(), [](char byte) { return byte < ' ' || byte > '~'; }, '.');
    RequireEqual(expected, text, "what cannot be printed is a dot");
    return bytes;
}

}}}  // namespace tovu::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace tovu;
    using namespace tovu::fuzz;

    std::string const dump = util::HexFormatBuffer(data, static_cast<unsigned>(size));
    std::string const text = Input(data, size).TakeRest();
    RequireEqual(dump, util::HexFormatstring(text), "a text is dumped as its bytes");
    Require(dump.empty() || dump.back() == '\n', "a line feed ends each line");

    std::string bytes;
    for (Input lines(reinterpret_cast<unsigned char const*>(dump.data()), dump.size()); !lines.IsEmpty();) {
        Require(bytes.size() % BYTES_PER_LINE == 0, "only the last line is short");
        bytes += ReadLine(lines.TakeUntil("\n"));
    }
    RequireEqual(text, bytes, "the bytes can be read from the dump");
    return 0;
}
