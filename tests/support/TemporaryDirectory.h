#pragma once

#include <string>

namespace tovu { namespace test {

/// An empty folder for one test, removed with everything in it at the end.
class TemporaryDirectory
{
public:
    TemporaryDirectory();
    TemporaryDirectory(TemporaryDirectory const&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;
    ~TemporaryDirectory();

    /// The path of `name` inside the folder.
    std::string operator/(std::string const& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/// The content of a file; fails the test when it cannot be read.
std::string ReadFile(std::string const& path);

/// Makes a file with this content; fails the test when it cannot.
void WriteFile(std::string const& path, std::string const& content);

}}  // namespace tovu::test
