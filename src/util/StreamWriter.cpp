#include "tovu/util/StreamWriter.h"

#include <fcntl.h>

#include <algorithm>
#include <vector>

#include "Transfer.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace util {

namespace {

// Bounds the memory that a file of any size takes, and the time until a slow reader sees its first bytes.
constexpr unsigned TRANSFER_SIZE = 32768;

}  // namespace

// The stream decides how much one write takes: a socket in non-blocking mode what its send buffer has room for, one in
// blocking mode everything. A pipe throws instead of taking a part, so a pipe in non-blocking mode wants buffers that
// it has room for.
//
// A writer that meets a reader who has gone:
//
//   socket, pipe    the write throws, for EPIPE or ECONNRESET, and SIGPIPE comes first if it is not ignored
//   any stream      a result of 0 is the quiet way, of a derived class that takes no more; it is logged here
//
// A wait that a signal interrupts is taken up again, without limit. A closed stream is refused by the selector, with
// "Invalid stream."; so is one without a descriptor, the buffered FileStream. A length of 0 returns before anything of
// this, without a look at the stream.
//
// The caller of a write that fell short knows by the count how much has gone. There is no way to take it back: whoever
// was to read a message of it has to be told by closing the connection.
unsigned int StreamWriter::Write(void const* buffer, unsigned int length) const
{
    unsigned int const done = internal::WriteAll(stream_, buffer, length);
    if (done != length)
        TOVU_LOG(LoggerMgr::LEVEL_ERROR, "%s\n", "write failed.");
    return done;
}

// The size at the start decides, and neither result is looked at: a file that becomes shorter meanwhile is filled up
// with what the buffer holds, so the reader, who was told the size before, gets the number of bytes that it waits for.
void StreamWriter::WriteFile(std::string const& path) const
{
    FileHandleStream file;
    file.Open(path, O_RDONLY, 0600);

    std::vector<unsigned char> buffer(TRANSFER_SIZE);
    unsigned long long const size = file.IsOpen() ? file.GetSize() : 0;
    for (unsigned long long offset = 0; offset < size; offset += TRANSFER_SIZE) {
        unsigned const chunk = static_cast<unsigned>(std::min<unsigned long long>(TRANSFER_SIZE, size - offset));
        file.Read(buffer.data(), chunk);
        Write(buffer.data(), chunk);
    }
    file.Close();
}

}}  // namespace tovu::util
