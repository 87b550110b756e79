#pragma once

#include <string>

#include "Descriptor.h"

namespace volume {

/// A regular file inside a folder, opened for reading.
class SharedFile
{
public:
    /// Opens it, without ever leaving the folder: ".." is refused and so are links, also while somebody exchanges
    /// folders for links meanwhile. Throws Refusal.
    ///
    /// \param path Relative to the folder; a separator at its start means nothing.
    SharedFile(std::string const& folder, std::string const& path);

    std::string const& GetName() const { return name_; }

    /// The size in bytes, below 2 GiB.
    unsigned GetSize() const { return size_; }

    /// A path that leads to this very file for as long as the object lives, whatever becomes of its name.
    std::string GetPath() const;

private:
    std::string name_;  // the last component
    Descriptor file_;
    unsigned size_;
};

}  // namespace volume
