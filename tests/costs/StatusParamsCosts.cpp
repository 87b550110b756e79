#include "tovu/util/StatusParams.h"

#include <gtest/gtest.h>

#include <string>

#include "AllocationCounter.h"

namespace tovu { namespace util { namespace {

using test::AllocationCounter;

// Longer than what a string holds in itself.
std::string const VOLUME = "/srv/volumes/photographs";

// A registry that knows the one volume.
class StatusParamsCosts : public testing::Test
{
protected:
    StatusParamsCosts() { StatusParams::InsertNewEntry(VOLUME); }
    ~StatusParamsCosts() override { StatusParams::RemoveDiskInfo(VOLUME); }
};

TEST_F(StatusParamsCosts, AskingForAVolumeThatIsWellAllocatesNothing)
{
    StatusParams::DISK_INFO info;

    AllocationCounter const counter;
    EXPECT_TRUE(StatusParams::GetDiskInfo(VOLUME, info));
    EXPECT_TRUE(StatusParams::IsStatusNormal(VOLUME));
    EXPECT_FALSE(StatusParams::ResetStatusIfStalled(VOLUME));
    EXPECT_FALSE(StatusParams::IsSQLiteError_MemoryOrDiskSpace(VOLUME, 5));
    EXPECT_EQ(0U, counter.Blocks());
}

TEST_F(StatusParamsCosts, ANewVolumeIsOneNodeAndItsName)
{
    std::string const volume = VOLUME + "-of-2026";

    AllocationCounter const counter;
    StatusParams::InsertNewEntry(volume);
    EXPECT_EQ(2U, counter.Blocks());
    StatusParams::RemoveDiskInfo(volume);
    EXPECT_EQ(0, counter.HeldBytes());
}

TEST_F(StatusParamsCosts, AskingForTheSpaceAllocatesNothing)
{
    AllocationCounter const counter;
    EXPECT_TRUE(StatusParams::IsLowDiskSpace(VOLUME));
    EXPECT_EQ(0U, StatusParams::GetRemainingDiskSpace(VOLUME));
    EXPECT_EQ("0 bytes", StatusParams::GetFreeDiskSpace(VOLUME));
    EXPECT_EQ(0U, counter.Blocks());
}

TEST_F(StatusParamsCosts, ReadingANumberAllocatesNothing)
{
    std::string text = "MemTotal:        1026532 kB\nMemFree:          104232 kB\nMemAvailable:     655360 kB\n";

    AllocationCounter const counter;
    EXPECT_EQ(104232U, StatusParams::ParseMemInfo("MemFree:", text));
    EXPECT_EQ(0U, counter.Blocks());
}

}}}  // namespace tovu::util
