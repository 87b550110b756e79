#include "tovu/util/MessageWriter.h"

#include "Transfer.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace util {

// The bytes go out as they are. The delimiter that ends a message on the wire is the sender's to add, because only the
// sender knows whether the bytes are a whole message: some build one from several writes, and some send several
// messages in one.
//
// Neither is the mutex taken here: a sender that writes a message in pieces holds it around all of them, so that those
// of another thread do not come in between:
//
//     MessageWriter writer(stream);
//     ...
//     Mutex::Guard guard(writer.GetMutex());
//     writer.Write(head.data(), head.size());
//     writer.Write(body.data(), body.size());
//     writer.Write("", 1);  // the delimiter: the NUL of the empty text
//
// A message that fell short, with 0 from the stream or with an exception, leaves the peer with a part of it. What is
// written next would be taken for its rest, so the connection is of no more use: close it.
//
// A message of length 0 is no message on the wire, and Write returns before it looks at the stream. An empty message,
// that is a delimiter alone, is dropped by the reader.
//
// The receiver sees no boundary but the delimiter: what one Write sends may arrive in pieces, and what several send may
// arrive at once. Its framer puts the messages together again, see MessageProcessor. So it makes no difference to the
// reader how a message is cut into writes; to the sender fewer writes are cheaper, since each one is a wait and a
// system call.
//
// A peer that does not read stops the writer: it waits, without limit, as long as the connection lives. Shutting the
// socket down from another thread ends the wait on TCP, but not on a local socket, whose buffer stays full. Whoever has
// to stop at any time writes in non-blocking mode, and waits with a selector and a time-out of their own.
unsigned int MessageWriter::Write(void const* buffer, unsigned int length) const
{
    unsigned int const done = internal::WriteAll(stream_, buffer, length);
    if (done != length)
        TOVU_LOG(LoggerMgr::LEVEL_ERROR, "%s\n", "write failed.");
    return done;
}

}}  // namespace tovu::util
