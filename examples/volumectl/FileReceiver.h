#pragma once

#include <string>

#include "tovu/util/FileHandleStream.h"
#include "tovu/util/Stream.h"

namespace volume {

/// Receives the bytes that follow a File answer, into a file or to standard output.
///
/// A file has its name only once it is complete: until then it is called NAME.part, and it is removed when the transfer
/// fails.
class FileReceiver
{
public:
    /// \param path The file to write; "-" for standard output. A file that exists is replaced; what standard output holds
    ///             already, when it is one, stays.
    explicit FileReceiver(std::string const& path);
    FileReceiver(FileReceiver const&) = delete;
    FileReceiver& operator=(FileReceiver const&) = delete;
    ~FileReceiver();

    /// Receives `size` bytes, of which `first` have come already. Throws NoAnswer when they do not all come, LocalError
    /// when they cannot be written.
    void Receive(tovu::util::Stream& stream, unsigned long long size, std::string const& first);

private:
    void Write(char const* bytes, unsigned length);
    void Complete();
    void RemovePart() const;
    bool IsFile() const;

    std::string const path_;
    std::string const partPath_;  // what is written to
    tovu::util::FileHandleStream file_;
};

}  // namespace volume
