#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <string>

#include "Descriptors.h"
#include "TemporaryDirectory.h"

namespace tovu { namespace test {

/// A fixture with an empty folder that a test puts items into. At the end no descriptor may have been lost.
class DirectoryFixture : public testing::Test
{
protected:
    DirectoryFixture() { EXPECT_EQ(0, mkdir(path_.c_str(), 0700)); }
    ~DirectoryFixture() override { EXPECT_EQ(descriptors_, CountDescriptors()); }

    /// The path of an item.
    std::string In(std::string const& name) const { return path_ + "/" + name; }

    void MakeFile(std::string const& name, std::string const& content = "") const { WriteFile(In(name), content); }

    void MakeFolder(std::string const& name) const { EXPECT_EQ(0, mkdir(In(name).c_str(), 0700)); }

    void MakeLink(std::string const& target, std::string const& name) const
    {
        EXPECT_EQ(0, symlink(target.c_str(), In(name).c_str()));
    }

    void MakePipe(std::string const& name) const { EXPECT_EQ(0, mkfifo(In(name).c_str(), 0600)); }

    void MakeSocket(std::string const& name) const
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        In(name).copy(address.sun_path, sizeof(address.sun_path) - 1);
        int const descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
        EXPECT_EQ(0, bind(descriptor, reinterpret_cast<sockaddr const*>(&address), sizeof(address)));
        close(descriptor);
    }

    void RemoveFolder() const { EXPECT_EQ(0, rmdir(path_.c_str())); }

    /// How many descriptors were opened since the test began.
    std::size_t Opened() const { return CountDescriptors() - descriptors_; }

    std::size_t const descriptors_ = CountDescriptors();
    TemporaryDirectory const folder_;
    std::string const path_ = folder_ / "listed";
};

}}  // namespace tovu::test
