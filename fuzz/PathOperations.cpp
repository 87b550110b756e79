// Paths of any bytes.

#include <algorithm>
#include <list>
#include <string>

#include "Fuzz.h"
#include "tovu/util/Path.h"

namespace tovu { namespace fuzz { namespace {

using util::MakePath;
using util::Path;

bool IsSeparator(char character)
{
    return character == '/' || character == '\\';
}

bool EndsWithSeparator(std::string const& text)
{
    return !text.empty() && IsSeparator(text.back());
}

void CheckTheParts(std::string const& text)
{
    std::string const folder = Path(text).GetDirectory();
    std::string const name = Path(text).GetFullFileName();
    bool const isSplit = text.find_first_of("/\\") != std::string::npos;
    std::string const separator = isSplit ? text.substr(folder.size(), 1) : std::string();
    RequireEqual(text, folder + separator + name, "folder, separator and name are the path");
    Require(!isSplit || IsSeparator(separator[0]), "a separator parts them");

    // MakePath writes a slash, and none where a part is empty or brings one.
    bool const needsOne = !folder.empty() && !EndsWithSeparator(folder) && !name.empty() && !IsSeparator(name[0]);
    RequireEqual(folder + (needsOne ? "/" : "") + name, MakePath(folder, name), "MakePath puts the parts together");
    if (needsOne && separator == "/")
        RequireEqual(text, MakePath(folder, name), "a path of two parts is what it was");

    RequireEqual(name.empty() ? Path(Path(text).Basic()).GetFullFileName() : name, Path(text).GetDirectoryName(),
                 "a separator at the end is no part of the folder's name");
}

void CheckTheExtension(std::string const& text)
{
    std::string const name = Path(text).GetFullFileName();
    std::string const extension = Path(text).GetExtension();
    bool const hasDot = name.find('.') != std::string::npos;
    RequireEqual(name, Path(text).GetFileName() + (hasDot ? "." : "") + extension,
                 "file name, dot and extension are the full file name");
    Require(extension.find('.') == std::string::npos, "the last dot counts");
}

void CheckTheEnd(std::string const& text)
{
    std::string const basic = Path(text).Basic();
    std::string const canonical = Path(text).Canonicalize();
    RequireEqual(EndsWithSeparator(text) ? text.substr(0, text.size() - 1) : text, basic, "one separator is gone");
    RequireEqual(EndsWithSeparator(text) ? text : text + "/", canonical, "one separator is there");
    RequireEqual(basic, Path(canonical).Basic(), "Basic takes off what Canonicalize adds");

    std::string const trimmed = util::RemoveTerminatingSlash(text);
    RequireEqual(text, trimmed + (trimmed.size() < text.size() ? "/" : ""), "one slash is gone, nothing else");
}

void CheckTheComponents(std::string const& text)
{
    std::string const native = Path(text).ToNativePathSeparator();
    Require(native.size() == text.size() && native.find('\\') == std::string::npos, "no backslash is left");
    RequireEqual(native, Path(native).ToNativePathSeparator(), "and nothing is left to do");

    std::list<std::string> components(1, "first");
    Path(native).GetComponents(components);
    Require(components.front() == "first", "components are appended");
    components.pop_front();

    std::string joined;
    for (std::string const& component : components) {
        Require(!component.empty() && component.find('/') == std::string::npos, "no component is empty or has a slash");
        joined += "/" + component;
    }
    std::string expected = "/" + Path(native).Basic();
    expected.erase(std::unique(expected.begin(), expected.end(), [](char a, char b) { return a == '/' && b == '/'; }),
                   expected.end());
    RequireEqual(util::RemoveTerminatingSlash(expected), joined, "components keep their order, and none is lost");
}

}}}  // namespace tovu::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace tovu::fuzz;

    Input input(data, size);
    std::string const text = input.TakeUntil("\n");
    std::string const other = input.TakeRest();

    CheckTheParts(text);
    CheckTheExtension(text);
    CheckTheEnd(text);
    CheckTheComponents(text);
    RequireEqual(other, Path(text + other).RemovePrefix(text), "a prefix is taken off");
    std::string const joined = MakePath(text, other);
    RequireEqual(text, joined.substr(0, text.size()), "MakePath begins with the first path");
    RequireEqual(other, joined.substr(joined.size() - other.size()), "and ends with the second");

    std::string const impossible = "/dev/null/" + text;  // below what is no folder, nothing can be
    Require(!Path(impossible).Exists() && !Path(impossible).Create(0700), "a failure is false");
    return 0;
}
