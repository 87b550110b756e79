#include "tovu/util/Path.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <list>
#include <string>
#include <type_traits>
#include <vector>

#include "CapturedLog.h"
#include "ChildOrSkip.h"
#include "DirectoryAccess.h"
#include "LogLines.h"
#include "ParameterName.h"
#include "TemporaryDirectory.h"

namespace tovu { namespace util { namespace {

typedef std::list<std::string> Texts;
typedef std::string (Path::*Question)() const;

static_assert(std::is_constructible<Path, std::string const&>::value, "made on the caller's text");
static_assert(!std::is_convertible<std::string const&, Path>::value, "explicitly");
static_assert(!std::is_polymorphic<Path>::value && std::is_trivially_destructible<Path>::value, "it owns nothing");
static_assert(std::is_same<decltype(&Path::GetNativePathSeparator), char (*)()>::value, "static");
static_assert(std::is_same<decltype(&Path::Create), bool (Path::*)(unsigned) const>::value, "");
static_assert(std::is_same<decltype(&Path::Exists), bool (Path::*)() const>::value, "");
static_assert(std::is_same<decltype(&Path::GetComponents), void (Path::*)(Texts&) const>::value, "");
static_assert(std::is_same<decltype(&Path::RemovePrefix), std::string (Path::*)(std::string const&) const>::value, "");
static_assert(std::is_same<decltype(&MakePath), std::string (*)(std::string const&, std::string const&)>::value, "");
static_assert(std::is_same<decltype(&RemoveTerminatingSlash), std::string (*)(std::string const&)>::value, "");

// The operations that take a path's text and give another.
Question const QUESTIONS[] = {&Path::Basic,           &Path::Canonicalize,    &Path::ToNativePathSeparator,
                              &Path::GetFullFileName, &Path::GetFileName,     &Path::GetDirectory,
                              &Path::GetExtension,    &Path::GetDirectoryName};

std::string Ask(std::string const& text, Question question)
{
    return (Path(text).*question)();
}

std::string Basic(std::string const& text)
{
    return Path(text).Basic();
}

std::string Canonical(std::string const& text)
{
    return Path(text).Canonicalize();
}

std::string Native(std::string const& text)
{
    return Path(text).ToNativePathSeparator();
}

std::string FullFileName(std::string const& text)
{
    return Path(text).GetFullFileName();
}

std::string FileName(std::string const& text)
{
    return Path(text).GetFileName();
}

std::string Extension(std::string const& text)
{
    return Path(text).GetExtension();
}

std::string Folder(std::string const& text)
{
    return Path(text).GetDirectory();
}

std::string DirectoryName(std::string const& text)
{
    return Path(text).GetDirectoryName();
}

std::string WithoutPrefix(std::string const& text, std::string const& prefix)
{
    return Path(text).RemovePrefix(prefix);
}

Texts Components(std::string const& text)
{
    Texts components;
    Path(text).GetComponents(components);
    return components;
}

bool Contains(std::string const& text, char character)
{
    return text.find(character) != std::string::npos;
}

bool IsSeparator(char character)
{
    return character == '/' || character == '\\';
}

// The separator that a text is split at last: the backslash only where there is no slash.
char SplittingSeparator(std::string const& text)
{
    return Contains(text, '/') ? '/' : '\\';
}

// The parts of a text between all separators of one kind, without the empty ones.
Texts Split(std::string const& text, char separator)
{
    Texts parts(1);
    for (char const character : text) {
        if (character == separator)
            parts.emplace_back();
        else
            parts.back() += character;
    }
    parts.remove("");
    return parts;
}

// Every text of up to `length` characters that are of interest in a path.
std::vector<std::string> TextsUpTo(std::size_t length)
{
    std::vector<std::string> texts(1);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        std::string const text = texts[i];
        if (text.size() == length)
            break;
        for (char const character : {'a', '.', '/', '\\'})
            texts.push_back(text + character);
    }
    return texts;
}

// ---- The object.

TEST(PathTest, NativeSeparatorIsTheSlash)
{
    EXPECT_EQ(0x2F, Path::GetNativePathSeparator());
}

TEST(PathTest, RefersToTheCallersText)
{
    std::string text = "/a/b";
    Path const path(text);
    Path const copy(path);
    text = "/c/d.e";
    EXPECT_EQ("d.e", path.GetFullFileName());
    EXPECT_EQ("d.e", copy.GetFullFileName());
}

TEST(PathTest, NoOperationChangesTheText)
{
    for (std::string const& text : TextsUpTo(3)) {
        std::string const before = text;
        for (Question const question : QUESTIONS)
            Ask(text, question);
        Components(text);
        WithoutPrefix(text, "a");
        MakePath(text, text);
        RemoveTerminatingSlash(text);
        Path(text).Exists();
        EXPECT_EQ(before, text);
    }
}

TEST(PathTest, AnyTextIsTakenWithoutALogLine)
{
    test::CapturedLog log;
    std::string const texts[] = {"",     std::string(1, '\0'),      "\xff\xfe/\x80",
                                 "\n\t", std::string(1 << 20, '/'), std::string(1 << 20, 'a')};
    for (std::string const& text : texts) {
        for (Question const question : QUESTIONS)
            EXPECT_NO_THROW(Ask(text, question));
        EXPECT_NO_THROW(Components(text));
        EXPECT_NO_THROW(WithoutPrefix(text, text));
        EXPECT_NO_THROW(MakePath(text, text));
        EXPECT_NO_THROW(RemoveTerminatingSlash(text));
        EXPECT_NO_THROW(Path(text).Exists());
    }
    EXPECT_FALSE(Path(texts[0]).Create(0700));
    EXPECT_FALSE(Path(texts[5]).Create(0700));
    EXPECT_TRUE(test::TakeLines(log).empty());
}

TEST(PathTest, AZeroByteIsACharacterLikeOthers)
{
    std::string const text("a\0b/c\0d.e\0f", 11);
    EXPECT_EQ(std::string("c\0d.e\0f", 7), FullFileName(text));
    EXPECT_EQ(std::string("e\0f", 3), Extension(text));
    EXPECT_EQ(std::string("a\0b", 3), Folder(text));
    EXPECT_EQ(text + "/", Canonical(text));
    EXPECT_EQ(text + "/" + text, MakePath(text, text));
}

// ---- Separators at the end.

TEST(PathTest, BasicTakesOneSeparatorOff)
{
    EXPECT_EQ("/a/b", Basic("/a/b/"));
    EXPECT_EQ("a", Basic("a\\"));
    EXPECT_EQ("a/", Basic("a//"));
    EXPECT_EQ("a/", Basic("a/\\"));
    EXPECT_EQ("", Basic("/"));
    EXPECT_EQ("", Basic("\\"));
}

TEST(PathTest, BasicLeavesATextWithoutASeparatorAtItsEnd)
{
    EXPECT_EQ("", Basic(""));
    EXPECT_EQ("a", Basic("a"));
    EXPECT_EQ("/a", Basic("/a"));
    EXPECT_EQ("a/.", Basic("a/."));
}

TEST(PathTest, CanonicalizeEnsuresASeparatorAtTheEnd)
{
    EXPECT_EQ("a/", Canonical("a"));
    EXPECT_EQ("/a/b/", Canonical("/a/b"));
    EXPECT_EQ("a\\b/", Canonical("a\\b"));
    EXPECT_EQ("/", Canonical(""));
}

TEST(PathTest, CanonicalizeLeavesASeparatorOfEitherKind)
{
    EXPECT_EQ("a/", Canonical("a/"));
    EXPECT_EQ("a\\", Canonical("a\\"));
    EXPECT_EQ("a//", Canonical("a//"));
    EXPECT_EQ("/", Canonical("/"));
}

TEST(PathTest, BasicAndCanonicalizeLookAtTheLastCharacterOnly)
{
    for (std::string const& text : TextsUpTo(4)) {
        bool const ended = !text.empty() && IsSeparator(text.back());
        EXPECT_EQ(ended ? text.substr(0, text.size() - 1) : text, Basic(text)) << text;
        EXPECT_EQ(ended ? text : text + "/", Canonical(text)) << text;
    }
}

TEST(PathTest, RemoveTerminatingSlashTakesOneSlashOff)
{
    EXPECT_EQ("a", RemoveTerminatingSlash("a/"));
    EXPECT_EQ("a/", RemoveTerminatingSlash("a//"));
    EXPECT_EQ("a\\", RemoveTerminatingSlash("a\\/"));
    EXPECT_EQ("", RemoveTerminatingSlash("/"));
}

TEST(PathTest, RemoveTerminatingSlashLeavesEverythingElse)
{
    EXPECT_EQ("", RemoveTerminatingSlash(""));
    EXPECT_EQ("/a", RemoveTerminatingSlash("/a"));
    EXPECT_EQ("a\\", RemoveTerminatingSlash("a\\"));
    EXPECT_EQ("a/\\", RemoveTerminatingSlash("a/\\"));
}

TEST(PathTest, ToNativePathSeparatorTurnsEveryBackslash)
{
    EXPECT_EQ("/a/b/c/", Native("\\a/b\\c\\"));
    EXPECT_EQ("//", Native("\\\\"));
    EXPECT_EQ("/a.b c", Native("/a.b c"));
    EXPECT_EQ("", Native(""));
}

// ---- Names and folders.

TEST(PathTest, FullFileNameStandsBehindTheLastSeparator)
{
    EXPECT_EQ("b.tar.gz", FullFileName("/a/b.tar.gz"));
    EXPECT_EQ("c", FullFileName("a\\b\\c"));
    EXPECT_EQ("a", FullFileName("a"));
    EXPECT_EQ("", FullFileName("a/b/"));
    EXPECT_EQ("", FullFileName("a\\"));
    EXPECT_EQ("", FullFileName(""));
}

TEST(PathTest, DirectoryStandsInFrontOfTheLastSeparator)
{
    EXPECT_EQ("/a", Folder("/a/b"));
    EXPECT_EQ("a\\b", Folder("a\\b\\c"));
    EXPECT_EQ("a/b", Folder("a/b/"));
    EXPECT_EQ("a/", Folder("a//b"));
    EXPECT_EQ("", Folder("/a"));
    EXPECT_EQ("", Folder("\\a"));
    EXPECT_EQ("", Folder("/"));
    EXPECT_EQ("", Folder("a"));
    EXPECT_EQ("", Folder(""));
}

TEST(PathTest, ASlashWinsOverALaterBackslash)
{
    EXPECT_EQ("b\\c.d", FullFileName("a/b\\c.d"));
    EXPECT_EQ("b\\c", FileName("a/b\\c.d"));
    EXPECT_EQ("a", Folder("a/b\\c"));
    EXPECT_EQ("c", FullFileName("a\\b/c"));
    EXPECT_EQ("a\\b", Folder("a\\b/c"));
    EXPECT_EQ("\\", FullFileName("/\\"));
}

TEST(PathTest, FileNameEndsAtTheLastDot)
{
    EXPECT_EQ("b.tar", FileName("/a/b.tar.gz"));
    EXPECT_EQ("b", FileName("/a/b"));
    EXPECT_EQ("b", FileName("/a.d/b"));
    EXPECT_EQ("b", FileName("b."));
    EXPECT_EQ("", FileName("/x/.profile"));
    EXPECT_EQ(".", FileName(".."));
    EXPECT_EQ("", FileName("a.b/"));
    EXPECT_EQ("", FileName(""));
}

TEST(PathTest, ExtensionStandsBehindTheLastDotOfTheName)
{
    EXPECT_EQ("gz", Extension("/a/b.tar.gz"));
    EXPECT_EQ("profile", Extension("/x/.profile"));
    EXPECT_EQ("", Extension("/a.d/b"));
    EXPECT_EQ("", Extension("b."));
    EXPECT_EQ("", Extension("b"));
    EXPECT_EQ("", Extension("a.b/"));
    EXPECT_EQ("", Extension(""));
}

TEST(PathTest, DirectoryNameIsTheLastComponent)
{
    EXPECT_EQ("b", DirectoryName("a/b/"));
    EXPECT_EQ("b", DirectoryName("a/b"));
    EXPECT_EQ("b", DirectoryName("b/"));
    EXPECT_EQ("b", DirectoryName("/b/"));
    EXPECT_EQ("b", DirectoryName("a\\b\\"));
    EXPECT_EQ("b", DirectoryName("b\\"));
    EXPECT_EQ("b.c", DirectoryName("b.c"));
    EXPECT_EQ("", DirectoryName(""));
}

TEST(PathTest, DirectoryNameTakesOneSeparatorAtTheEndForNone)
{
    EXPECT_EQ("", DirectoryName("/"));
    EXPECT_EQ("", DirectoryName("\\"));
    EXPECT_EQ("", DirectoryName("//"));
    EXPECT_EQ("", DirectoryName("a//"));
    EXPECT_EQ("", DirectoryName("a\\\\"));
}

TEST(PathTest, DirectoryNameLooksForASlashFirstInFrontOfTheLastOne)
{
    EXPECT_EQ("b", DirectoryName("a\\b/"));
    EXPECT_EQ("b\\c", DirectoryName("a/b\\c/"));
    EXPECT_EQ("b\\", DirectoryName("a/b\\"));
    EXPECT_EQ("", DirectoryName("a\\/"));
}

TEST(PathTest, DirectorySeparatorAndNameMakeUpTheText)
{
    for (std::string const& text : TextsUpTo(5)) {
        char const separator = SplittingSeparator(text);
        std::string const name = FullFileName(text);
        EXPECT_FALSE(Contains(name, separator)) << text;
        EXPECT_EQ(text, Contains(text, separator) ? Folder(text) + separator + name : name) << text;
        EXPECT_TRUE(Contains(text, separator) || Folder(text).empty()) << text;
    }
}

TEST(PathTest, NameDotAndExtensionMakeUpTheFullName)
{
    for (std::string const& text : TextsUpTo(5)) {
        std::string const name = FullFileName(text);
        EXPECT_FALSE(Contains(Extension(text), '.')) << text;
        EXPECT_EQ(name, Contains(name, '.') ? FileName(text) + "." + Extension(text) : FileName(text)) << text;
        EXPECT_TRUE(Contains(name, '.') || Extension(text).empty()) << text;
    }
}

TEST(PathTest, DirectoryNameIsTheNameOfTheTextWithoutALastSeparator)
{
    for (std::string const& text : TextsUpTo(5)) {
        bool const ended = !text.empty() && text.back() == SplittingSeparator(text);
        EXPECT_EQ(FullFileName(ended ? text.substr(0, text.size() - 1) : text), DirectoryName(text)) << text;
    }
}

// ---- Components.

TEST(PathTest, ComponentsAreNeverEmpty)
{
    EXPECT_EQ((Texts{"a", "b"}), Components("/a//b/"));
    EXPECT_EQ((Texts{"a", "b"}), Components("a\\\\b\\"));
    EXPECT_EQ((Texts{"a"}), Components("a"));
    EXPECT_EQ(Texts{}, Components("//"));
    EXPECT_EQ(Texts{}, Components(""));
}

TEST(PathTest, ABackslashSplitsBehindTheLastSlashOnly)
{
    EXPECT_EQ((Texts{"a\\b", "c"}), Components("a\\b/c"));
    EXPECT_EQ((Texts{"a", "b", "c"}), Components("a/b\\c"));
    EXPECT_EQ((Texts{"\\", "a", "b"}), Components("\\/a\\\\b\\"));
}

TEST(PathTest, ComponentsComeBehindThoseThatAreThere)
{
    std::string const text = "b/c";
    Texts components = {"", "a"};
    Path(text).GetComponents(components);
    EXPECT_EQ((Texts{"", "a", "b", "c"}), components);
}

TEST(PathTest, ComponentsAreThoseOfSlashesAndThenOfBackslashesBehindThem)
{
    for (std::string const& text : TextsUpTo(5)) {
        std::size_t const tail = text.rfind('/') + 1;  // 0 without a slash
        Texts expected = Split(text.substr(0, tail), '/');
        expected.splice(expected.end(), Split(text.substr(tail), '\\'));
        EXPECT_EQ(expected, Components(text)) << text;
    }
}

// ---- Prefixes and joining.

TEST(PathTest, RemovePrefixTakesExactlyTheseBytesOff)
{
    EXPECT_EQ("/b", WithoutPrefix("/a/b", "/a"));
    EXPECT_EQ("b", WithoutPrefix("/a/b", "/a/"));
    EXPECT_EQ("bc", WithoutPrefix("abc", "a"));
    EXPECT_EQ("", WithoutPrefix("abc", "abc"));
    EXPECT_EQ("a", WithoutPrefix("aa", "a"));
}

TEST(PathTest, RemovePrefixLeavesATextThatBeginsOtherwise)
{
    EXPECT_EQ("/a/b", WithoutPrefix("/a/b", "/A"));
    EXPECT_EQ("/a/b", WithoutPrefix("/a/b", "a"));
    EXPECT_EQ("/a/b", WithoutPrefix("/a/b", "\\a"));
    EXPECT_EQ("a", WithoutPrefix("a", "ab"));
    EXPECT_EQ("", WithoutPrefix("", "a"));
    EXPECT_EQ("a", WithoutPrefix("a", ""));
    EXPECT_EQ("", WithoutPrefix("", ""));
}

TEST(PathTest, RemovePrefixComparesOverTheWholePrefix)
{
    EXPECT_EQ(std::string("a\0b", 3), WithoutPrefix(std::string("a\0b", 3), std::string("a\0c", 3)));
    EXPECT_EQ("b", WithoutPrefix(std::string("a\0b", 3), std::string("a\0", 2)));
    EXPECT_EQ("b", WithoutPrefix("\xff"
                                 "b",
                                 "\xff"));
}

TEST(PathTest, MakePathPutsASlashWhereThereIsNoSeparator)
{
    EXPECT_EQ("a/b", MakePath("a", "b"));
    EXPECT_EQ("/a.b/c", MakePath("/a.b", "c"));
    EXPECT_EQ("a\\b/c\\d", MakePath("a\\b", "c\\d"));
}

TEST(PathTest, MakePathKeepsTheSeparatorsThatAreThere)
{
    EXPECT_EQ("a//b", MakePath("a/", "/b"));
    EXPECT_EQ("a/b", MakePath("a/", "b"));
    EXPECT_EQ("a/b", MakePath("a", "/b"));
    EXPECT_EQ("a\\b", MakePath("a\\", "b"));
    EXPECT_EQ("a\\b", MakePath("a", "\\b"));
    EXPECT_EQ("a\\/b", MakePath("a\\", "/b"));
}

TEST(PathTest, MakePathAddsNothingToAnEmptyText)
{
    EXPECT_EQ("b", MakePath("", "b"));
    EXPECT_EQ("a", MakePath("a", ""));
    EXPECT_EQ("/b", MakePath("", "/b"));
    EXPECT_EQ("", MakePath("", ""));
}

TEST(PathTest, MakePathJoinsAnyTwoTexts)
{
    std::vector<std::string> const texts = TextsUpTo(2);
    for (std::string const& a : texts) {
        for (std::string const& b : texts) {
            bool const bare = !a.empty() && !IsSeparator(a.back()) && !b.empty() && !IsSeparator(b.front());
            EXPECT_EQ(a + (bare ? "/" : "") + b, MakePath(a, b));
        }
    }
}

// ---- The file system.

class PathOnDiskTest : public testing::Test
{
protected:
    // The `errno` of a Create that fails; 0 when it succeeds.
    static int CreationError(std::string const& text)
    {
        errno = 0;
        return Path(text).Create(0700) ? 0 : errno;
    }

