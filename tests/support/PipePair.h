#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "tovu/util/Pipe.h"

namespace tovu { namespace test {

/// Two connected descriptors that nobody owns yet.
struct Ends
{
    int reading;
    int writing;
};

inline Ends MakePipe()
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(0, util::Pipe::CreatePipe(ends));
    return {ends[0], ends[1]};
}

/// Both ends read and write.
inline Ends MakeSocketPair()
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(0, socketpair(AF_LOCAL, SOCK_STREAM, 0, ends));
    return {ends[0], ends[1]};
}

/// The two ends of a pipe, each as a stream of its own.
template <typename Reader = util::Pipe, typename Writer = util::Pipe>
struct PipePair
{
    PipePair() : PipePair(MakePipe()) {}
    explicit PipePair(Ends ends) : reader(ends.reading), writer(ends.writing) {}

    Reader reader;
    Writer writer;
};

/// A Pipe that notes the length of each transfer that it is asked for, and whose transfers a test can replace.
class ScriptedPipe : public util::Pipe
{
public:
    explicit ScriptedPipe(int descriptor) : Pipe(descriptor) {}

    int Read(void* buffer, unsigned int length) override
    {
        lengths.push_back(length);
        return onRead ? onRead(buffer, length) : Pipe::Read(buffer, length);
    }

    int Write(void const* buffer, unsigned int length) override
    {
        lengths.push_back(length);
        return onWrite ? onWrite(buffer, length) : Pipe::Write(buffer, length);
    }

    std::vector<unsigned> lengths;
    std::function<int(void*, unsigned int)> onRead;
    std::function<int(void const*, unsigned int)> onWrite;
};

inline void SetNonBlocking(int descriptor, bool nonBlocking)
{
    int const flags = fcntl(descriptor, F_GETFL);
    EXPECT_EQ(0, fcntl(descriptor, F_SETFL, nonBlocking ? flags | O_NONBLOCK : flags & ~O_NONBLOCK));
}

/// Writes to a pipe or socket until it takes no more.
inline void FillUp(int descriptor)
{
    static char const block[4096] = "";
    SetNonBlocking(descriptor, true);
    while (write(descriptor, block, sizeof(block)) > 0)
        continue;
    SetNonBlocking(descriptor, false);
}

/// Takes the bytes that wait in a pipe, a socket or a FIFO.
inline std::string Drain(int descriptor)
{
    int waiting = 0;
    EXPECT_EQ(0, ioctl(descriptor, FIONREAD, &waiting));
    std::string bytes(static_cast<std::size_t>(waiting), '\0');
    if (waiting != 0) {
        EXPECT_EQ(waiting, read(descriptor, &bytes[0], bytes.size()));
    }
    return bytes;
}

}}  // namespace tovu::test
