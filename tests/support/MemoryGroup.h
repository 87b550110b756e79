#pragma once

#include <gtest/gtest.h>
#include <mntent.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "ChildOrSkip.h"

namespace tovu { namespace test {

/// Where the memory controller of control groups version 1 is mounted; empty when it is not.
inline std::string FindMemoryController()
{
    FILE* const mounts = setmntent("/proc/self/mounts", "r");
    if (mounts == nullptr)
        return "";
    std::string folder;
    while (mntent const* const entry = getmntent(mounts)) {
        if (std::string(entry->mnt_type) == "cgroup" && hasmntopt(entry, "memory") != nullptr)
            folder = entry->mnt_dir;
    }
    endmntent(mounts);
    return folder;
}

/// A control group of the memory controller for the length of a scope. For the body of ExpectPassesInChildOrSkips.
class MemoryGroup
{
public:
    /// \param mountPoint An empty folder, in which the controller is mounted when it is not mounted elsewhere. Other
    ///                   processes do not see that.
    explicit MemoryGroup(std::string const& mountPoint)
    {
        std::string controller = FindMemoryController();
        if (controller.empty()) {
            if (!EnterMountNamespace() || mount("none", mountPoint.c_str(), "cgroup", 0, "memory") == -1)
                SkipFromChild("this machine has no memory controller of control groups version 1");
            controller = mountPoint;
        }
        name_ = "tovuutil-test-" + std::to_string(getpid());
        folder_ = controller + "/" + name_;
        if (mkdir(folder_.c_str(), 0700) == -1)
            SkipFromChild("this process may not make a control group");
    }

    MemoryGroup(MemoryGroup const&) = delete;
    MemoryGroup& operator=(MemoryGroup const&) = delete;
    ~MemoryGroup() { EXPECT_EQ(0, rmdir(folder_.c_str())) << folder_; }

    std::string const& Folder() const { return folder_; }
    std::string const& Name() const { return name_; }

private:
    std::string name_;
    std::string folder_;
};

}}  // namespace tovu::test