    // The `errno` of an Exists that is false; 0 when it is true.
    static int ExistenceError(std::string const& text)
    {
        errno = 0;
        return Path(text).Exists() ? 0 : errno;
    }

    void Link(std::string const& target, std::string const& name) const
    {
        EXPECT_EQ(0, symlink(target.c_str(), (folder_ / name).c_str()));
    }

    test::TemporaryDirectory const folder_;
    std::string const path_ = folder_ / "new";
};

TEST_F(PathOnDiskTest, CreateMakesAFolder)
{
    EXPECT_EQ(0, CreationError(path_));
    struct stat status = {};
    ASSERT_EQ(0, stat(path_.c_str(), &status));
    EXPECT_TRUE(S_ISDIR(status.st_mode));
}

TEST_F(PathOnDiskTest, CreateTakesASeparatorAtTheEnd)
{
    EXPECT_EQ(0, CreationError(path_ + "/"));
    EXPECT_TRUE(Path(path_).Exists());
}

struct ModeRow
{
    char const* name;
    mode_t mask;
    unsigned mode;
    mode_t expected;
};

class PathModeTest : public PathOnDiskTest, public testing::WithParamInterface<ModeRow>
{};

TEST_P(PathModeTest, IsReducedByTheMaskOfTheProcess)
{
    mode_t const before = umask(GetParam().mask);
    bool const created = Path(path_).Create(GetParam().mode);
    umask(before);
    ASSERT_TRUE(created);
    struct stat status = {};
    ASSERT_EQ(0, stat(path_.c_str(), &status));
    EXPECT_EQ(GetParam().expected, status.st_mode & (S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO));
}

INSTANTIATE_TEST_SUITE_P(Modes, PathModeTest,
                         testing::Values(ModeRow{"Everything", 0, 0777, 0777}, ModeRow{"Some", 0, 0751, 0751},
                                         ModeRow{"Masked", 022, 0777, 0755}, ModeRow{"AllMasked", 0777, 0777, 0},
                                         ModeRow{"None", 0, 0, 0}, ModeRow{"Sticky", 0, 01770, 01770}),
                         test::ParameterName());

TEST_F(PathOnDiskTest, CreateDoesNotMakeParents)
{
    EXPECT_EQ(ENOENT, CreationError(path_ + "/inner"));
    EXPECT_FALSE(Path(path_).Exists());
}

TEST_F(PathOnDiskTest, CreateIsFalseForWhatIsThere)
{
    ASSERT_EQ(0, CreationError(path_));
    EXPECT_EQ(EEXIST, CreationError(path_));
    test::WriteFile(folder_ / "file", "content");
    EXPECT_EQ(EEXIST, CreationError(folder_ / "file"));
    EXPECT_EQ("content", test::ReadFile(folder_ / "file"));
    EXPECT_EQ(EEXIST, CreationError("/"));
}

TEST_F(PathOnDiskTest, CreateIsFalseForALinkThatDangles)
{
    Link("missing", "link");
    EXPECT_EQ(EEXIST, CreationError(folder_ / "link"));
    EXPECT_FALSE(Path(folder_ / "missing").Exists());
}

TEST_F(PathOnDiskTest, CreateIsFalseForWhatCannotBeAFolder)
{
    test::WriteFile(folder_ / "file", "");
    EXPECT_EQ(ENOTDIR, CreationError(folder_ / "file/inner"));
    EXPECT_EQ(ENOENT, CreationError(""));
    EXPECT_EQ(ENAMETOOLONG, CreationError(folder_ / std::string(256, 'n')));
}

TEST_F(PathOnDiskTest, ABackslashIsNoSeparatorToTheSystem)
{
    EXPECT_EQ(0, CreationError(folder_ / "a\\b"));
    EXPECT_EQ(0, ExistenceError(folder_ / "a\\b"));
    EXPECT_EQ(ENOENT, ExistenceError(folder_ / "a"));
}

TEST_F(PathOnDiskTest, ExistsIsTrueForEveryKindOfFile)
{
    test::WriteFile(folder_ / "file", "");
    ASSERT_EQ(0, mkfifo((folder_ / "pipe").c_str(), 0600));
    EXPECT_EQ(0, ExistenceError(folder_ / "file"));
    EXPECT_EQ(0, ExistenceError(folder_ / "pipe"));
    EXPECT_EQ(0, ExistenceError(folder_ / ""));
    EXPECT_EQ(0, ExistenceError("/dev/null"));
}

TEST_F(PathOnDiskTest, ExistsIsFalseWhereNothingIs)
{
    EXPECT_EQ(ENOENT, ExistenceError(path_));
    EXPECT_EQ(ENOENT, ExistenceError(""));
    test::WriteFile(path_, "");
    EXPECT_EQ(ENOTDIR, ExistenceError(path_ + "/"));
}

TEST_F(PathOnDiskTest, ExistsFollowsLinks)
{
    Link("new", "link");
    Link("loop", "loop");
    Link(".", "here");
    EXPECT_EQ(ENOENT, ExistenceError(folder_ / "link"));
    EXPECT_EQ(ELOOP, ExistenceError(folder_ / "loop"));
    EXPECT_EQ(0, ExistenceError(folder_ / "here"));
    test::WriteFile(path_, "");
    EXPECT_EQ(0, ExistenceError(folder_ / "link"));
}

TEST_F(PathOnDiskTest, ExistsIsTrueForAFileOfAnySize)
{
    test::WriteFile(path_, "");
    ASSERT_EQ(0, truncate64(path_.c_str(), 0x140000000LL));
    EXPECT_EQ(0, ExistenceError(path_));
    EXPECT_EQ(0, truncate64(path_.c_str(), 0));  // what removes the folder knows no such sizes on a 32-bit build
}

TEST_F(PathOnDiskTest, WithoutTheRightToSearchTheFolderBothAreFalse)
{
    ASSERT_EQ(0, mkdir(path_.c_str(), 0700));
    test::WriteFile(path_ + "/file", "");
    ASSERT_EQ(0, chmod(path_.c_str(), 0));
    test::ExpectPassesInChildOrSkips([this] {
        test::BecomeNobody();
        EXPECT_EQ(EACCES, ExistenceError(path_ + "/file"));
        EXPECT_EQ(EACCES, CreationError(path_ + "/inner"));
    });
    EXPECT_EQ(0, chmod(path_.c_str(), 0700));
}

}}}  // namespace tovu::util
