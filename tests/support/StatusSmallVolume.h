#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "ChildOrSkip.h"
#include "StatusRegistry.h"
#include "TemporaryDirectory.h"

namespace tovu { namespace test {

/// With a volume of 300 MiB, in memory, that only a child of the test sees.
class SmallVolumeFixture : public StatusFixture
{
protected:
    /// Runs `body` in the child, with the volume's path. The last call of a test: it may skip it.
    void OnASmallVolume(std::function<void(std::string const&)> const& body)
    {
        std::string const path = folder_ / "volume";
        ASSERT_EQ(0, mkdir(path.c_str(), 0700));
        ExpectPassesInChildOrSkips([&] {
            if (!EnterMountNamespace() || mount("none", path.c_str(), "tmpfs", 0, "size=300m") == -1)
                SkipFromChild("this machine gives a process no mounts of its own");
            body(path);
        });
    }

    /// Takes up space until only so much is free.
    static void LeaveFree(std::string const& volume, unsigned long long bytes)
    {
        int const descriptor = open((volume + "/filler").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        off_t const size = static_cast<off_t>(util::StatusParams::GetRemainingDiskSpace(volume) - bytes);
        EXPECT_EQ(0, posix_fallocate(descriptor, 0, size));
        close(descriptor);
    }

    static void GiveBack(std::string const& volume) { EXPECT_EQ(0, unlink((volume + "/filler").c_str())); }

    TemporaryDirectory const folder_;
};

}}  // namespace tovu::test
