#include "Prolog.h"

#include <strings.h>

#include <algorithm>
#include <iterator>
#include <string>

namespace volume {

namespace {

char const* const BLANKS = " \t\r\n";
char const* const ACCEPTED_ENCODINGS[] = {"UTF-8", "US-ASCII", "ISO-8859-1"};

bool StartsWith(std::string const& text, std::string::size_type position, char const* start)
{
    return text.compare(position, std::char_traits<char>::length(start), start) == 0;
}

// The value of encoding="..." in an XML declaration. Empty when it cannot be made out, which is refused like any other.
std::string DeclaredEncoding(std::string const& declaration, std::string::size_type encoding)
{
    std::string::size_type const equals = declaration.find_first_not_of(BLANKS, encoding + 8);
    if (equals == std::string::npos || declaration[equals] != '=')
        return std::string();
    std::string::size_type const open = declaration.find_first_not_of(BLANKS, equals + 1);
    if (open == std::string::npos || (declaration[open] != '"' && declaration[open] != '\''))
        return std::string();
    std::string::size_type const close = declaration.find(declaration[open], open + 1);
    if (close == std::string::npos)
        return std::string();
    return declaration.substr(open + 1, close - open - 1);
}

bool IsAcceptedDeclaration(std::string const& declaration)
{
    std::string::size_type const encoding = declaration.find("encoding");
    if (encoding == std::string::npos)
        return true;

    std::string const name = DeclaredEncoding(declaration, encoding);
    return std::any_of(std::begin(ACCEPTED_ENCODINGS), std::end(ACCEPTED_ENCODINGS),
                       [&](char const* accepted) { return strcasecmp(name.c_str(), accepted) == 0; });
}

}  // namespace

Prolog InspectProlog(unsigned char const* data, unsigned length)
{
    std::string const text(reinterpret_cast<char const*>(data), length);
    std::string::size_type position = StartsWith(text, 0, "\xEF\xBB\xBF") ? 3 : 0;

    if (StartsWith(text, position, "<?xml")) {
        std::string::size_type const end = text.find("?>", position);
        if (end == std::string::npos)
            return Prolog::Malformed;
        if (!IsAcceptedDeclaration(text.substr(position, end - position)))
            return Prolog::Encoding;
    }

    for (;;) {
        position = text.find_first_not_of(BLANKS, position);
        if (position == std::string::npos || text[position] != '<')
            return Prolog::Malformed;

        char const* end = nullptr;
        if (StartsWith(text, position, "<!--"))
            end = "-->";
        else if (StartsWith(text, position, "<?"))
            end = "?>";
        else
            return StartsWith(text, position, "<!") ? Prolog::DocumentType : Prolog::Accepted;

        // Searched from behind the opening, so that "<!-->" does not close itself.
        position = text.find(end, position + (end[0] == '-' ? 4 : 2));
        if (position == std::string::npos)
            return Prolog::Malformed;
        position += std::char_traits<char>::length(end);
    }
}

}  // namespace volume
