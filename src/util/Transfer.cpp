#include "Transfer.h"

#include "tovu/util/Stream.h"
#include "tovu/util/StreamSelector.h"

namespace tovu { namespace util { namespace internal {

unsigned WriteAll(Stream& stream, void const* buffer, unsigned length)
{
    auto const wait = [&stream] {
        StreamSelector selector;
        selector.AddStreamForWriting(stream);
        return selector.Select() && selector.IsStreamReadyForWriting(stream);
    };
    auto const write = [&stream, buffer](unsigned done, unsigned remaining) {
        return stream.Write(static_cast<unsigned char const*>(buffer) + done, remaining);
    };
    return MoveAll(length, wait, write);
}

}}}  // namespace tovu::util::internal
