#pragma once

#include <cstddef>

// A library that stands between the tested one and the system: it defines the functions below, counts their calls, and
// lets the n-th one fail or move fewer bytes than it was asked for. It works as the first library that a program is
// linked with and by LD_PRELOAD; outside of a FaultScope it passes everything on.

namespace tovu { namespace test {

/// The functions, by their names. The 64-bit variants of a 32-bit build and the checked variants of a hardened one go
/// under the plain name, and calloc, realloc and operator new under malloc.
#define TOVU_FAULT_CALLS(CALL)   \
    CALL(accept)                 \
    CALL(bind)                   \
    CALL(close)                  \
    CALL(closedir)               \
    CALL(connect)                \
    CALL(dlclose)                \
    CALL(dlopen)                 \
    CALL(execle)                 \
    CALL(execvp)                 \
    CALL(fclose)                 \
    CALL(fcntl)                  \
    CALL(fflush)                 \
    CALL(fopen)                  \
    CALL(fork)                   \
    CALL(fprintf)                \
    CALL(fread)                  \
    CALL(fseek)                  \
    CALL(fsync)                  \
    CALL(ftell)                  \
    CALL(ftruncate)              \
    CALL(fwrite)                 \
    CALL(getaddrinfo)            \
    CALL(gethostname)            \
    CALL(getnetbyname)           \
    CALL(getpeername)            \
    CALL(getrlimit)              \
    CALL(getsockname)            \
    CALL(getsockopt)             \
    CALL(ioctl)                  \
    CALL(kill)                   \
    CALL(listen)                 \
    CALL(lseek)                  \
    CALL(lstat)                  \
    CALL(malloc)                 \
    CALL(mkdir)                  \
    CALL(open)                   \
    CALL(opendir)                \
    CALL(pclose)                 \
    CALL(pipe)                   \
    CALL(popen)                  \
    CALL(pthread_cond_init)      \
    CALL(pthread_cond_wait)      \
    CALL(pthread_condattr_init)  \
    CALL(pthread_create)         \
    CALL(pthread_join)           \
    CALL(pthread_mutex_init)     \
    CALL(pthread_mutex_lock)     \
    CALL(pthread_setaffinity_np) \
    CALL(read)                   \
    CALL(readdir)                \
    CALL(recv)                   \
    CALL(recvfrom)               \
    CALL(select)                 \
    CALL(send)                   \
    CALL(sendto)                 \
    CALL(setpriority)            \
    CALL(setrlimit)              \
    CALL(setsockopt)             \
    CALL(socket)                 \
    CALL(stat)                   \
    CALL(statvfs)                \
    CALL(strerror)               \
    CALL(unlink)                 \
    CALL(vsnprintf)              \
    CALL(waitpid)                \
    CALL(write)

enum class Call : unsigned
{
#define TOVU_FAULT_ENUMERATOR(name) name,
    TOVU_FAULT_CALLS(TOVU_FAULT_ENUMERATOR)
#undef TOVU_FAULT_ENUMERATOR
};

#define TOVU_FAULT_ONE(name) +1
constexpr std::size_t CALL_COUNT = TOVU_FAULT_CALLS(TOVU_FAULT_ONE);
#undef TOVU_FAULT_ONE

char const* NameOf(Call call);

/// What a resolver leaves in `errno` when it fails with a code of its own, one of EAI_, which are negative.
extern int const ERRNO_OF_RESOLVER;

/// What the loader's dlerror(3) tells after a fault.
extern char const* const TEXT_OF_LOADER;

/// What goes wrong.
struct Fault
{
    enum Kind
    {
        NONE,  ///< Nothing: the calls are counted.
        FAIL,  ///< The n-th call fails. What it would have released (a descriptor, a thread) is released all the same,
               ///< as the system does it.
        ONE_BYTE,  ///< The n-th call moves one byte.
        HALF       ///< The n-th call moves half of its bytes.
    };

    Kind kind;
    Call call;
    unsigned nth;  ///< Counted from 1.
    int error;     ///< With FAIL: what `errno` becomes, or the result of a function that returns error numbers.
};

/// Lets a fault happen, once, for the length of a scope. One scope at a time.
class FaultScope
{
public:
    enum Threads
    {
        THIS_THREAD,  ///< The one that makes the scope, and its child processes until they become programs.
        ALL_THREADS
    };

    explicit FaultScope(Fault const& fault, Threads threads = THIS_THREAD);
    FaultScope(FaultScope const&) = delete;
    FaultScope& operator=(FaultScope const&) = delete;
    ~FaultScope();

    /// How often a function was called in the last scope.
    static unsigned CountOf(Call call);

    /// Whether the fault of the last scope has happened.
    static bool HasHappened();
};

/// How many pieces of memory the process holds.
long CountAllocations();

}}  // namespace tovu::test
