#include <unistd.h>

#include <string>

#include "FaultFixture.h"
#include "tovu/util/Directory.h"
#include "tovu/util/GUID.h"
#include "tovu/util/Path.h"
#include "tovu/util/StatusParams.h"

namespace tovu { namespace test {

namespace {

using util::Directory;
using util::GUID;
using util::Path;
using util::StatusParams;

void RunPath(Run& run)
{
    std::string const folder = FaultFolder() / "a-folder";
    rmdir(folder.c_str());
    FaultScope const scope(run.fault);
    Path const path(folder);
    run.out << path.Create(0700) << path.Exists();
}

Scenario PathScenario()
{
    return {"Path",
            {"Path"},
            RunPath,
            "true true",
            {
                Fails(Call::mkdir, Gives("false false")),
                Fails(Call::stat, Gives("true false")),
            },
            {},
            true};
}

// A folder with one file, next to which stand "." and "..".
std::string const& ListedFolder()
{
    static TemporaryDirectory const folder;
    static std::string const path = folder / "";
    static bool const made = (WriteFile(folder / "file", "x"), true);
    static_cast<void>(made);
    return path;
}

void RunDirectory(Run& run)
{
    std::string const& path = ListedFolder();
    FaultScope const scope(run.fault);
    Directory directory(path);
    run.out << (directory.lastModifiedDate != -1);

    int entries = 0;
    int named = 0;
    Directory::Entry entry;
    for (bool found = directory.GetFirstEntry(entry); found; found = directory.GetNextEntry(entry)) {
        ++entries;
        named += entry.name.empty() ? 0 : 1;
    }
    directory.Close();
    run.out << entries << named;
}

Scenario DirectoryScenario()
{
    return {"Directory",
            {"Directory"},
            RunDirectory,
            "true 3 3",
            {
                Fails(Call::stat, Gives("false 3 3")),
                Fails(Call::opendir, Gives("true 0 0")),
                Fails(Call::readdir, {Gives("true 0 0"), Gives("true 1 1"), Gives("true 2 2"), Ignored()}),
                Fails(Call::lstat, Times(3, Gives("true 3 2"))),
                Fails(Call::closedir, Ignored()),
            },
            {"true 0 0"},
            true};
}

void RunDirectoryEntry(Run& run)
{
    std::string const path = ListedFolder() + "file";
    FaultScope const scope(run.fault);
    Directory::Entry const entry(path);
    run.out << entry.name << entry.type << entry.size;
}

Scenario DirectoryEntryScenario()
{
    return {
        "DirectoryEntry", {"Directory"}, RunDirectoryEntry, "file 1 1", {Fails(Call::stat, Gives("0 0"))}, {}, true};
}

// The two digits that do not come from the device. How much it gives is not looked at.
void RunGuid(Run& run)
{
    FaultScope const scope(run.fault);
    std::string const text = GUID::FromRandom().ToString();
    run.out << text.size() << text.substr(12, 1) << (text.find_first_of("89ab", 16) == 16);
}

Scenario GuidScenario()
{
    return {"GUID",
            {"GUID"},
            RunGuid,
            "32 4 true",
            {
                Fails(Call::fopen, ThrowsOther("std::runtime_error failed to open random device.")),
                Fails(Call::read, Ignored()),
                MovesOneByte(Call::read, {Ignored()}),
                MovesHalf(Call::read, {Ignored()}),
                Fails(Call::fclose, Ignored()),
            },
            {"std::runtime_error failed to open random device."},
            true};
}

// A volume that cannot be asked has nothing free.
void RunFreeSpace(Run& run)
{
    FaultScope const scope(run.fault);
    run.out << (StatusParams::GetRemainingDiskSpace("/") != 0) << (StatusParams::GetFreeDiskSpace("/") != "0 bytes");
}

Scenario FreeSpaceScenario()
{
    return {"StatusParamsSpace",
            {"StatusParams"},
            RunFreeSpace,
            "true true",
            {Fails(Call::statvfs, {Gives("false true"), Gives("true false")})},
            {},
            true};
}

void RunPopen(Run& run)
{
    FaultScope const scope(run.fault);
    run.out << StatusParams::DoPopen("{ echo hello; } 2>&-");
}

Scenario PopenScenario()
{
    return {"StatusParamsPopen",
            {"StatusParams"},
            RunPopen,
            "hello\n",
            {
                Fails(Call::popen, Gives("")),
                Fails(Call::fread, Gives("")),
                MovesOneByte(Call::fread, {Gives("h")}),
                MovesHalf(Call::fread, {Ignored()}),
                Fails(Call::pclose, Ignored()),
            },
            {""},
            true};
}

void RunRegistry(Run& run)
{
    FaultScope const scope(run.fault);
    run.out << StatusParams::GetStatusFlag("/faults/volume");
    StatusParams::RemoveDiskInfo("/faults/volume");
}

Scenario RegistryScenario()
{
    return {"StatusParams",
            {"StatusParams"},
            RunRegistry,
            "normal",
            {Fails(Call::pthread_mutex_lock, Times(3, Ignored()))},
            {},
            true};
}

}  // namespace

std::vector<Scenario> FileScenarios()
{
    return {PathScenario(),      DirectoryScenario(), DirectoryEntryScenario(), GuidScenario(),
            FreeSpaceScenario(), PopenScenario(),     RegistryScenario()};
}

}}  // namespace tovu::test
