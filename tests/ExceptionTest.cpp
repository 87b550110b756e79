#include "tovu/util/Exception.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <limits>
#include <locale>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>
#include <xercesc/util/RuntimeException.hpp>

#include "ChildProcess.h"
#include "Interposition.h"
#include "NoThreads.h"
#include "ParameterName.h"
#include "ThrowingClose.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/XercesUtils.h"

namespace tovu { namespace util { namespace {

// What the calling thread's strerror answers while a text is set, and the number that it was asked for last.
struct ErrorTexts
{
    bool replaced;
    char* text;
    int askedFor;
};
thread_local ErrorTexts errorTexts = {false, nullptr, 0};

}}}  // namespace tovu::util

extern "C" char* strerror(int error) noexcept
{
    tovu::util::errorTexts.askedFor = error;
    if (tovu::util::errorTexts.replaced)
        return tovu::util::errorTexts.text;
    return tovu::test::NextFunction<char*(int)>("strerror")(error);
}

namespace tovu { namespace util { namespace {

static_assert(std::is_base_of<std::exception, Exception>::value, "callers catch std::exception");
static_assert(std::is_convertible<Exception*, std::exception*>::value, "the base is public");
static_assert(std::is_constructible<Exception, char const*, unsigned, std::string>::value, "the one constructor");
static_assert(!std::is_default_constructible<Exception>::value, "every Exception has a throw site");
static_assert(!std::is_constructible<Exception, std::string>::value, "every Exception has a throw site");
static_assert(std::is_copy_constructible<Exception>::value && std::is_copy_assignable<Exception>::value, "a value");
static_assert(std::is_nothrow_destructible<Exception>::value, "it is destroyed while another is on its way");
static_assert(std::is_nothrow_copy_constructible<Exception::Location>::value, "a plain pair");
static_assert(std::is_same<decltype(Exception::Location::file), char const*>::value, "points at a literal");
static_assert(std::is_same<decltype(Exception::Location::line), std::uint32_t>::value, "32 bits on every platform");
static_assert(noexcept(std::declval<Exception const&>().what()), "what never throws");

class ExceptionTest : public testing::Test
{
protected:
    // What a function does that wants to appear in the trail.
    static void SeenAt(Exception& exception, char const* file, std::uint32_t line)
    {
        exception.locations.push_back(Exception::Location(file, line));
    }

