#include "tovu/util/GUID.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <locale>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "ChildOrSkip.h"
#include "Descriptors.h"
#include "Latch.h"
#include "LatinLocale.h"
#include "Sanitizers.h"
#include "TemporaryDirectory.h"

namespace tovu { namespace util { namespace {

static_assert(std::is_standard_layout<GUID>::value && std::is_trivially_copyable<GUID>::value, "a plain value");
static_assert(std::is_trivially_destructible<GUID>::value && !std::is_polymorphic<GUID>::value, "a plain value");
static_assert(std::is_same<decltype(GUID::Empty), GUID const>::value, "a constant");
static_assert(std::is_same<decltype(&GUID::FromRandom), GUID (*)()>::value, "FromRandom belongs to the class");
static_assert(!std::is_convertible<std::string, GUID>::value, "reading a text is said in words");

std::string const SAMPLE = "0123456789abcdeffedcba9876543210";
std::string const DASHED = "01234567-89ab-cdef-fedc-ba9876543210";

// ---- The text form.

TEST(GUIDTest, HoldsTheBytesInTheOrderOfTheText)
{
    GUID const guid(SAMPLE);
    unsigned char const expected[] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF,
                                      0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10};
    EXPECT_TRUE(std::equal(std::begin(expected), std::end(expected), guid.GetBytes()));
    EXPECT_EQ(reinterpret_cast<unsigned char const*>(&guid), guid.GetBytes());
}

TEST(GUIDTest, TextComesBackAsItWas)
{
    for (std::string const& text : {SAMPLE, std::string(32, '0'), std::string(32, '9'), std::string(32, 'a'),
                                    std::string("00000000000000000000000000000001")})
        EXPECT_EQ(text, GUID(text).ToString());
}

TEST(GUIDTest, EveryByteHasTwoLowerCaseDigits)
{
    char const* const digits = "0123456789abcdef";
    for (int byte = 0; byte < 256; ++byte) {
        std::string const text = std::string(30, '0') + digits[byte / 16] + digits[byte % 16];
        EXPECT_EQ(byte, GUID(text).GetBytes()[15]);
        EXPECT_EQ(text, GUID(text).ToString());
    }
}

TEST(GUIDTest, UpperCaseIsReadAndLowerCaseWritten)
{
    EXPECT_EQ(SAMPLE, GUID("0123456789ABCDEFFEDCBA9876543210").ToString());
    EXPECT_EQ(GUID(std::string(32, 'f')), GUID("fFfFfFfFfFfFfFfFFfFfFfFfFfFfFfFf"));
}

TEST(GUIDTest, CharactersBeyondThirtyTwoAreIgnored)
{
    EXPECT_EQ(SAMPLE, GUID(SAMPLE + "zz-0").ToString());
}

TEST(GUIDTest, DashesAreNotSkipped)
{
    EXPECT_NE(GUID(SAMPLE), GUID(DASHED));
    EXPECT_EQ("01234567689a86cdef6fed96ba987654", GUID(DASHED).ToString());
}

// The value of a character by the rule for all of them, in 8 bits.
int ValueOf(int character)
{
    if (character >= '0' && character <= '9')
        return character - '0';
    int const lower = character >= 'A' && character <= 'Z' ? character + 32 : character;
    return (lower - 87) & 0xFF;
}

int FirstByte(int high, int low)
{
    std::string text(32, '0');
    text[0] = static_cast<char>(high);
    text[1] = static_cast<char>(low);
    return GUID(text).GetBytes()[0];
}

void ExpectEveryCharacterIsReadByTheRule()
{
    for (int high = 0; high < 256; ++high) {
        for (int low = 0; low < 256; ++low)
            ASSERT_EQ((ValueOf(high) * 16 + ValueOf(low)) & 0xFF, FirstByte(high, low)) << high << " " << low;
    }
}

TEST(GUIDTest, EveryCharacterIsReadByTheRule)
{
    ExpectEveryCharacterIsReadByTheRule();
}

TEST(GUIDTest, CharactersNextToTheDigitsGiveWhatTheArithmeticGives)
{
    EXPECT_EQ('/' - 87 + 256, FirstByte('0', '/'));
    EXPECT_EQ(':' - 87 + 256, FirstByte('0', ':'));
    EXPECT_EQ(233, FirstByte('0', '@'));
    EXPECT_EQ(16, FirstByte('0', 'G'));
    EXPECT_EQ(4, FirstByte('0', '['));
    EXPECT_EQ(9, FirstByte('0', '`'));
    EXPECT_EQ(0, FirstByte('g', '0'));
    EXPECT_EQ(0x53, FirstByte('z', 'Z'));
    EXPECT_EQ(168, FirstByte('0', 0xFF));
}

// A locale in which a byte beyond ASCII is a letter.
struct Latin : std::ctype<char>
{
    using std::ctype<char>::do_tolower;
    char do_tolower(char character) const override
    {
        return character == '\xC4' ? '\xE4' : std::ctype<char>::do_tolower(character);
    }
};

TEST(GUIDTest, LettersOfTheProgramsLocaleAreNotLowered)
{
    std::locale const before = std::locale::global(std::locale(std::locale::classic(), new Latin));
    EXPECT_EQ('\xE4', std::tolower('\xC4', std::locale()));
    ExpectEveryCharacterIsReadByTheRule();
    EXPECT_EQ(SAMPLE, GUID(SAMPLE).ToString());
    std::locale::global(before);
}

TEST(GUIDTest, LettersOfTheCLocaleAreNotLowered)
{
    test::LatinLocale const latin("de_DE");
    if (!latin.IsMade())
        GTEST_SKIP() << "localedef makes no Latin-1 locale on this machine";

    test::ExpectPassesInChild([&latin] {
        latin.Use();
        EXPECT_EQ(0xE4, std::tolower(0xC4));
        ExpectEveryCharacterIsReadByTheRule();
    });
}

// ---- The identifier of nothing.

TEST(GUIDTest, EmptyHasAllBitsSet)
{
    EXPECT_EQ(std::string(32, 'f'), GUID::Empty.ToString());
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(0xFF, GUID::Empty.GetBytes()[i]);
}

TEST(GUIDTest, EmptyIsReadAndComparedAsAnyOther)
{
    EXPECT_EQ(GUID::Empty, GUID(GUID::Empty.ToString()));
    EXPECT_NE(GUID::Empty, GUID(std::string(32, '0')));
}

// ---- Values.

TEST(GUIDTest, CopiesHaveTheirOwnBytes)
{
    GUID guid(SAMPLE);
    GUID const copy = guid;
    guid = GUID::Empty;
    EXPECT_EQ(SAMPLE, copy.ToString());
    EXPECT_EQ(GUID::Empty, guid);
}

TEST(GUIDTest, EqualMeansTheSameInEachByte)
{
    GUID const guid(SAMPLE);
    EXPECT_TRUE(guid == GUID(SAMPLE));
    EXPECT_FALSE(guid != GUID(SAMPLE));
    for (std::size_t i = 0; i < SAMPLE.size(); ++i) {
        std::string text = SAMPLE;
        text[i] = text[i] == '0' ? '1' : '0';
        EXPECT_FALSE(guid == GUID(text)) << text;
        EXPECT_TRUE(guid != GUID(text)) << text;
    }
}

TEST(GUIDTest, OrderIsThatOfTheTexts)
{
    std::vector<std::string> const ascending = {"00000000000000000000000000000000", "00000000000000000000000000000001",
                                                "000000000000000000000000000000ff", "0000000000000000000000000000ff00",
                                                "01000000000000000000000000000000", "7fffffffffffffffffffffffffffffff",
                                                "80000000000000000000000000000000", "ffffffffffffffffffffffffffffffff"};
    for (std::string const& left : ascending) {
        for (std::string const& right : ascending)
            EXPECT_EQ(left < right, GUID(left) < GUID(right)) << left << " " << right;
    }
}

// ---- Random identifiers.

TEST(GUIDTest, RandomTextHasFourAndOneOfEightToBAtTheirPlaces)
{
    for (int i = 0; i < 1000; ++i) {
        std::string const text = GUID::FromRandom().ToString();
        EXPECT_EQ('4', text[12]) << text;
        EXPECT_NE(std::string::npos, std::string("89ab").find(text[16])) << text;
    }
}

TEST(GUIDTest, EveryOtherBitIsRandom)
{
    std::vector<int> ones(16, 0);
    std::vector<int> zeros(16, 0);
    for (int i = 0; i < 1000; ++i) {
        GUID const guid = GUID::FromRandom();
        for (std::size_t byte = 0; byte < 16; ++byte) {
            ones[byte] |= guid.GetBytes()[byte];
            zeros[byte] |= ~guid.GetBytes()[byte] & 0xFF;
        }
    }
    std::vector<int> expectedOnes(16, 0xFF);
    std::vector<int> expectedZeros(16, 0xFF);
    expectedOnes[6] = 0x4F;
    expectedOnes[8] = 0xBF;
    expectedZeros[6] = 0xBF;
    expectedZeros[8] = 0x7F;
    EXPECT_EQ(expectedOnes, ones);
    EXPECT_EQ(expectedZeros, zeros);
}

TEST(GUIDTest, AMillionRandomIdentifiersDiffer)
{
    if (test::RunsUnderMemcheck())
        GTEST_SKIP() << "a million would take minutes under memcheck";

    std::vector<GUID> guids;
    guids.reserve(1000000);
    while (guids.size() < 1000000)
        guids.push_back(GUID::FromRandom());
    std::sort(guids.begin(), guids.end());
    EXPECT_EQ(guids.end(), std::adjacent_find(guids.begin(), guids.end()));
}

TEST(GUIDTest, ThreadsGetDifferentIdentifiers)
{
    test::Latch ready;
    std::vector<std::vector<GUID>> results(4);
    std::vector<std::thread> threads;
    for (std::vector<GUID>& result : results)
        threads.emplace_back([&ready, &result] {
            ready.Arrive();
            EXPECT_TRUE(ready.WaitFor(4)) << "not all threads have started";
            for (int i = 0; i < 1000; ++i)
                result.push_back(GUID::FromRandom());
        });
    for (std::thread& thread : threads)
        thread.join();

    std::vector<GUID> all;
    for (std::vector<GUID> const& result : results)
        all.insert(all.end(), result.begin(), result.end());
    std::sort(all.begin(), all.end());
    EXPECT_EQ(4000u, all.size());
    EXPECT_EQ(all.end(), std::adjacent_find(all.begin(), all.end()));
}

TEST(GUIDTest, DeviceIsClosedAgain)
{
    GUID::FromRandom();
    std::size_t const before = test::CountDescriptors();
    for (int i = 0; i < 10; ++i)
        GUID::FromRandom();
    EXPECT_EQ(before, test::CountDescriptors());
}

TEST(GUIDTest, DeviceIsNotKeptOpenBetweenCalls)
{
    struct stat device = {};
    ASSERT_EQ(0, stat("/dev/urandom", &device));
    GUID::FromRandom();
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        struct stat file = {};
        bool const isDevice = fstat(descriptor, &file) == 0 && S_ISCHR(file.st_mode) && file.st_rdev == device.st_rdev;
        EXPECT_FALSE(isDevice) << descriptor;
    }
}

// What `action` throws while no descriptor is left to open.
std::exception_ptr FailureWithoutADescriptor(std::function<void()> const& action)
{
    action();  // a sanitizer needs descriptors the first time
    rlimit before = {};
    EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    rlimit const none = {0, before.rlim_max};
    EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    std::exception_ptr failure;
    try {
        action();
    } catch (...) {
        failure = std::current_exception();
    }
    EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
    return failure;
}

TEST(GUIDTest, WithoutADescriptorItThrowsAStandardException)
{
    std::exception_ptr const failure = FailureWithoutADescriptor([] { GUID::FromRandom(); });
    ASSERT_NE(nullptr, failure);
    try {
        std::rethrow_exception(failure);
    } catch (std::exception const& exception) {
        EXPECT_EQ(typeid(std::runtime_error), typeid(exception));
        EXPECT_STREQ("failed to open random device.", exception.what());
    }
}

// A device whose bytes are the test's: a file or a FIFO that a child sees in the place of the real one.
class GUIDDeviceTest : public testing::Test
{
protected:
    // Runs `body` in a process whose device is the file at `path_`.
    void WithDevice(std::function<void()> const& body) const
    {
        test::ExpectPassesInChildOrSkips([&] {
            if (!test::EnterMountNamespace() || !Bind())
                test::SkipFromChild("this process may not put another device in the place of /dev/urandom");
            body();
        });
    }

