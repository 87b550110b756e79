#pragma once

namespace tovu { namespace util {

class Stream;

namespace internal {

/// The loop behind StreamReader, StreamWriter and MessageWriter: moves bytes until `length` have gone or a call moves
/// none. What `wait` and `move` throw passes through.
///
/// \param wait `bool wait()` waits for the stream, and says whether it is ready; otherwise it is called again.
/// \param move `int move(unsigned done, unsigned remaining)` makes one call of the stream, for the bytes behind `done`.
/// \return The number of bytes moved.
template <typename Wait, typename Move>
unsigned MoveAll(unsigned length, Wait wait, Move move)
{
    unsigned done = 0;
    unsigned remaining = length;
    while (remaining != 0) {
        if (!wait())
            continue;

        auto const moved = static_cast<unsigned>(move(done, remaining));
        if (moved == 0)
            break;
        done += moved;
        remaining -= moved;
    }
    return done;
}

/// MoveAll for writing, with a fresh StreamSelector for every pass: what both writers do.
unsigned WriteAll(Stream& stream, void const* buffer, unsigned length) __attribute__((visibility("hidden")));

}  // namespace internal

}}  // namespace tovu::util
