#include "PatientSocket.h"

#include "tovu/util/Exception.h"
#include "tovu/util/StreamSelector.h"

namespace volume {

using namespace tovu::util;

namespace {

// How long a client may take nothing: this many waits of that length.
constexpr int PATIENCE = 300;
constexpr long WAIT_MICROSECONDS = 100000;

}  // namespace

PatientSocket::PatientSocket(Socket const& socket, std::atomic<bool> const& stopping)
    : TenantSocket(socket.GetDescriptor()), stopping_(stopping)
{}

int PatientSocket::Write(void const* buffer, unsigned int length)
{
    try {
        WriteAll(static_cast<char const*>(buffer), length);
        return static_cast<int>(length);
    } catch (Exception const& exception) {
        throw AnswerNotTaken{std::string("its connection broke: ") + exception.what()};
    }
}

void PatientSocket::WriteAll(char const* bytes, unsigned length)
{
    AwaitRoom();
    while (length != 0) {
        int const written = TenantSocket::Write(bytes, length);
        bytes += written;
        length -= static_cast<unsigned>(written);
        count_ += static_cast<unsigned>(written);
        AwaitRoom();
    }
}

void PatientSocket::AwaitRoom() const
{
    for (int i = 0; i < PATIENCE; ++i) {
        StreamSelector::TimeVal wait(0, WAIT_MICROSECONDS);
        do {
            if (stopping_)
                throw AnswerNotTaken{"the service stops"};

            StreamSelector selector;
            selector.AddStreamForWriting(*this);
            if (selector.Select(wait) && selector.IsStreamReadyForWriting(*this))
                return;
        } while (wait.tv_usec != 0);  // a signal has interrupted it, and the rest of the time is left
    }
    throw AnswerNotTaken{"the client does not read its answer"};
}

}  // namespace volume
