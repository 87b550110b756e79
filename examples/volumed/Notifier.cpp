#include "Notifier.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "Descriptor.h"
#include "tovu/util/Exception.h"

namespace volume {

using tovu::util::Exception;
using tovu::util::Pipe;

Notifier::Notifier()
{
    int ends[2];
    if (Pipe::CreatePipe(ends) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    waiter_ = std::make_unique<Pipe>(ends[0]);
    notifier_ = std::make_unique<Pipe>(ends[1]);
    CloseOnExec(ends[0]);
    CloseOnExec(ends[1]);
    if (fcntl(notifier_->GetDescriptor(), F_SETFL, O_NONBLOCK) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

// The bare call, since only that may be made in a signal handler.
void Notifier::Notify() noexcept
{
    int const error = errno;
    char const byte = 0;
    ssize_t const written = write(notifier_->GetDescriptor(), &byte, sizeof(byte));
    static_cast<void>(written);
    errno = error;
}

void Notifier::Clear()
{
    char bytes[512];
    waiter_->Read(bytes, sizeof(bytes));
}

}  // namespace volume
