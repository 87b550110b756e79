#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "tovu/util/Exception.h"

namespace volume {

/// Owns a descriptor that no stream of the library owns.
class Descriptor
{
public:
    explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : descriptor_(other.descriptor_) { other.descriptor_ = -1; }
    Descriptor(Descriptor const&) = delete;

    Descriptor& operator=(Descriptor other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }

    ~Descriptor()
    {
        if (descriptor_ != -1)
            close(descriptor_);
    }

    int Get() const { return descriptor_; }

private:
    int descriptor_;
};

/// Keeps a descriptor from the programs that jobs run: the library opens its own without that mark.
inline void CloseOnExec(int descriptor)
{
    if (fcntl(descriptor, F_SETFD, FD_CLOEXEC) == -1)
        throw tovu::util::Exception(__FILE__, __LINE__, tovu::util::Exception::FromErrorCode(errno));
}

}  // namespace volume