    Exception exception_{"src/Volume.cpp", 10, "The volume is gone."};
};

TEST_F(ExceptionTest, StartsWithTheThrowSiteAlone)
{
    ASSERT_EQ(1u, exception_.locations.size());
    EXPECT_STREQ("src/Volume.cpp", exception_.locations[0].file);
    EXPECT_EQ(10u, exception_.locations[0].line);
}

TEST_F(ExceptionTest, ReservesOneLocationAndNoMore)
{
    EXPECT_EQ(1u, exception_.locations.capacity());
}

TEST_F(ExceptionTest, PointsAtTheFileNameItWasGiven)
{
    static char const file[] = "src/Volume.cpp";
    EXPECT_EQ(file, Exception(file, 1, "").locations[0].file);
}

TEST_F(ExceptionTest, CopiesTheMessage)
{
    std::string message = "before";
    Exception const exception("a.cpp", 1, message);
    message.assign("changed");
    EXPECT_STREQ("before", exception.what());
}

TEST_F(ExceptionTest, WhatIsTheMessageWithoutTheTraceback)
{
    SeenAt(exception_, "src/Server.cpp", 20);
    EXPECT_STREQ("The volume is gone.", exception_.what());
}

TEST_F(ExceptionTest, WhatAnswersThroughTheStandardBase)
{
    std::exception const& base = exception_;
    EXPECT_STREQ("The volume is gone.", base.what());
}

TEST_F(ExceptionTest, CopiesAreEqualAndIndependent)
{
    Exception const copy(exception_);
    SeenAt(exception_, "src/Server.cpp", 20);
    EXPECT_STREQ("The volume is gone.", copy.what());
    EXPECT_EQ("thrown from src/Volume.cpp, line 10", copy.GetTracebackReport());
}

TEST_F(ExceptionTest, TracebackOfAFreshExceptionIsOneLine)
{
    EXPECT_EQ("thrown from src/Volume.cpp, line 10", exception_.GetTracebackReport());
}

TEST_F(ExceptionTest, TracebackNamesEachPlaceInTheOrderItWasPassed)
{
    SeenAt(exception_, "src/Server.cpp", 20);
    SeenAt(exception_, "src/Main.cpp", 30);
    EXPECT_EQ(
        "thrown from src/Volume.cpp, line 10\n"
        "  seen at src/Server.cpp, line 20\n"
        "  seen at src/Main.cpp, line 30",
        exception_.GetTracebackReport());
}

TEST_F(ExceptionTest, LinesAreUnsignedDecimals)
{
    SeenAt(exception_, "a.cpp", 0);
    SeenAt(exception_, "b.cpp", std::numeric_limits<std::uint32_t>::max());
    EXPECT_EQ("thrown from src/Volume.cpp, line 10\n  seen at a.cpp, line 0\n  seen at b.cpp, line 4294967295",
              exception_.GetTracebackReport());
}

// A locale that groups digits, as many countries do.
struct Grouping : std::numpunct<char>
{
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(ExceptionTest, LinesDoNotFollowTheLocale)
{
    std::locale const before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    std::string const traceback = Exception("a.cpp", 1234567, "").GetTracebackReport();
    std::locale::global(before);
    EXPECT_EQ("thrown from a.cpp, line 1234567", traceback);
}

TEST_F(ExceptionTest, NullThrowSiteEndsTheTracebackBeforeItsName)
{
    Exception exception(nullptr, 10, "message");
    SeenAt(exception, "src/Server.cpp", 20);
    EXPECT_EQ("thrown from ", exception.GetTracebackReport());
    EXPECT_EQ("message\nTraceback:\nthrown from ", exception.Report());
}

TEST_F(ExceptionTest, NullFileLaterKeepsWhatStandsBeforeIt)
{
    SeenAt(exception_, nullptr, 20);
    SeenAt(exception_, "src/Main.cpp", 30);
    EXPECT_EQ("thrown from src/Volume.cpp, line 10\n  seen at ", exception_.GetTracebackReport());
}

TEST_F(ExceptionTest, ReportIsMessageHeadingAndTraceback)
{
    SeenAt(exception_, "src/Server.cpp", 20);
    SeenAt(exception_, "src/Main.cpp", 30);
    EXPECT_EQ(
        "The volume is gone.\n"
        "Traceback:\n"
        "thrown from src/Volume.cpp, line 10\n"
        "  seen at src/Server.cpp, line 20\n"
        "  seen at src/Main.cpp, line 30",
        exception_.Report());
}

TEST_F(ExceptionTest, ReportOfAnEmptyMessageStartsWithTheHeading)
{
    EXPECT_EQ("\nTraceback:\nthrown from a.cpp, line 1", Exception("a.cpp", 1, "").Report());
}

TEST_F(ExceptionTest, ReportKeepsTheLinesOfTheMessage)
{
    EXPECT_EQ("one\ntwo\n\nTraceback:\nthrown from a.cpp, line 1", Exception("a.cpp", 1, "one\ntwo\n").Report());
}

TEST_F(ExceptionTest, ReportKeepsAZeroByteOfTheMessage)
{
    EXPECT_EQ(std::string("a\0b\nTraceback:\nthrown from a.cpp, line 1", 40),
              Exception("a.cpp", 1, {"a\0b", 3}).Report());
}

// Two functions that add themselves to the trail; each tells which object it saw.
void Inner(std::vector<void const*>& seen)
{
    try {
        throw Exception("throw.cpp", 10, "message");
    } catch (Exception& exception) {
        exception.locations.push_back(Exception::Location("inner.cpp", 20));
        seen.push_back(&exception);
        throw;
    }
}

void Outer(std::vector<void const*>& seen)
{
    try {
        Inner(seen);
    } catch (Exception& exception) {
        exception.locations.push_back(Exception::Location("outer.cpp", 30));
        seen.push_back(&exception);
        throw;
    }
}

TEST_F(ExceptionTest, RethrownExceptionIsTheSameObjectAndGrowsByOneAtEachHandler)
{
    std::vector<void const*> seen;
    try {
        Outer(seen);
        FAIL() << "nothing was thrown";
    } catch (Exception const& exception) {
        EXPECT_EQ((std::vector<void const*>{&exception, &exception}), seen);
        EXPECT_EQ(3u, exception.locations.size());
        EXPECT_EQ(
            "message\nTraceback:\nthrown from throw.cpp, line 10\n  seen at inner.cpp, line 20\n"
            "  seen at outer.cpp, line 30",
            exception.Report());
    }
}

class FromErrorCodeTest : public testing::Test
{
protected:
    ~FromErrorCodeTest() override { errorTexts.replaced = false; }

    static std::string Describe(int error, int code)
    {
        errno = error;
        return Exception::FromErrorCode(code);
    }

