#include "tovu/util/FileStream.h"

#include <cerrno>

#include "tovu/util/Exception.h"

namespace tovu { namespace util {

// The mode goes to fopen(3) as it is, extensions of the C library included: with "e" behind it, child processes do not
// inherit the file; with "x", a file that exists is refused. A folder can be opened for reading; it is Read that fails
// then, with EISDIR.
void FileStream::Open(std::string const& path, std::string const& mode)
{
    file_ = std::fopen(path.c_str(), mode.c_str());
    if (file_ == nullptr)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

void FileStream::Close()
{
    if (IsOpen()) {  // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall): a destructor means its own class's
        if (std::fclose(file_) != 0)
            throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
        file_ = nullptr;
    }
}

bool FileStream::Flush()
{
    if (!IsOpen())
        return false;
    if (std::fflush(file_) != 0)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return true;
}

namespace {

// Positions have 32 bits on every build. One that needs more cannot be told, and going there is an error. The file has
// moved then all the same: what follows happens at a position without a name, so seek to one that has a name first.
bool IsPosition(long position)
{
    if (position == static_cast<int>(position))
        return position != -1;
    errno = EOVERFLOW;
    return false;
}

}  // namespace

// The C library reads until `length` bytes are there, so fewer mean the end of the file or an error. After an error the
// bytes in front of it are in `buffer`, but how many they are nobody is told. On a terminal or a named pipe this waits
// for more than one line or one write of the other side; a Pipe or a FileHandleStream delivers what is there.
//
// The end of the file is remembered: bytes that another process appends later are seen after a Seek only.
int FileStream::Read(void* buffer, unsigned int length)
{
    std::size_t const count = std::fread(buffer, 1, length, file_);
    if (count != length && std::feof(file_) == 0)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return static_cast<int>(count);
}

// Nobody catches here, other than in the destructors of the other streams: that written bytes found no room on the
// device is not to be passed over in silence.
FileStream::~FileStream() noexcept(false)  // NOLINT(bugprone-exception-escape): that is what it is for
{
    FileStream::Close();
}

// The buffer serves one direction at a time: a file opened for both needs a Seek, or after a write a Flush, in between.
// Errors of the device (ENOSPC, EFBIG, EIO, EPIPE) come with the call that empties the buffer: a later Write, if at all.
int FileStream::Write(void const* buffer, unsigned int length)
{
    if (std::fwrite(buffer, 1, length, file_) != length)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return static_cast<int>(length);
}

bool FileStream::IsOpen() const
{
    return file_ != nullptr;
}

// The position of the next byte for the caller, whatever the buffer holds.
unsigned long long FileStream::Tell()
{
    long const position = std::ftell(file_);
    if (!IsPosition(position))
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return static_cast<unsigned long long>(position);
}

unsigned long long FileStream::Seek(long long offset, int whence)
{
    if (std::fseek(file_, static_cast<int>(offset), whence) != 0 || !IsPosition(std::ftell(file_)))
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return 0;
}

bool FileStream::IsDataAvailable(unsigned long long* count)
{
    unsigned long long remaining = 0;
    if (std::feof(file_) == 0) {
        unsigned long long const saved = Tell();
        Seek(0, SEEK_END);
        unsigned long long const end = Tell();
        Seek(static_cast<long long>(saved), SEEK_SET);
        remaining = end - Tell();
    }

    if (count != nullptr)
        *count = remaining;
    return remaining != 0;
}

void FileStream::LockRegion(Region const& /*region*/, bool /*exclusive*/) {}

void FileStream::UnlockRegion(Region const& /*region*/) {}

}}  // namespace tovu::util
