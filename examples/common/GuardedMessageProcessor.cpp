#include "GuardedMessageProcessor.h"

#include <algorithm>
#include <limits>

#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Stream.h"
#include "tovu/util/StreamSelector.h"

namespace volume {

using namespace tovu::util;

namespace {

constexpr unsigned CHUNK = 16 * 1024;

// What makes the framer drop the rest of a chunk.
constexpr unsigned EVERYTHING = std::numeric_limits<unsigned>::max();

}  // namespace

void GuardedMessageProcessor::ReadMessages(Stream& stream)
{
    while (!ended_) {
        StreamSelector selector;
        selector.AddStreamForReading(stream);
        if (selector.Select())
            ReadChunk(stream);
    }
}

void GuardedMessageProcessor::ReadChunk(Stream& stream)
{
    unsigned char chunk[CHUNK];
    int const count = stream.Read(chunk, CHUNK);
    if (count < 1) {
        EndReading();
        return;
    }

    auto const length = static_cast<unsigned>(count);
    pending_ += length;
    ProcessMessages(stream, chunk, length);
    if (!ended_ && pending_ > guard_.GetLimits().length) {
        Refuse(Verdict::TooLong, stream, pending_);
        EndReading();
    }
}

unsigned GuardedMessageProcessor::ParseMessage(Stream& stream, unsigned char const* data, unsigned length) const
{
    if (ended_)
        return EVERYTHING;
    pending_ -= std::min(pending_, length + GetDelimiter().second);  // a message may come from elsewhere, too
    if (length == 0)
        return 0;

    Verdict const verdict = guard_.Admit(data, length, [&] { MessageProcessor::ParseMessage(stream, data, length); });
    if (verdict != Verdict::Accepted)
        Refuse(verdict, stream, length);
    if (verdict == Verdict::TooLong)
        EndReading();
    return ended_ ? EVERYTHING : 0;
}

void GuardedMessageProcessor::HandleRefusal(Verdict /*reason*/, Stream& /*stream*/, unsigned /*length*/) const {}

void GuardedMessageProcessor::Refuse(Verdict reason, Stream& stream, unsigned length) const
{
    unsigned long const count = guard_.Count(reason);
    TOVU_LOG(LoggerMgr::LEVEL_WARNING, "A message of %u bytes is refused: %s (%lu so far).\n", length, Words(reason),
             count);
    HandleRefusal(reason, stream, length);
}

}  // namespace volume