    // The description when the C library answers with this text.
    static std::string DescribeFor(char* text, int code)
    {
        errorTexts.text = text;
        errorTexts.replaced = true;
        return Exception::FromErrorCode(code);
    }
};

TEST_F(FromErrorCodeTest, DescribesErrnoWhateverTheCode)
{
    EXPECT_EQ("No such file or directory", Describe(ENOENT, EIO));
    EXPECT_EQ("Input/output error", Describe(EIO, ENOENT));
    EXPECT_EQ("Success", Describe(0, EIO));
}

TEST_F(FromErrorCodeTest, LooksErrnoUpAndNotTheCode)
{
    Describe(ENOSPC, EIO);
    EXPECT_EQ(ENOSPC, errorTexts.askedFor);
}

TEST_F(FromErrorCodeTest, DescribesAnUnknownErrorAsTheSystemDoes)
{
    EXPECT_EQ("Unknown error 4711", Describe(4711, 1));
}

struct TrimmingRow
{
    char const* text;
    char const* result;
};

class TrimmingTest : public FromErrorCodeTest, public testing::WithParamInterface<TrimmingRow>
{};

TEST_P(TrimmingTest, TakesLineEndsOffTheEndOnly)
{
    std::string text = GetParam().text;
    EXPECT_EQ(GetParam().result, DescribeFor(&text[0], EIO));
}

INSTANTIATE_TEST_SUITE_P(ErrorTexts, TrimmingTest,
                         testing::Values(TrimmingRow{"plain", "plain"},                                  //
                                         TrimmingRow{"one\n", "one"},                                    //
                                         TrimmingRow{"carriage return, line feed\r\n",                   //
                                                     "carriage return, line feed"},                      //
                                         TrimmingRow{"the other way round\n\r", "the other way round"},  //
                                         TrimmingRow{"several\n\n\n", "several"},                        //
                                         TrimmingRow{"\nfirst and\r\nbetween\n", "\nfirst and\r\nbetween"},
                                         TrimmingRow{"other blanks \t\n", "other blanks \t"},  //
                                         TrimmingRow{"\r\n\r\n", ""},                          //
                                         TrimmingRow{"", ""}));

TEST_F(FromErrorCodeTest, NamesTheCodeInBothBasesWhenThereIsNoText)
{
    EXPECT_EQ("[0x5:5 - Unable to find message text]", DescribeFor(nullptr, 5));
    EXPECT_EQ("[0xff:255 - Unable to find message text]", DescribeFor(nullptr, 255));
    EXPECT_EQ("[0x0:0 - Unable to find message text]", DescribeFor(nullptr, 0));
    EXPECT_EQ("[0xffffffff:-1 - Unable to find message text]", DescribeFor(nullptr, -1));
}

void ThrowXmlException()
{
    throw xercesc::RuntimeException("parser.cpp", 7, xercesc::XMLExcepts::Str_ZeroSizedTargetBuf);
}

std::string XmlExceptionText()
{
    try {
        ThrowXmlException();
    } catch (xercesc::XMLException const& exception) {
        return XMLCh2string(exception.getMessage());
    }
    return "nothing was thrown";
}

// One kind of exception that reaches a destructor, and the text for it.
struct CaughtRow
{
    char const* name;
    void (*thrower)();
    std::string (*text)();
};

// What a destructor does with it: a pipe's, whose close throws it.
class DestructorGuardTest : public testing::TestWithParam<CaughtRow>
{
protected:
    using Lines = std::vector<std::pair<std::string, std::string>>;

    // The lines queued while a pipe that cannot be closed is destroyed, with the log at this level.
    static Lines LinesOfFailure(unsigned level)
    {
        LoggerMgr& manager = LoggerMgr::Instance();
        {
            test::NoThreads noThreads;
            manager.Init("", level, LoggerMgr::HEADER_LEVEL | LoggerMgr::HEADER_LOCATION, 0);
        }

        std::unique_ptr<Pipe> pipe(new Pipe(open("/dev/null", O_RDONLY)));
        {
            test::ThrowingClose const failure(pipe->GetDescriptor(), GetParam().thrower);
            pipe.reset();
        }

        manager.Log(LoggerMgr::LEVEL_ERROR, "", 0, "the end");
        Lines lines;
        while (lines.empty() || lines.back().second != "the end")
            lines.push_back(manager.Deq());
        lines.pop_back();
        return lines;
    }
};

TEST_P(DestructorGuardTest, LogsWhatItCaughtAsAnError)
{
    test::ExpectPassesInChild([] {
        Lines const lines = LinesOfFailure(LoggerMgr::LEVEL_ERROR);
        ASSERT_EQ(1u, lines.size());
        EXPECT_EQ("Error src/util/Pipe.cpp:20 ", lines[0].first);
        EXPECT_EQ(GetParam().text() + "\n", lines[0].second);
    });
}

TEST_P(DestructorGuardTest, StaysSilentBelowTheErrorLevel)
{
    test::ExpectPassesInChild([] { EXPECT_TRUE(LinesOfFailure(0).empty()); });
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, DestructorGuardTest,
    testing::Values(CaughtRow{"Exception", [] { throw Exception("close.cpp", 7, "own"); },
                              [] { return std::string("own\nTraceback:\nthrown from close.cpp, line 7"); }},
                    CaughtRow{"StandardException", [] { throw std::runtime_error("standard"); },
                              [] { return std::string("standard"); }},
                    CaughtRow{"XmlException", &ThrowXmlException, &XmlExceptionText},
                    CaughtRow{"AnythingElse", [] { throw 7; },
                              [] { return std::string("Caught unknown exception!"); }}),
    test::ParameterName());

}}}  // namespace tovu::util
