#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Sockets.h"
#include "StreamSlots.h"
#include "tovu/util/BroadcastSocket.h"
#include "tovu/util/ClientBroadcastSocket.h"
#include "tovu/util/ClientSocket.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/FileStream.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/RandomSeekStream.h"
#include "tovu/util/ServerBroadcastSocket.h"
#include "tovu/util/ServerSocket.h"
#include "tovu/util/Socket.h"
#include "tovu/util/Stream.h"

// The order of the virtual operations of the streams, sockets among them.

namespace tovu { namespace util { namespace {

using test::ANY;
using test::ExpectSlots;
using test::Loopback;
using test::NotingSeekStream;
using test::NotingStream;
using test::SeekStreamSlots;
using test::SlotOf;
using test::StreamSlots;

// ---- Files and pipes.

TEST(AbiStreamSlotsTest, StreamHasTheSixOperations)
{
    ExpectSlots<NotingStream<Stream>>(StreamSlots());
}

class NotingRandomSeekStream : public NotingSeekStream<RandomSeekStream>
{
public:
    NotingRandomSeekStream() : NotingSeekStream(false) {}
};

TEST(AbiStreamSlotsTest, RandomSeekStreamHasFourMore)
{
    ExpectSlots<NotingRandomSeekStream>(SeekStreamSlots());
}

class NotingFileHandleStream : public NotingSeekStream<FileHandleStream>
{
public:
    void Open(std::string const& /*path*/, int /*flags*/, int /*mode*/) override { Note("Open"); }
    unsigned long long GetSize() override { return Note("GetSize"); }
    void SetSize(unsigned long long /*size*/) override { Note("SetSize"); }
};

TEST(AbiStreamSlotsTest, FileHandleStreamHasThreeMore)
{
    std::vector<test::Slot> slots = SeekStreamSlots();
    slots.push_back(SlotOf<void>("Open", ANY, 0, 0));
    slots.push_back(SlotOf<unsigned long long>("GetSize"));
    slots.push_back(SlotOf<void>("SetSize", 0ULL));
    ExpectSlots<NotingFileHandleStream>(slots);
}

TEST(AbiStreamSlotsTest, FileStreamHasThoseOfARandomSeekStream)
{
    ExpectSlots<NotingSeekStream<FileStream>>(SeekStreamSlots());
}

TEST(AbiStreamSlotsTest, PipeHasThoseOfAStream)
{
    ExpectSlots<NotingStream<Pipe>>(StreamSlots());
}

// ---- Sockets.

// One that has no descriptor.
template <typename Class>
class NotingClosedSocket : public NotingStream<Class>
{
public:
    NotingClosedSocket() : NotingStream<Class>(-1) {}
};

TEST(AbiStreamSlotsTest, SocketHasThoseOfAStream)
{
    ExpectSlots<NotingClosedSocket<Socket>>(StreamSlots());
}

TEST(AbiStreamSlotsTest, TenantSocketHasThoseOfASocket)
{
    ExpectSlots<NotingClosedSocket<TenantSocket>>(StreamSlots());
}

class NotingClient : public NotingStream<ClientSocket>
{
public:
    NotingClient() : NotingStream(ServerSocket(Loopback(), 1, true).GetHostAddress(), true) {}
};

TEST(AbiStreamSlotsTest, ClientSocketHasThoseOfASocket)
{
    ExpectSlots<NotingClient>(StreamSlots());
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface

class NotingServer : public NotingStream<ServerSocket>
{
public:
    NotingServer() : NotingStream(Loopback(), 1, true) {}
    void Listen(int /*backlog*/) override { Note("Listen"); }
    std::auto_ptr<Socket> Accept() override
    {
        Note("Accept");
        return std::auto_ptr<Socket>();
    }
};

TEST(AbiStreamSlotsTest, ServerSocketHasListenAndAccept)
{
    std::vector<test::Slot> slots = StreamSlots();
    slots.push_back(SlotOf<void>("Listen", 1));
    slots.push_back(SlotOf<std::auto_ptr<Socket>>("Accept"));
    ExpectSlots<NotingServer>(slots);
}

#pragma GCC diagnostic pop

template <typename Class>
class NotingBroadcastSocket : public NotingStream<Class>
{
public:
    NotingBroadcastSocket() : NotingStream<Class>(Loopback(), true) {}
};

TEST(AbiStreamSlotsTest, BroadcastSocketHasThoseOfASocket)
{
    ExpectSlots<NotingBroadcastSocket<BroadcastSocket>>(StreamSlots());
}

TEST(AbiStreamSlotsTest, ClientBroadcastSocketHasThoseOfASocket)
{
    ExpectSlots<NotingBroadcastSocket<ClientBroadcastSocket>>(StreamSlots());
}

TEST(AbiStreamSlotsTest, ServerBroadcastSocketHasThoseOfASocket)
{
    ExpectSlots<NotingBroadcastSocket<ServerBroadcastSocket>>(StreamSlots());
}

}}}  // namespace tovu::util
