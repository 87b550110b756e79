#include "ChildProcess.h"

#include <gtest/gtest.h>
#include <mntent.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>

namespace tovu { namespace test {

namespace {

int RunBody(std::function<void()> const& body)
{
    try {
        body();
    } catch (std::exception const& exception) {
        std::printf("an exception escaped: %s\n", exception.what());
        return 2;
    } catch (...) {
        std::printf("an exception of an unknown type escaped\n");
        return 2;
    }
    return testing::Test::HasFailure() ? 1 : 0;
}

// A child that goes astray must not outlive the test, nor keep a processor for long.
void EndWithTheTest()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    rlimit const cpuSeconds = {60, 60};
    setrlimit(RLIMIT_CPU, &cpuSeconds);
}

std::string ReadToEnd(int descriptor)
{
    std::string text;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = read(descriptor, buffer, sizeof(buffer))) > 0 || (count == -1 && errno == EINTR)) {
        if (count > 0)
            text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

bool WriteFile(char const* path, std::string const& text)
{
    FILE* const file = std::fopen(path, "w");
    if (file == nullptr)
        return false;
    bool const written = std::fputs(text.c_str(), file) >= 0;
    return std::fclose(file) == 0 && written;
}

// In a chroot "/" is no mount point, so each mount that can be seen is taken by itself.
bool MakeMountsPrivate()
{
    if (mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0)
        return true;

    FILE* const mounts = setmntent("/proc/self/mounts", "r");
    if (mounts == nullptr)
        return false;
    bool done = true;
    while (mntent const* const entry = getmntent(mounts))
        done = mount("none", entry->mnt_dir, "none", MS_PRIVATE, nullptr) == 0 && done;
    endmntent(mounts);
    return done;
}

}  // namespace

ChildResult RunInChild(std::function<void()> const& body)
{
    int output[2];
    if (pipe(output) == -1) {
        ADD_FAILURE() << "pipe failed";
        return {false, 0, ""};
    }

    std::fflush(nullptr);
    pid_t const child = fork();
    if (child == 0) {
        EndWithTheTest();
        dup2(output[1], STDOUT_FILENO);
        dup2(output[1], STDERR_FILENO);
        close(output[0]);
        close(output[1]);
        int const code = RunBody(body);
        std::fflush(nullptr);
        _exit(code);
    }
    close(output[1]);

    ChildResult result = {false, 0, ReadToEnd(output[0])};
    close(output[0]);

    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR)
        continue;
    result.exited = WIFEXITED(status);
    result.code = result.exited ? WEXITSTATUS(status) : WTERMSIG(status);
    return result;
}

void ExpectPassesInChild(std::function<void()> const& body)
{
    ChildResult const result = RunInChild(body);
    EXPECT_TRUE(result.exited) << "ended by signal " << result.code << "\n" << result.output;
    EXPECT_EQ(0, result.code) << result.output;
}

bool EnterNamespace(int flags)
{
    if (unshare(flags) == 0)
        return true;

    uid_t const user = getuid();
    gid_t const group = getgid();
    if (unshare(flags | CLONE_NEWUSER) == -1)
        return false;
    return WriteFile("/proc/self/setgroups", "deny") &&
           WriteFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1\n") &&
           WriteFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1\n");
}

bool EnterMountNamespace()
{
    return EnterNamespace(CLONE_NEWNS) && MakeMountsPrivate();
}

}}  // namespace tovu::test
