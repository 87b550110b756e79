#include "SharedFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <limits>
#include <list>

#include "common/Protocol.h"
#include "tovu/util/Path.h"

namespace volume {

using tovu::util::Path;

namespace {

Descriptor Open(int folder, std::string const& name, int flags)
{
    Descriptor descriptor(openat(folder, name.c_str(), flags | O_CLOEXEC));
    if (descriptor.Get() == -1)
        throw Refusal{ERROR_NOT_FOUND};
    return descriptor;
}

std::list<std::string> Components(std::string const& path)
{
    std::list<std::string> components;
    Path(path).GetComponents(components);
    components.remove(".");
    if (components.empty() || path.find('\0') != std::string::npos)
        throw Refusal{ERROR_ARGUMENT};
    if (std::find(components.begin(), components.end(), "..") != components.end())
        throw Refusal{ERROR_ARGUMENT};
    return components;
}

// One component after the other, each looked up in the folder that is open already. A named pipe does not block.
Descriptor OpenBeneath(std::string const& root, std::list<std::string> components)
{
    std::string const name = components.back();
    components.pop_back();
    Descriptor folder = Open(AT_FDCWD, root, O_PATH | O_DIRECTORY);
    for (std::string const& component : components) {
        // cppcheck-suppress useStlAlgorithm ; a sum it is not
        folder = Open(folder.Get(), component, O_PATH | O_DIRECTORY | O_NOFOLLOW);
    }
    return Open(folder.Get(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
}

unsigned RegularSize(int file)
{
    struct stat status = {};
    if (fstat(file, &status) == -1 || !S_ISREG(status.st_mode))
        throw Refusal{ERROR_NOT_FOUND};
    if (status.st_size > std::numeric_limits<int>::max())
        throw Refusal{ERROR_TOO_LARGE};
    return static_cast<unsigned>(status.st_size);
}

}  // namespace

SharedFile::SharedFile(std::string const& folder, std::string const& path)
    : name_(Components(path).back()), file_(OpenBeneath(folder, Components(path))), size_(RegularSize(file_.Get()))
{}

std::string SharedFile::GetPath() const
{
    return "/proc/self/fd/" + std::to_string(file_.Get());
}

}  // namespace volume
