// The example service with an allocator of its own: only where it was built with one.

#include "RunningService.h"

namespace volume { namespace {

class AllocatorTest : public RunningService
{
protected:
    void SetUp() override
    {
        RunningService::SetUp();
        if (!IsSkipped())
            StartService({});
    }
};

TEST_F(AllocatorTest, TheServiceHasItAndAnswers)
{
    std::string const libraries = tovu::test::ReadFile("/proc/" + std::to_string(service_) + "/maps");
    EXPECT_NE(std::string::npos, libraries.find("/lib" VOLUME_ALLOCATOR ".so"));

    std::unique_ptr<tovu::util::ClientSocket> const client = Connect();
    std::string burst;
    std::string expected;
    for (int i = 0; i < 200; ++i) {
        burst += Message("<Echo>" + std::to_string(i) + "</Echo>");
        expected += "<Echo>" + std::to_string(i) + "</Echo>|";
    }
    EXPECT_EQ(expected, Talk(*client, burst, 200));
}

}}  // namespace volume
