// What do the path operations cost beside those of the standard library, Boost and POCO, which take a path apart when
// they are given one? The texts are those of the listings: a folder, a name, a path with an extension.

#include "tovu/util/Path.h"

#include <Poco/Path.h>
#include <benchmark/benchmark.h>

#include <boost/filesystem/path.hpp>
#include <filesystem>
#include <list>
#include <string>

using tovu::util::MakePath;
using tovu::util::Path;

namespace {

std::string const FOLDER = "/srv/volumes/photos/2026";
std::string const NAME = "picture-0001.jpg";
std::string const FILE_PATH = FOLDER + "/" + NAME;

// ---- Joining a folder and a name.

std::string JoinOurs()
{
    return MakePath(FOLDER, NAME);
}

std::string JoinBare()
{
    std::string path;
    path.reserve(FOLDER.size() + 1 + NAME.size());
    path.append(FOLDER).append(1, '/').append(NAME);
    return path;
}

std::string JoinStandard()
{
    return (std::filesystem::path(FOLDER) / NAME).string();
}

std::string JoinBoost()
{
    return (boost::filesystem::path(FOLDER) / NAME).string();
}

std::string JoinPoco()
{
    return Poco::Path(FOLDER, NAME).toString();
}

// ---- The name, with and without extension, and the folder of a path.

std::string SplitOurs()
{
    Path const path(FILE_PATH);
    return path.GetDirectory() + path.GetFullFileName() + path.GetFileName() + path.GetExtension();
}

std::string SplitBare()
{
    std::string::size_type const slash = FILE_PATH.rfind('/');
    std::string::size_type const dot = FILE_PATH.rfind('.');
    return FILE_PATH.substr(0, slash) + FILE_PATH.substr(slash + 1) + FILE_PATH.substr(slash + 1, dot - slash - 1) +
           FILE_PATH.substr(dot + 1);
}

std::string SplitStandard()
{
    std::filesystem::path const path(FILE_PATH);
    return path.parent_path().string() + path.filename().string() + path.stem().string() +
           path.extension().string().substr(1);
}

std::string SplitBoost()
{
    boost::filesystem::path const path(FILE_PATH);
    return path.parent_path().string() + path.filename().string() + path.stem().string() +
           path.extension().string().substr(1);
}

std::string SplitPoco()
{
    Poco::Path const path(FILE_PATH);
    std::string folder = path.parent().toString();
    folder.pop_back();  // the separator, which the others do not show
    return folder + path.getFileName() + path.getBaseName() + path.getExtension();
}

template <std::string (*Operation)(), std::string (*Expected)()>
void Perform(benchmark::State& state)
{
    if (Operation() != Expected())
        state.SkipWithError("another result");
    for (auto _ : state)
        benchmark::DoNotOptimize(Operation());
}
BENCHMARK_TEMPLATE(Perform, JoinOurs, JoinBare)->Name("Path_MakePath_FolderAndName/tovuutil");
BENCHMARK_TEMPLATE(Perform, JoinBare, JoinBare)->Name("Path_MakePath_FolderAndName/bare");
BENCHMARK_TEMPLATE(Perform, JoinStandard, JoinBare)->Name("Path_MakePath_FolderAndName/std");
BENCHMARK_TEMPLATE(Perform, JoinBoost, JoinBare)->Name("Path_MakePath_FolderAndName/Boost");
BENCHMARK_TEMPLATE(Perform, JoinPoco, JoinBare)->Name("Path_MakePath_FolderAndName/POCO");
BENCHMARK_TEMPLATE(Perform, SplitOurs, SplitBare)->Name("Path_Split_FourParts/tovuutil");
BENCHMARK_TEMPLATE(Perform, SplitBare, SplitBare)->Name("Path_Split_FourParts/bare");
BENCHMARK_TEMPLATE(Perform, SplitStandard, SplitBare)->Name("Path_Split_FourParts/std");
BENCHMARK_TEMPLATE(Perform, SplitBoost, SplitBare)->Name("Path_Split_FourParts/Boost");
BENCHMARK_TEMPLATE(Perform, SplitPoco, SplitBare)->Name("Path_Split_FourParts/POCO");

// ---- All components.

void ComponentsOurs(std::string const& path, std::list<std::string>& components)
{
    Path(path).GetComponents(components);
}

void ComponentsStandard(std::string const& path, std::list<std::string>& components)
{
    for (std::filesystem::path const& component : std::filesystem::path(path).relative_path())
        components.push_back(component.string());
}

void ComponentsBoost(std::string const& path, std::list<std::string>& components)
{
    for (boost::filesystem::path const& component : boost::filesystem::path(path).relative_path())
        components.push_back(component.string());
}

void ComponentsPoco(std::string const& path, std::list<std::string>& components)
{
    Poco::Path const split(path);
    for (int i = 0; i <= split.depth(); ++i)
        components.push_back(split[i]);
}

template <void (*Components)(std::string const&, std::list<std::string>&), char SEPARATOR>
void Take(benchmark::State& state)
{
    std::string path;
    std::list<std::string> expected;
    for (long i = 0; i < state.range(0); ++i) {
        expected.push_back("folder" + std::to_string(i));
        path += SEPARATOR + expected.back();
    }
    std::list<std::string> components;
    Components(path, components);
    if (components != expected)
        state.SkipWithError("other components");

    for (auto _ : state) {
        components.clear();
        Components(path, components);
        benchmark::DoNotOptimize(components);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_TEMPLATE(Take, ComponentsOurs, '/')->Name("Path_GetComponents_Slashes/tovuutil")->Arg(5)->Arg(50)->Arg(500);
BENCHMARK_TEMPLATE(Take, ComponentsOurs, '\\')
    ->Name("Path_GetComponents_Backslashes/tovuutil")
    ->Arg(5)
    ->Arg(50)
    ->Arg(500);
BENCHMARK_TEMPLATE(Take, ComponentsStandard, '/')->Name("Path_GetComponents_Slashes/std")->Arg(5)->Arg(50)->Arg(500);
BENCHMARK_TEMPLATE(Take, ComponentsBoost, '/')->Name("Path_GetComponents_Slashes/Boost")->Arg(5)->Arg(50)->Arg(500);
BENCHMARK_TEMPLATE(Take, ComponentsPoco, '/')->Name("Path_GetComponents_Slashes/POCO")->Arg(5)->Arg(50)->Arg(500);

}  // namespace
