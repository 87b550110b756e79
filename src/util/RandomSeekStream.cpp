#include "tovu/util/RandomSeekStream.h"

#include <cstdio>

namespace tovu { namespace util {

namespace {

unsigned long long InFileOrder(unsigned long long value, bool swapBytes)
{
    return swapBytes ? __builtin_bswap64(value) : value;
}

}  // namespace

RandomSeekStream::RandomSeekStream(bool swapBytes) : swapBytes_(swapBytes) {}

RandomSeekStream::~RandomSeekStream() noexcept(false) = default;

int RandomSeekStream::ReadAtOffset(unsigned long long offset, void* buffer, unsigned int length)
{
    SeekTo(offset);
    return Read(buffer, length);
}

int RandomSeekStream::WriteAtOffset(unsigned long long offset, void const* buffer, unsigned int length)
{
    SeekTo(offset);
    return Write(buffer, length);
}

unsigned long long RandomSeekStream::ReadPtr(unsigned long long offset)
{
    SeekTo(offset);
    unsigned long long value = 0;
    Read(&value, sizeof(value));
    return InFileOrder(value, swapBytes_);
}

int RandomSeekStream::WritePtr(unsigned long long offset, unsigned long long value)
{
    SeekTo(offset);
    unsigned long long const stored = InFileOrder(value, swapBytes_);
    return Write(&stored, sizeof(stored));
}

std::string RandomSeekStream::Readstring(unsigned long long offset)
{
    SeekTo(offset);
    std::string text;
    char byte = '\0';
    // Neither the result nor the byte is reset between the passes: callers only read what Writestring wrote.
    for (Read(&byte, 1); byte != '\0'; Read(&byte, 1))
        text += byte;
    return text;
}

int RandomSeekStream::Writestring(unsigned long long offset, std::string const& text)
{
    SeekTo(offset);
    return Write(text.c_str(), static_cast<unsigned int>(text.length() + 1));
}

void RandomSeekStream::SeekTo(unsigned long long offset)
{
    Seek(static_cast<long long>(offset), SEEK_SET);
}

}}  // namespace tovu::util
