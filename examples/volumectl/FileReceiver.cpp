#include "FileReceiver.h"

#include <fcntl.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "AnswerReader.h"
#include "LocalError.h"
#include "ProgressBar.h"
#include "tovu/util/Exception.h"
#include "tovu/util/StreamReader.h"

namespace volume {

using namespace tovu::util;

namespace {

constexpr char const* STANDARD_OUTPUT = "-";
constexpr unsigned PIECE = 65536;

// How many bytes can be read at once; at least one, since the stream has been found ready.
unsigned CountReady(Stream& stream)
{
    unsigned long long ready = 0;
    if (!stream.IsDataAvailable(&ready))
        throw NoAnswer("the service closed the connection before the end of the file");
    return static_cast<unsigned>(std::min<unsigned long long>(ready, PIECE));
}

}  // namespace

FileReceiver::FileReceiver(std::string const& path)
    : path_(path), partPath_(path == STANDARD_OUTPUT ? "/dev/stdout" : path + ".part")
{}

FileReceiver::~FileReceiver()
{
    if (file_.IsOpen())
        RemovePart();
}

void FileReceiver::Receive(Stream& stream, unsigned long long size, std::string const& first)
{
    try {
        file_.Open(partPath_, O_WRONLY | O_CLOEXEC | (IsFile() ? O_CREAT | O_TRUNC : O_APPEND), 0644);
    } catch (Exception const& exception) {
        throw LocalError(EX_CANTCREAT, "cannot write " + partPath_ + ": " + exception.what());
    }

    ProgressBar bar(size);
    unsigned long long done = std::min<unsigned long long>(first.size(), size);
    Write(first.data(), static_cast<unsigned>(done));
    bar.Show(done);

    char piece[PIECE];
    while (done != size) {
        AwaitData(stream);
        auto const length = static_cast<unsigned>(std::min<unsigned long long>(CountReady(stream), size - done));
        StreamReader(stream).Read(piece, length);
        Write(piece, length);
        done += length;
        bar.Show(done);
    }
    Complete();
}

void FileReceiver::Write(char const* bytes, unsigned length)
{
    errno = ENOSPC;  // what a write that comes up short means, most of the time: it tells no error of its own
    try {
        file_.Write(bytes, length);
    } catch (Exception const& exception) {
        throw LocalError(EX_IOERR, "cannot write " + partPath_ + ": " + exception.what());
    }
}

// Closed before it is renamed, so that what a file system only reports then is not missed.
void FileReceiver::Complete()
{
    try {
        file_.Close();
        if (IsFile() && std::rename(partPath_.c_str(), path_.c_str()) == -1)
            throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    } catch (Exception const& exception) {
        RemovePart();
        throw LocalError(EX_IOERR, "cannot write " + path_ + ": " + exception.what());
    }
}

void FileReceiver::RemovePart() const
{
    if (IsFile())
        unlink(partPath_.c_str());
}

bool FileReceiver::IsFile() const
{
    return path_ != STANDARD_OUTPUT;
}

}  // namespace volume
