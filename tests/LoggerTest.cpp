#include "tovu/util/Logger.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

#include "VirtualSlots.h"

namespace tovu { namespace util { namespace {

static_assert(std::is_abstract<Logger>::value, "Log is for the derived class");
static_assert(std::has_virtual_destructor<Logger>::value, "the manager deletes through this class");
static_assert(!std::is_copy_constructible<Logger>::value && !std::is_copy_assignable<Logger>::value, "non-copyable");

// Keeps the last line.
class Recorder : public Logger
{
public:
    void Log(std::string const& header, std::string const& message) override { last = header + "|" + message; }

    std::string last;
};

TEST(LoggerTest, CallsGoToTheDerivedClass)
{
    Recorder recorder;
    Logger& logger = recorder;
    logger.Log("header", "message\n");
    EXPECT_EQ("header|message\n", recorder.last);
}

TEST(LoggerTest, DeletesTheDerivedObject)
{
    using Counted = test::CountedObject<Recorder>;
    Counted::counts = {};
    std::unique_ptr<Logger>(new Counted).reset();
    EXPECT_EQ(1u, Counted::counts.destroyed);
    EXPECT_EQ(1u, Counted::counts.freed);
}

}}}  // namespace tovu::util
