#include "Prolog.h"

#include <strings.h>

#include <algorithm>
#include <boost/utility/string_view.hpp>
#include <cstring>
#include <iterator>

namespace volume {

namespace {

using Text = boost::string_view;
using Position = Text::size_type;

constexpr Text BLANKS(" \t\r\n", 4);
char const* const ACCEPTED_ENCODINGS[] = {"UTF-8", "US-ASCII", "ISO-8859-1"};

bool StartsWith(Text text, Position position, char const* start)
{
    return text.substr(position).starts_with(start);
}

Position Find(Text text, char const* what, Position position)
{
    void const* const found = memmem(text.data() + position, text.size() - position, what, std::strlen(what));
    return found != nullptr ? static_cast<Position>(static_cast<char const*>(found) - text.data()) : Text::npos;
}

bool IsBlank(Text text, Position position)
{
    return position < text.size() && BLANKS.find(text[position]) != Text::npos;
}

Position SkipBlanks(Text text, Position position)
{
    return std::min(text.find_first_not_of(BLANKS, position), text.size());
}

// Takes ` name = "value"` and moves behind it. Takes nothing where it does not stand.
bool TakeParameter(Text declaration, Position& position, char const* name, Text& value)
{
    Position next = SkipBlanks(declaration, position);
    if (!IsBlank(declaration, position) || !StartsWith(declaration, next, name))
        return false;
    next = SkipBlanks(declaration, next + std::strlen(name));
    if (next == declaration.size() || declaration[next] != '=')
        return false;
    next = SkipBlanks(declaration, next + 1);
    if (next == declaration.size() || (declaration[next] != '"' && declaration[next] != '\''))
        return false;
    Position const end = declaration.find(declaration[next], next + 1);
    if (end == Text::npos)
        return false;
    value = declaration.substr(next + 1, end - next - 1);
    position = end + 1;
    return true;
}

bool IsAcceptedEncoding(Text name)
{
    return std::any_of(std::begin(ACCEPTED_ENCODINGS), std::end(ACCEPTED_ENCODINGS), [&](Text accepted) {
        return name.size() == accepted.size() && strncasecmp(name.data(), accepted.data(), name.size()) == 0;
    });
}

// Word for word as the grammar of XML has it, so that no parser can read another encoding out of it: a declaration without
// "<?xml" and "?>".
Prolog InspectDeclaration(Text declaration)
{
    Position position = 0;
    Text version;
    if (!TakeParameter(declaration, position, "version", version) || (version != "1.0" && version != "1.1"))
        return Prolog::Malformed;

    Text encoding;
    if (TakeParameter(declaration, position, "encoding", encoding) && !IsAcceptedEncoding(encoding))
        return Prolog::Encoding;

    Text standalone;
    if (TakeParameter(declaration, position, "standalone", standalone) && standalone != "yes" && standalone != "no")
        return Prolog::Malformed;
    return SkipBlanks(declaration, position) == declaration.size() ? Prolog::Accepted : Prolog::Malformed;
}

// What stands behind the declaration: comments and processing instructions, and then the document element or what is to
// be refused.
Prolog InspectMisc(Text text, Position position)
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
        position = Find(text, end, position + (end[0] == '-' ? 4 : 2));
        if (position == Text::npos)
            return Prolog::Malformed;
        position += std::strlen(end);
    }
}

}  // namespace

Prolog InspectProlog(unsigned char const* data, unsigned length)
{
    Text const text(reinterpret_cast<char const*>(data), length);
    if (length != 0 && std::memchr(data, '\0', length) != nullptr)
        return Prolog::Encoding;

    Position position = StartsWith(text, 0, "\xEF\xBB\xBF") ? 3 : 0;
    if (StartsWith(text, position, "<?xml") && (IsBlank(text, position + 5) || StartsWith(text, position + 5, "?"))) {
        Position const end = Find(text, "?>", position);
        if (end == Text::npos)
            return Prolog::Malformed;
        Prolog const verdict = InspectDeclaration(text.substr(position + 5, end - position - 5));
        if (verdict != Prolog::Accepted)
            return verdict;
        position = end + 2;
    }
    return InspectMisc(text, position);
}

}  // namespace volume
