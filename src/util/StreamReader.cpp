#include "tovu/util/StreamReader.h"

#include "Transfer.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Stream.h"
#include "tovu/util/StreamSelector.h"

namespace tovu { namespace util {

// The stream decides what one read brings: a socket what has arrived, a pipe what it holds, a file what is left of it.
// So a buffer takes any number of passes, each a wait and a read. A wait that a signal interrupts is taken up again; a
// read that throws, also for a signal, ends it, and what had come before is in the buffer but not counted.
//
// The selector is made anew for every pass, so that no descriptor of the last one is left in it. It takes streams that
// have a descriptor; the buffered FileStream it refuses with "Invalid stream.". A length of 0 returns before anything
// of this: the stream may even be closed.
//
// There is no time-out. Whoever needs one shuts the stream down from another thread (shutdown(2) for a socket), or
// waits with a selector of its own first.
unsigned int StreamReader::Read(void* buffer, unsigned int length) const
{
    auto const wait = [this] {
        StreamSelector selector;
        selector.AddStreamForReading(stream_);
        return selector.Select() && selector.IsStreamReadyForReading(stream_);
    };
    auto const read = [this, buffer](unsigned done, unsigned remaining) {
        return stream_.Read(static_cast<unsigned char*>(buffer) + done, remaining);
    };

    // Nothing read means that the peer has closed or that the file is at its end. The caller sees it by the count, the
    // operator in the log.
    unsigned int const done = internal::MoveAll(length, wait, read);
    if (done != length)
        TOVU_LOG(LoggerMgr::LEVEL_ERROR, "%s\n", "read failed.");
    return done;
}

}}  // namespace tovu::util
