#pragma once

#include <dirent.h>

#include <cstdint>
#include <string>
#include <xercesc/util/XercesDefs.hpp>

XERCES_CPP_NAMESPACE_BEGIN
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace tovu { namespace util {

/// Walks the entries of one folder.
/// \code
///     std::string listing;
///     Directory folder("/srv/volumes");
///     Directory::Entry entry;
///     for (bool more = folder.GetFirstEntry(entry); more; more = folder.GetNextEntry(entry))
///         listing += entry.ToString(0);
/// \endcode
///
/// Ownership: owns the open folder; not copyable.
/// Threads: one thread at a time.
/// Errors: none are thrown beyond std::bad_alloc; each operation says how it shows a failure.
class Directory
{
public:
    class Entry;

    /// Notes the path and asks for the folder's own dates. A folder that does not exist is no error here.
    explicit Directory(std::string const& path);

    Directory(Directory const&) = delete;
    Directory& operator=(Directory const&) = delete;
    ~Directory();

    /// Starts the walk, or starts it again: opens the folder and reads its first entry.
    /// \return False when the folder cannot be opened, or is empty; `entry` is unchanged then.
    bool GetFirstEntry(Entry& entry);

    /// Reads the next entry, in the order of readdir(3), "." and ".." included.
    /// \return False at the end, and when no walk was started; `entry` is unchanged then. The folder stays open.
    bool GetNextEntry(Entry& entry);

    /// Describes one item of this folder; a link is described itself, not what it points at. An item that cannot be
    /// examined, because it has gone meanwhile for example, gives Entry::Empty.
    ///
    /// Compiled into the caller, who alone knows the layout of a 32-bit program's `dirent`: `_FILE_OFFSET_BITS` changes it.
    void GetEntry(dirent const& item, Entry& entry) const { Describe(item.d_name, entry); }

    /// Ends the walk. May be called twice.
    void Close();

private:
    void Describe(std::string const& name, Entry& entry) const;

    std::string path_;
    DIR* stream_ = nullptr;  // null when closed

    // NOLINTBEGIN(misc-non-private-member-variables-in-classes): the interface has them beside operations
public:
    std::int32_t lastStatusDate;    ///< Of the folder itself, like the other two: as in Entry, -1 when it could not be
                                    ///< examined.
    std::int32_t lastAccessedDate;  ///< The last access.
    std::int32_t lastModifiedDate;  ///< The last modification.
    // NOLINTEND(misc-non-private-member-variables-in-classes)
};

/// One item of a folder: a plain value that travels as an XML element.
/// \code
///     Directory::Entry const entry("/srv/volumes/photos");
///     if (entry.type == Directory::Entry::TYPE_FOLDER)
///         entry.ToString(0);  // <Entry type = "folder" name = "photos" ...
/// \endcode
///
/// Dates are seconds since the Unix epoch; what lies outside of 32 bits becomes their first or last second.
///
/// Threads: as any value.
class Directory::Entry
{
public:
    static constexpr int TYPE_INVALID = 0;  ///< A device, a pipe, a socket; or unknown.
    static constexpr int TYPE_FILE = 1;     ///< A regular file.
    static constexpr int TYPE_FOLDER = 2;   ///< A folder.
    static constexpr int TYPE_LINK = 3;     ///< A symbolic link. Has no text of its own, so as XML it becomes invalid.

    /// Equal to Empty.
    Entry() noexcept;

    /// Describes what is at a path, links followed. When that fails, the entry is equal to Empty.
    explicit Entry(std::string const& path);

    /// Invalid, without a name, all dates -1, size 0: stands for what could not be examined.
    static Entry const Empty;

    /// "file" or "folder", and "invalid" for every other type, links included.
    static std::string type2string(int type);

    /// The type of exactly "file" or "folder", TYPE_INVALID for any other text.
    static int string2type(std::string const& text);

    /// The entry as one XML element, without a line end:
    /// \code{.xml}
    ///     <Entry type = "file" name = "a" lastStatusDate = "1" lastAccessedDate = "2" lastModifiedDate = "3" size = "4"/>
    /// \endcode
    /// The name stands there as it is: one that holds a double quote, an ampersand or a less-than sign breaks the
    /// document. Who lists folders of strangers passes such names through EncodeXMLCharEntities before.
    /// \param indent Accepted and ignored.
    std::string ToString(int indent) const;

    /// Reads the attributes of an element back, whatever its name. A missing attribute gives 0 or an empty name, and so
    /// does what is no number; nothing is reported.
    ///
    /// Requires: an element. Passes on what the parser's DOM throws.
    void Parse(xercesc::DOMNode const& node);

    int type;                       ///< One of the TYPE_ values.
    std::string name;               ///< Without its folder.
    std::int32_t lastStatusDate;    ///< The last change of the file's status, st_ctime of inode(7); -1 if unknown.
    std::int32_t lastAccessedDate;  ///< The last access, st_atime; -1 if unknown.
    std::int32_t lastModifiedDate;  ///< The last modification, st_mtime; -1 if unknown.
    std::uint64_t size;             ///< In bytes, as the file system reports it.
};

}}  // namespace tovu::util
