#pragma once

#include <atomic>
#include <string>

#include "tovu/util/Socket.h"

namespace volume {

/// The client takes no answer, or has gone, or the service stops before it does. Deliberately no std::exception:
/// MessageProcessor takes those for faults of the message, logs the message, and would have it answered.
struct AnswerNotTaken
{
    std::string reason;
};

/// A connection to write to, with a limit to its patience.
///
/// The library's writers wait without limit for a client that does not read, and nothing can end that wait on a local
/// socket. Here each Write takes all of its bytes, in pieces, each when there is room for it, and returns only when
/// there is room for more: so a StreamWriter over it never has to wait.
///
/// Ownership: borrows the socket, which is in non-blocking mode, and the flag.
/// Threads: one thread. The flag may be set by any.
/// Errors: AnswerNotTaken when the client takes nothing for 30 seconds, when the connection breaks, and once `stopping`
/// is true.
class PatientSocket : public tovu::util::TenantSocket
{
public:
    PatientSocket(tovu::util::Socket const& socket, std::atomic<bool> const& stopping);

    int Write(void const* buffer, unsigned int length) override;

    /// How many bytes have been written so far.
    unsigned long long GetCount() const { return count_; }

private:
    void WriteAll(char const* bytes, unsigned length);
    void AwaitRoom() const;

    std::atomic<bool> const& stopping_;
    unsigned long long count_ = 0;
};

}  // namespace volume
