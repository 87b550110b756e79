#include "TemporaryDirectory.h"

#include <ftw.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace tovu { namespace test {

namespace {

int RemoveEntry(char const* path, struct stat const* /*status*/, int /*type*/, FTW* /*state*/)
{
    return std::remove(path);
}

}  // namespace

TemporaryDirectory::TemporaryDirectory()
{
    char path[] = "/tmp/tovuutil-test-XXXXXX";
    EXPECT_NE(nullptr, mkdtemp(path));
    path_ = path;
}

TemporaryDirectory::~TemporaryDirectory()
{
    EXPECT_EQ(0, nftw(path_.c_str(), &RemoveEntry, 16, FTW_DEPTH | FTW_PHYS));
}

std::string ReadFile(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void WriteFile(std::string const& path, std::string const& content)
{
    std::ofstream file(path, std::ios::binary);
    file << content;
    file.close();
    EXPECT_TRUE(file.good()) << path;
}

}}  // namespace tovu::test
