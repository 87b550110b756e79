#include "tovu/util/Path.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <list>
#include <string>

#include "AllocationCounter.h"

namespace tovu { namespace util { namespace {

using test::AllocationCounter;

// Each part of it is longer than what a string holds in itself.
std::string const FOLDER = "/srv/volumes/photographs";
std::string const NAME = "a-picture-of-the-mill.tar.gz-as-it-came";
std::string const FILE_PATH = FOLDER + "/" + NAME;
std::string const FOLDER_PATH = FOLDER + "/";

// Expects an operation to take one block, for its result.
void ExpectOneBlock(std::string const& result, std::function<std::string()> const& operation)
{
    AllocationCounter const counter;
    std::string const text = operation();
    std::size_t const blocks = counter.Blocks();

    EXPECT_EQ(result, text);
    EXPECT_EQ(1U, blocks) << "for " << result;
}

TEST(PathCosts, EachTextIsOneBlock)
{
    Path const file(FILE_PATH);
    Path const folder(FOLDER_PATH);
    ExpectOneBlock(FILE_PATH, [&] { return file.Basic(); });
    ExpectOneBlock(FOLDER, [&] { return folder.Basic(); });
    ExpectOneBlock(FILE_PATH + "/", [&] { return file.Canonicalize(); });
    ExpectOneBlock(FOLDER_PATH, [&] { return folder.Canonicalize(); });
    ExpectOneBlock(FILE_PATH, [&] { return file.ToNativePathSeparator(); });
    ExpectOneBlock(NAME, [&] { return file.GetFullFileName(); });
    ExpectOneBlock("a-picture-of-the-mill.tar", [&] { return file.GetFileName(); });
    ExpectOneBlock(FOLDER, [&] { return file.GetDirectory(); });
    ExpectOneBlock("/" + NAME, [&] { return file.RemovePrefix(FOLDER); });
    ExpectOneBlock(NAME, [&] { return file.GetDirectoryName(); });
    ExpectOneBlock(FILE_PATH, [] { return MakePath(FOLDER, NAME); });
    ExpectOneBlock(FILE_PATH, [] { return MakePath(FOLDER_PATH, NAME); });
    ExpectOneBlock(FOLDER, [] { return RemoveTerminatingSlash(FOLDER_PATH); });

    std::string const longExtension = "/a.an-extension-of-its-own";
    ExpectOneBlock("an-extension-of-its-own", [&] { return Path(longExtension).GetExtension(); });
    std::string const longName = FOLDER + "/photographs-of-2026/";
    ExpectOneBlock("photographs-of-2026", [&] { return Path(longName).GetDirectoryName(); });
}

TEST(PathCosts, ShortPartsOfLongPathsAllocateNothing)
{
    std::string const text = FOLDER + "/mill.jpg";
    Path const path(text);

    AllocationCounter const counter;
    EXPECT_EQ("mill.jpg", path.GetFullFileName());
    EXPECT_EQ("mill", path.GetFileName());
    EXPECT_EQ("jpg", path.GetExtension());
    EXPECT_EQ("mill.jpg", path.GetDirectoryName());
    EXPECT_EQ(0U, counter.Blocks());
}

TEST(PathCosts, AComponentIsOneNodeAndItsText)
{
    std::list<std::string> components;
    std::string const path = "/srv/volumes/photographs-of-2026/";

    AllocationCounter const counter;
    Path(path).GetComponents(components);
    EXPECT_EQ(3U + 1U, counter.Blocks());  // three nodes; one text is too long for its node
    EXPECT_EQ((std::list<std::string>{"srv", "volumes", "photographs-of-2026"}), components);
}

TEST(PathCosts, AskingTheFileSystemAllocatesNothing)
{
    std::string const text = FOLDER + "/that/is/not/there";

    AllocationCounter const counter;
    EXPECT_FALSE(Path(text).Exists());
    EXPECT_FALSE(Path(text).Create(0700));
    EXPECT_EQ(0U, counter.Blocks());
}

}}}  // namespace tovu::util
