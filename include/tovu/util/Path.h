#pragma once

#include <list>
#include <string>

namespace tovu { namespace util {

/// Questions about a path's text, and two about the file system.
/// \code
///     std::string const file = "/srv/volumes/photos/index.db";
///     Path(file).GetFullFileName();  // "index.db"
///     Path(file).GetDirectory();     // "/srv/volumes/photos"
/// \endcode
///
/// A path is split at slashes. One without any slash is split at backslashes, because paths also come from clients that
/// write them so. "The last separator" is the last slash, or in a path without slashes the last backslash.
///
/// Ownership: borrows the text, which must outlive the Path.
/// Threads: any; no operation changes anything in the object.
/// Errors: none are thrown beyond std::bad_alloc. Create and Exists leave the reason of a failure in `errno`.
class Path
{
public:
    /// Borrows the text, and looks at nothing yet.
    explicit Path(std::string const& path) : path_(path) {}

    /// '/'
    static char GetNativePathSeparator();

    /// Makes the folder, see mkdir(2). Its parents must exist, and it must not.
    /// \param mode Its permission bits, reduced by the process's umask.
    bool Create(unsigned mode) const;

    /// True when stat(2) finds something there; links are followed.
    bool Exists() const;

    /// Without one separator at the end: "/a/b" for "/a/b/".
    std::string Basic() const;

    /// With a separator at the end: "/a/" for "/a" and for "/a/", "/" for an empty path. A backslash at the end counts
    /// as one and stays.
    std::string Canonicalize() const;

    /// With slashes in place of backslashes.
    std::string ToNativePathSeparator() const;

    /// Appends the components that are not empty: "a" and "b" for "/a//b/". A backslash separates only where no slash
    /// follows it any more.
    void GetComponents(std::list<std::string>& components) const;

    /// What stands behind the last separator: "b.tar.gz" for "/a/b.tar.gz", nothing for "/a/".
    std::string GetFullFileName() const;

    /// The full file name up to its last dot: "b.tar" for "/a/b.tar.gz", nothing for "/a/.profile".
    std::string GetFileName() const;

    /// What stands in front of the last separator: "/a" for "/a/b", nothing for "/a" and for "a".
    std::string GetDirectory() const;

    /// What stands behind the last dot of the full file name: "gz" for "/a/b.tar.gz".
    std::string GetExtension() const;

    /// Without `prefix`, when the path begins with these very bytes. No separator is taken off on top.
    std::string RemovePrefix(std::string const& prefix) const;

    /// The last component, with or without a separator behind it: "b" for "a/b" and for "a/b/".
    std::string GetDirectoryName() const;

private:
    std::string const& path_;
};

/// Joins two paths, with a slash between them unless one of them is empty or brings a separator. None is ever removed:
/// "a/" and "/b" give "a//b".
std::string MakePath(std::string const& a, std::string const& b);

/// Without one slash at the end. A backslash there stays, other than with Path::Basic.
std::string RemoveTerminatingSlash(std::string const& s);

}}  // namespace tovu::util
