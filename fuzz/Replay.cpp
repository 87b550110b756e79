// The main function of a harness without a fuzzer: gives it each file of a folder once.

#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "Fuzz.h"

namespace {

std::vector<std::string> FilesOf(std::string const& folder)
{
    std::vector<std::string> files;
    std::unique_ptr<DIR, int (*)(DIR*)> const stream(opendir(folder.c_str()), &closedir);
    if (!stream)
        return files;
    while (dirent const* const item = readdir(stream.get())) {
        if (item->d_name[0] != '.')
            files.push_back(folder + "/" + item->d_name);
    }
    std::sort(files.begin(), files.end());
    return files;
}

// In memory of its own, so that a step beyond its ends is noticed.
void Replay(std::string const& file)
{
    std::printf("%s\n", file.c_str());
    std::fflush(stdout);  // the last one named is the one that broke a promise
    std::ifstream stream(file, std::ios::binary);
    std::vector<unsigned char> const bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    tovu::fuzz::Require(!stream.bad() && stream.is_open(), "a file of the corpus can be read");
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> const files = argc == 2 ? FilesOf(argv[1]) : std::vector<std::string>();
    for (std::string const& file : files)
        Replay(file);
    std::printf("%zu inputs\n", files.size());
    return files.empty() ? 1 : 0;
}
