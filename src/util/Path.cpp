#include "tovu/util/Path.h"

#include <sys/stat.h>

#include <algorithm>

#include "FileSystem.h"

namespace tovu { namespace util {

namespace {

constexpr char SLASH = '/';
constexpr char BACKSLASH = '\\';

bool IsSeparator(char character)
{
    return character == SLASH || character == BACKSLASH;
}

bool EndsWithSeparator(std::string const& path)
{
    return !path.empty() && IsSeparator(path.back());
}

// The last slash at or in front of `end`, and without one the last backslash there.
std::string::size_type FindLastSeparator(std::string const& path, std::string::size_type end = std::string::npos)
{
    std::string::size_type const slash = path.rfind(SLASH, end);
    return slash != std::string::npos ? slash : path.rfind(BACKSLASH, end);
}

// Where the full file name begins.
std::string::size_type FindName(std::string const& path)
{
    std::string::size_type const separator = FindLastSeparator(path);
    return separator == std::string::npos ? 0 : separator + 1;
}

// The last dot of the full file name, which begins at `name`.
std::string::size_type FindLastDot(std::string const& path, std::string::size_type name)
{
    std::string::size_type const dot = path.rfind('.');
    return dot == std::string::npos || dot < name ? std::string::npos : dot;
}

void AppendUnlessEmpty(std::list<std::string>& components, std::string const& path, std::string::size_type start,
                       std::string::size_type end)
{
    if (end != start)
        components.push_back(path.substr(start, end - start));
}

// Appends the components that end with this separator. Begins at `start` and returns where the rest begins.
std::string::size_type AppendEnded(std::list<std::string>& components, std::string const& path,
                                   std::string::size_type start, char separator)
{
    std::string::size_type end = path.find(separator, start);
    while (end != std::string::npos) {
        AppendUnlessEmpty(components, path, start, end);
        start = end + 1;
        end = path.find(separator, start);
    }
    return start;
}

}  // namespace

char Path::GetNativePathSeparator()
{
    return SLASH;
}

bool Path::Create(unsigned mode) const
{
    return mkdir(path_.c_str(), static_cast<mode_t>(mode)) == 0;
}

bool Path::Exists() const
{
    internal::FileStatus status;
    return internal::QueryFile(path_, status);
}

std::string Path::Basic() const
{
    return EndsWithSeparator(path_) ? path_.substr(0, path_.size() - 1) : path_;
}

std::string Path::Canonicalize() const
{
    if (EndsWithSeparator(path_))
        return path_;
    return MakePath(path_, std::string(1, SLASH));
}

std::string Path::ToNativePathSeparator() const
{
    std::string path = path_;
    std::replace(path.begin(), path.end(), BACKSLASH, SLASH);
    return path;
}

void Path::GetComponents(std::list<std::string>& components) const
{
    std::string::size_type const behindSlashes = AppendEnded(components, path_, 0, SLASH);
    std::string::size_type const last = AppendEnded(components, path_, behindSlashes, BACKSLASH);
    AppendUnlessEmpty(components, path_, last, path_.size());
}

std::string Path::GetFullFileName() const
{
    return path_.substr(FindName(path_));
}

std::string Path::GetFileName() const
{
    std::string::size_type const name = FindName(path_);
    std::string::size_type const dot = FindLastDot(path_, name);
    return path_.substr(name, std::min(dot, path_.size()) - name);
}

std::string Path::GetDirectory() const
{
    std::string::size_type const separator = FindLastSeparator(path_);
    return separator == std::string::npos ? std::string() : path_.substr(0, separator);
}

std::string Path::GetExtension() const
{
    std::string::size_type const dot = FindLastDot(path_, FindName(path_));
    return dot == std::string::npos ? std::string() : path_.substr(dot + 1);
}

std::string Path::RemovePrefix(std::string const& prefix) const
{
    bool const hasPrefix = path_.compare(0, prefix.size(), prefix) == 0;
    return hasPrefix ? path_.substr(prefix.size()) : path_;
}

std::string Path::GetDirectoryName() const
{
    std::string::size_type const last = FindLastSeparator(path_);
    if (last == std::string::npos)
        return path_;
    if (last != path_.size() - 1)
        return path_.substr(last + 1);
    if (last == 0)
        return std::string();

    std::string::size_type const previous = FindLastSeparator(path_, last - 1);
    std::string::size_type const start = previous == std::string::npos ? 0 : previous + 1;
    return path_.substr(start, last - start);
}

std::string MakePath(std::string const& a, std::string const& b)
{
    std::string path;
    path.reserve(a.size() + 1 + b.size());
    path += a;
    if (!a.empty() && !IsSeparator(a.back()) && !b.empty() && !IsSeparator(b.front()))
        path += SLASH;
    path += b;
    return path;
}

std::string RemoveTerminatingSlash(std::string const& s)
{
    bool const hasSlash = !s.empty() && s.back() == Path::GetNativePathSeparator();
    return s.substr(0, s.size() - (hasSlash ? 1 : 0));
}

}}  // namespace tovu::util
