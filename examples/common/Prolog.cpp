#include "Prolog.h"

#include <strings.h>

#include <algorithm>
#include <iterator>
#include <string>

namespace volume {

namespace {

using Position = std::string::size_type;

char const* const BLANKS = " \t\r\n";
char const* const ACCEPTED_ENCODINGS[] = {"UTF-8", "US-ASCII", "ISO-8859-1"};

bool StartsWith(std::string const& text, Position position, char const* start)
{
    return text.compare(position, std::char_traits<char>::length(start), start) == 0;
}

bool IsBlank(std::string const& text, Position position)
{
    return position < text.size() && std::char_traits<char>::find(BLANKS, 4, text[position]) != nullptr;
}

Position SkipBlanks(std::string const& text, Position position)
{
    return std::min(text.find_first_not_of(BLANKS, position), text.size());
}

// Takes ` name = "value"` and moves behind it. Takes nothing where it does not stand.
bool TakeParameter(std::string const& declaration, Position& position, char const* name, std::string& value)
{
    Position next = SkipBlanks(declaration, position);
    if (!IsBlank(declaration, position) || !StartsWith(declaration, next, name))
        return false;
    next = SkipBlanks(declaration, next + std::char_traits<char>::length(name));
    if (next == declaration.size() || declaration[next] != '=')
        return false;
    next = SkipBlanks(declaration, next + 1);
    if (next == declaration.size() || (declaration[next] != '"' && declaration[next] != '\''))
        return false;
    Position const end = declaration.find(declaration[next], next + 1);
    if (end == std::string::npos)
        return false;
    value = declaration.substr(next + 1, end - next - 1);
    position = end + 1;
    return true;
}

bool IsAcceptedEncoding(std::string const& name)
{
    return std::any_of(std::begin(ACCEPTED_ENCODINGS), std::end(ACCEPTED_ENCODINGS),
                       [&](char const* accepted) { return strcasecmp(name.c_str(), accepted) == 0; });
}

// Word for word as the grammar of XML has it, so that no parser can read another encoding out of it: a declaration without
// "<?xml" and "?>".
Prolog InspectDeclaration(std::string const& declaration)
{
    Position position = 0;
    std::string version;
    if (!TakeParameter(declaration, position, "version", version) || (version != "1.0" && version != "1.1"))
        return Prolog::Malformed;

    std::string encoding;
    if (TakeParameter(declaration, position, "encoding", encoding) && !IsAcceptedEncoding(encoding))
        return Prolog::Encoding;

    std::string standalone;
    if (TakeParameter(declaration, position, "standalone", standalone) && standalone != "yes" && standalone != "no")
        return Prolog::Malformed;
    return SkipBlanks(declaration, position) == declaration.size() ? Prolog::Accepted : Prolog::Malformed;
}

// What stands behind the declaration: comments and processing instructions, and then the document element or what is to
// be refused.
Prolog InspectMisc(std::string const& text, Position position)
{
    for (;;) {
        position = SkipBlanks(text, position);
        if (position == text.size() || text[position] != '<')
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

}  // namespace

Prolog InspectProlog(unsigned char const* data, unsigned length)
{
    std::string const text(reinterpret_cast<char const*>(data), length);
    if (text.find('\0') != std::string::npos)
        return Prolog::Encoding;

    Position position = StartsWith(text, 0, "\xEF\xBB\xBF") ? 3 : 0;
    if (StartsWith(text, position, "<?xml") && (IsBlank(text, position + 5) || StartsWith(text, position + 5, "?"))) {
        Position const end = text.find("?>", position);
        if (end == std::string::npos)
            return Prolog::Malformed;
        Prolog const verdict = InspectDeclaration(text.substr(position + 5, end - position - 5));
        if (verdict != Prolog::Accepted)
            return verdict;
        position = end + 2;
    }
    return InspectMisc(text, position);
}

}  // namespace volume