    // Read-only, as the device is only read.
    bool Bind() const
    {
        char const* const device = "/dev/urandom";
        return mount(path_.c_str(), device, "none", MS_BIND, nullptr) == 0 &&
               mount("none", device, "none", MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
    }

    test::TemporaryDirectory const folder_;
    std::string const path_ = folder_ / "device";
};

TEST_F(GUIDDeviceTest, VariantAndVersionReplaceSixBits)
{
    struct Row
    {
        char byte;
        char const* text;
    };
    for (Row const& row :
         {Row{'\x00', "00000000000040008000000000000000"}, Row{'\xFF', "ffffffffffff4fffbfffffffffffffff"},
          Row{'\x55', "55555555555545559555555555555555"}, Row{'\xAA', "aaaaaaaaaaaa4aaaaaaaaaaaaaaaaaaa"}}) {
        test::WriteFile(path_, std::string(16, row.byte));
        WithDevice([&] { EXPECT_EQ(row.text, GUID::FromRandom().ToString()); });
    }
}

TEST_F(GUIDDeviceTest, BytesStandInTheOrderOfTheDevice)
{
    test::WriteFile(path_, "ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    WithDevice([] { EXPECT_EQ("4142434445464748894a4b4c4d4e4f50", GUID::FromRandom().ToString()); });
}

TEST_F(GUIDDeviceTest, LineEndsAreReadAsTheyAre)
{
    test::WriteFile(path_, "\r\n\r\n\x1A\n\r\n\r\n\r\n\r\n\r\n");
    WithDevice([] { EXPECT_EQ("0d0a0d0a1a0a4d0a8d0a0d0a0d0a0d0a", GUID::FromRandom().ToString()); });
}

TEST_F(GUIDDeviceTest, DeviceIsOpenedInEveryCall)
{
    test::WriteFile(path_, std::string(16, '1') + std::string(16, '2'));
    WithDevice([this] {
        EXPECT_EQ("313131313131", GUID::FromRandom().ToString().substr(0, 12));
        EXPECT_EQ("313131313131", GUID::FromRandom().ToString().substr(0, 12));
        test::WriteFile(path_, std::string(16, '4'));
        EXPECT_EQ("343434343434", GUID::FromRandom().ToString().substr(0, 12));
    });
}

TEST_F(GUIDDeviceTest, DeviceThatGivesTooLittleIsNoFailure)
{
    test::WriteFile(path_, "12345678");
    WithDevice([] { EXPECT_EQ("313233343536", GUID::FromRandom().ToString().substr(0, 12)); });
}

TEST_F(GUIDDeviceTest, DeviceThatCannotBeReadIsNoFailure)
{
    ASSERT_EQ(0, symlink("/proc/self/mem", path_.c_str()));  // nothing is mapped where it starts
    WithDevice([] {
        std::ifstream device("/dev/urandom");
        device.get();
        EXPECT_TRUE(device.bad());
        EXPECT_EQ("00000000000040008000000000000000", GUID::FromRandom().ToString());
    });
}

TEST_F(GUIDDeviceTest, SixteenBytesAreTaken)
{
    ASSERT_EQ(0, mkfifo(path_.c_str(), 0600));
    int const device = open(path_.c_str(), O_RDWR);
    EXPECT_EQ(40, write(device, std::string(40, 'x').data(), 40));
    WithDevice([] { EXPECT_NO_THROW(GUID::FromRandom()); });
    int left = 0;
    EXPECT_EQ(0, ioctl(device, FIONREAD, &left));
    EXPECT_EQ(24, left);
    close(device);
}

}}}  // namespace tovu::util
