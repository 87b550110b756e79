#include "FaultShim.h"

#include <dirent.h>
#include <dlfcn.h>
#include <netdb.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The C library's allocator under its other names: the ones to pass on to before anything can be looked up.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
}

namespace tovu { namespace test {

int const ERRNO_OF_RESOLVER = ENONET;
char const* const TEXT_OF_LOADER = "the loader has failed";

namespace {

// What child processes write to as well: a fault that happens in one is seen by its parent.
struct Shared
{
    std::atomic<unsigned> calls[CALL_COUNT];
    std::atomic<bool> happened;
};

Shared* _shared = nullptr;
Fault _fault = {Fault::NONE, Call::accept, 0, 0};
std::atomic<bool> _allThreads{false};
std::atomic<long> _allocations{0};

// No allocation on first use, since the allocator looks at them.
__attribute__((tls_model("initial-exec"))) thread_local bool _armed = false;
__attribute__((tls_model("initial-exec"))) thread_local bool _loaderFailed = false;

bool IsArmed()
{
    return _armed || _allThreads.load(std::memory_order_relaxed);
}

// Counts a call, and tells whether it is the one that goes wrong.
bool IsTheOne(Call call)
{
    unsigned const count = ++_shared->calls[static_cast<std::size_t>(call)];
    if (_fault.kind == Fault::NONE || call != _fault.call || count != _fault.nth)
        return false;
    _shared->happened = true;
    return true;
}

bool Fails(Call call)
{
    return IsArmed() && IsTheOne(call);
}

// The result of a call that has failed.
template <typename Result>
Result Failed(Result result)
{
    errno = _fault.error;
    return result;
}

// A function that moves `length` bytes: fails, moves fewer, or is passed on.
template <typename Move>
auto Transfer(Call call, std::size_t length, Move move) -> decltype(move(length))
{
    if (!Fails(call))
        return move(length);
    if (_fault.kind == Fault::FAIL)
        return Failed(decltype(move(length))(-1));

    auto const moved = move(_fault.kind == Fault::HALF || length == 0 ? length / 2 : 1);
    if (moved != decltype(moved)(-1))
        errno = 0;
    return moved;
}

// fread and fwrite: an error stops them, after some of the bytes or before the first, and marks the file.
template <typename Move>
std::size_t TransferItems(Call call, std::size_t count, std::FILE* file, Move move)
{
    if (!Fails(call))
        return move(count);

    std::size_t moved = 0;
    if (_fault.kind != Fault::FAIL)
        moved = move(_fault.kind == Fault::HALF || count == 0 ? count / 2 : 1);
    file->_flags |= _IO_ERR_SEEN;
    errno = _fault.kind == Fault::FAIL ? _fault.error : EIO;
    return moved;
}

void* Resolve(char const* name)
{
    bool const armed = _armed;
    _armed = false;
    void* const address = dlsym(RTLD_NEXT, name);
    _armed = armed;
    return address;
}

template <typename Function>
Function* AsFunction(void* address)
{
    return reinterpret_cast<Function*>(address);
}

void* Counted(void* memory)
{
    if (memory != nullptr)
        _allocations.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

void* NoMemory()
{
    errno = ENOMEM;
    return nullptr;
}

}  // namespace

char const* NameOf(Call call)
{
#define TOVU_FAULT_NAME(name) #name,
    static char const* const names[] = {TOVU_FAULT_CALLS(TOVU_FAULT_NAME)};
#undef TOVU_FAULT_NAME
    return names[static_cast<std::size_t>(call)];
}

FaultScope::FaultScope(Fault const& fault, Threads threads)
{
    if (_shared == nullptr) {
        void* const page = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (page == MAP_FAILED)
            std::abort();
        _shared = static_cast<Shared*>(page);
    }
    for (std::atomic<unsigned>& count : _shared->calls)
        count = 0;
    _shared->happened = false;
    _fault = fault;
    errno = 0;
    _armed = true;
    _allThreads = threads == ALL_THREADS;
}

FaultScope::~FaultScope()
{
    _allThreads = false;
    _armed = false;
    _loaderFailed = false;
}

unsigned FaultScope::CountOf(Call call)
{
    return _shared->calls[static_cast<std::size_t>(call)];
}

bool FaultScope::HasHappened()
{
    return _shared->happened;
}

long CountAllocations()
{
    return _allocations;
}

}}  // namespace tovu::test

using tovu::test::Call;
using tovu::test::Counted;
using tovu::test::Failed;
using tovu::test::Fails;
using tovu::test::NoMemory;
using tovu::test::Resolve;
using tovu::test::Transfer;
using tovu::test::TransferItems;

// The C library's own function of that name and type.
#define NEXT(type, name)                           \
    (tovu::test::AsFunction<type>([] {             \
        static void* const found = Resolve(#name); \
        return found;                              \
    }()))

extern "C" {

// Memory.

void* malloc(std::size_t size) noexcept
{
    return Fails(Call::malloc) ? NoMemory() : Counted(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) noexcept
{
    return Fails(Call::malloc) ? NoMemory() : Counted(__libc_calloc(count, size));
}

void* realloc(void* memory, std::size_t size) noexcept
{
    if (Fails(Call::malloc))
        return NoMemory();
    if (memory == nullptr)
        return Counted(__libc_malloc(size));
    if (size == 0)
        tovu::test::_allocations.fetch_sub(1, std::memory_order_relaxed);
    return __libc_realloc(memory, size);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept
{
    return Fails(Call::malloc) ? NoMemory() : Counted(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
{
    return memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept
{
    *memory = memalign(alignment, size);
    return *memory != nullptr ? 0 : ENOMEM;
}

void free(void* memory) noexcept
{
    if (memory != nullptr)
        tovu::test::_allocations.fetch_sub(1, std::memory_order_relaxed);
    __libc_free(memory);
}

// Descriptors.

ssize_t read(int descriptor, void* buffer, std::size_t length)
{
    return Transfer(Call::read, length, [=](std::size_t part) {
        return NEXT(ssize_t(int, void*, std::size_t), read)(descriptor, buffer, part);
    });
}

ssize_t write(int descriptor, void const* buffer, std::size_t length)
{
    return Transfer(Call::write, length, [=](std::size_t part) {
        return NEXT(ssize_t(int, void const*, std::size_t), write)(descriptor, buffer, part);
    });
}

int open(char const* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = va_arg(arguments, mode_t);  // without meaning when the flags ask for none
    va_end(arguments);
    return Fails(Call::open) ? Failed(-1) : NEXT(int(char const*, int, ...), open)(path, flags, mode);
}

int close(int descriptor)
{
    bool const fails = Fails(Call::close);
    int const result = NEXT(int(int), close)(descriptor);
    return fails ? Failed(-1) : result;
}

off_t lseek(int descriptor, off_t offset, int whence) noexcept
{
    return Fails(Call::lseek) ? Failed(off_t{-1}) : NEXT(off_t(int, off_t, int), lseek)(descriptor, offset, whence);
}

int ftruncate(int descriptor, off_t size) noexcept
{
    return Fails(Call::ftruncate) ? Failed(-1) : NEXT(int(int, off_t), ftruncate)(descriptor, size);
}

int fsync(int descriptor)
{
    return Fails(Call::fsync) ? Failed(-1) : NEXT(int(int), fsync)(descriptor);
}

int fcntl(int descriptor, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);  // without meaning for a command that has none
    va_end(arguments);
    return Fails(Call::fcntl) ? Failed(-1) : NEXT(int(int, int, ...), fcntl)(descriptor, command, argument);
}

int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return Fails(Call::ioctl) ? Failed(-1) : NEXT(int(int, unsigned long, ...), ioctl)(descriptor, request, argument);
}

int pipe(int* ends) noexcept
{
    return Fails(Call::pipe) ? Failed(-1) : NEXT(int(int*), pipe)(ends);
}

int select(int count, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout)
{
    return Fails(Call::select) ? Failed(-1)
                               : NEXT(int(int, fd_set*, fd_set*, fd_set*, timeval*), select)(count, reading, writing,
                                                                                             exceptional, timeout);
}

// Sockets.

int socket(int domain, int type, int protocol) noexcept
{
    return Fails(Call::socket) ? Failed(-1) : NEXT(int(int, int, int), socket)(domain, type, protocol);
}

int accept(int descriptor, sockaddr* address, socklen_t* length)
{
    return Fails(Call::accept) ? Failed(-1)
                               : NEXT(int(int, sockaddr*, socklen_t*), accept)(descriptor, address, length);
}

int bind(int descriptor, sockaddr const* address, socklen_t length) noexcept
{
    return Fails(Call::bind) ? Failed(-1)
                             : NEXT(int(int, sockaddr const*, socklen_t), bind)(descriptor, address, length);
}

int connect(int descriptor, sockaddr const* address, socklen_t length)
{
    return Fails(Call::connect) ? Failed(-1)
                                : NEXT(int(int, sockaddr const*, socklen_t), connect)(descriptor, address, length);
}

int listen(int descriptor, int backlog) noexcept
{
    return Fails(Call::listen) ? Failed(-1) : NEXT(int(int, int), listen)(descriptor, backlog);
}

ssize_t recv(int descriptor, void* buffer, std::size_t length, int flags)
{
    return Transfer(Call::recv, length, [=](std::size_t part) {
        return NEXT(ssize_t(int, void*, std::size_t, int), recv)(descriptor, buffer, part, flags);
    });
}

ssize_t recvfrom(int descriptor, void* buffer, std::size_t length, int flags, sockaddr* from, socklen_t* size)
{
    using Function = ssize_t(int, void*, std::size_t, int, sockaddr*, socklen_t*);
    return Transfer(Call::recvfrom, length, [=](std::size_t part) {
        return NEXT(Function, recvfrom)(descriptor, buffer, part, flags, from, size);
    });
}

ssize_t send(int descriptor, void const* buffer, std::size_t length, int flags)
{
    return Transfer(Call::send, length, [=](std::size_t part) {
        return NEXT(ssize_t(int, void const*, std::size_t, int), send)(descriptor, buffer, part, flags);
    });
}

ssize_t sendto(int descriptor, void const* buffer, std::size_t length, int flags, sockaddr const* to, socklen_t size)
{
    using Function = ssize_t(int, void const*, std::size_t, int, sockaddr const*, socklen_t);
    return Transfer(Call::sendto, length, [=](std::size_t part) {
        return NEXT(Function, sendto)(descriptor, buffer, part, flags, to, size);
    });
}

int getsockname(int descriptor, sockaddr* address, socklen_t* length) noexcept
{
    return Fails(Call::getsockname) ? Failed(-1)
                                    : NEXT(int(int, sockaddr*, socklen_t*), getsockname)(descriptor, address, length);
}

int getpeername(int descriptor, sockaddr* address, socklen_t* length) noexcept
{
    return Fails(Call::getpeername) ? Failed(-1)
                                    : NEXT(int(int, sockaddr*, socklen_t*), getpeername)(descriptor, address, length);
}

int getsockopt(int descriptor, int level, int option, void* value, socklen_t* length) noexcept
{
    using Function = int(int, int, int, void*, socklen_t*);
    return Fails(Call::getsockopt) ? Failed(-1) : NEXT(Function, getsockopt)(descriptor, level, option, value, length);
}

int setsockopt(int descriptor, int level, int option, void const* value, socklen_t length) noexcept
{
    using Function = int(int, int, int, void const*, socklen_t);
    return Fails(Call::setsockopt) ? Failed(-1) : NEXT(Function, setsockopt)(descriptor, level, option, value, length);
}

int gethostname(char* name, std::size_t length) noexcept
{
    return Fails(Call::gethostname) ? Failed(-1) : NEXT(int(char*, std::size_t), gethostname)(name, length);
}

int getaddrinfo(char const* host, char const* service, addrinfo const* hints, addrinfo** results)
{
    using Function = int(char const*, char const*, addrinfo const*, addrinfo**);
    if (!Fails(Call::getaddrinfo))
        return NEXT(Function, getaddrinfo)(host, service, hints, results);

    errno = tovu::test::ERRNO_OF_RESOLVER;
    return tovu::test::_fault.error;
}

netent* getnetbyname(char const* name)
{
    return Fails(Call::getnetbyname) ? Failed<netent*>(nullptr) : NEXT(netent * (char const*), getnetbyname)(name);
}

// Buffered files.

FILE* fopen(char const* path, char const* mode)
{
    return Fails(Call::fopen) ? Failed<FILE*>(nullptr) : NEXT(FILE * (char const*, char const*), fopen)(path, mode);
}

FILE* fopen64(char const* path, char const* mode)
{
    return Fails(Call::fopen) ? Failed<FILE*>(nullptr) : NEXT(FILE * (char const*, char const*), fopen64)(path, mode);
}

int fclose(FILE* file)
{
    bool const fails = Fails(Call::fclose);
    int const result = NEXT(int(FILE*), fclose)(file);
    return fails ? Failed(EOF) : result;
}

int fflush(FILE* file)
{
    return Fails(Call::fflush) ? Failed(EOF) : NEXT(int(FILE*), fflush)(file);
}

std::size_t fread(void* buffer, std::size_t size, std::size_t count, FILE* file)
{
    return TransferItems(Call::fread, count, file, [=](std::size_t part) {
        return NEXT(std::size_t(void*, std::size_t, std::size_t, FILE*), fread)(buffer, size, part, file);
    });
}

std::size_t fwrite(void const* buffer, std::size_t size, std::size_t count, FILE* file)
{
    return TransferItems(Call::fwrite, count, file, [=](std::size_t part) {
        return NEXT(std::size_t(void const*, std::size_t, std::size_t, FILE*), fwrite)(buffer, size, part, file);
    });
}

int fseek(FILE* file, long offset, int whence)
{
    return Fails(Call::fseek) ? Failed(-1) : NEXT(int(FILE*, long, int), fseek)(file, offset, whence);
}

long ftell(FILE* file)
{
    return Fails(Call::ftell) ? Failed(-1L) : NEXT(long(FILE*), ftell)(file);
}

int fprintf(FILE* file, char const* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    int const result = Fails(Call::fprintf) ? Failed(-1) : vfprintf(file, format, arguments);
    va_end(arguments);
    return result;
}

int __fprintf_chk(FILE* file, int /*flag*/, char const* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    int const result = Fails(Call::fprintf) ? Failed(-1) : vfprintf(file, format, arguments);
    va_end(arguments);
    return result;
}

int vsnprintf(char* text, std::size_t size, char const* format, va_list arguments) noexcept
{
    using Function = int(char*, std::size_t, char const*, va_list);
    return Fails(Call::vsnprintf) ? Failed(-1) : NEXT(Function, vsnprintf)(text, size, format, arguments);
}

int __vsnprintf_chk(char* text, std::size_t size, int flag, std::size_t room, char const* format,
                    va_list arguments) noexcept
{
    using Function = int(char*, std::size_t, int, std::size_t, char const*, va_list);
    return Fails(Call::vsnprintf) ? Failed(-1)
                                  : NEXT(Function, __vsnprintf_chk)(text, size, flag, room, format, arguments);
}

char* strerror(int error) noexcept
{
    return Fails(Call::strerror) ? Failed<char*>(nullptr) : NEXT(char*(int), strerror)(error);
}

FILE* popen(char const* command, char const* mode)
{
    return Fails(Call::popen) ? Failed<FILE*>(nullptr) : NEXT(FILE * (char const*, char const*), popen)(command, mode);
}

int pclose(FILE* file)
{
    bool const fails = Fails(Call::pclose);
    int const result = NEXT(int(FILE*), pclose)(file);
    return fails ? Failed(-1) : result;
}

// The file system. The types of the 64-bit variants have no names here.

int mkdir(char const* path, mode_t mode) noexcept
{
    return Fails(Call::mkdir) ? Failed(-1) : NEXT(int(char const*, mode_t), mkdir)(path, mode);
}

int unlink(char const* path) noexcept
{
    return Fails(Call::unlink) ? Failed(-1) : NEXT(int(char const*), unlink)(path);
}

int stat(char const* path, struct stat* status) noexcept
{
    return Fails(Call::stat) ? Failed(-1) : NEXT(int(char const*, struct stat*), stat)(path, status);
}

int __stat64_time64(char const* path, void* status) noexcept
{
    return Fails(Call::stat) ? Failed(-1) : NEXT(int(char const*, void*), __stat64_time64)(path, status);
}

int lstat(char const* path, struct stat* status) noexcept
{
    return Fails(Call::lstat) ? Failed(-1) : NEXT(int(char const*, struct stat*), lstat)(path, status);
}

int __lstat64_time64(char const* path, void* status) noexcept
{
    return Fails(Call::lstat) ? Failed(-1) : NEXT(int(char const*, void*), __lstat64_time64)(path, status);
}

int statvfs(char const* path, struct statvfs* volume) noexcept
{
    return Fails(Call::statvfs) ? Failed(-1) : NEXT(int(char const*, struct statvfs*), statvfs)(path, volume);
}

int statvfs64(char const* path, struct statvfs64* volume) noexcept
{
    return Fails(Call::statvfs) ? Failed(-1) : NEXT(int(char const*, struct statvfs64*), statvfs64)(path, volume);
}

DIR* opendir(char const* path)
{
    return Fails(Call::opendir) ? Failed<DIR*>(nullptr) : NEXT(DIR * (char const*), opendir)(path);
}

dirent* readdir(DIR* folder)
{
    return Fails(Call::readdir) ? Failed<dirent*>(nullptr) : NEXT(dirent * (DIR*), readdir)(folder);
}

struct dirent64* readdir64(DIR* folder)
{
    return Fails(Call::readdir) ? Failed<dirent64*>(nullptr) : NEXT(struct dirent64 * (DIR*), readdir64)(folder);
}

int closedir(DIR* folder)
{
    bool const fails = Fails(Call::closedir);
    int const result = NEXT(int(DIR*), closedir)(folder);
    return fails ? Failed(-1) : result;
}

// Processes.

pid_t fork() noexcept
{
    return Fails(Call::fork) ? Failed(pid_t{-1}) : NEXT(pid_t(), fork)();
}

int execvp(char const* program, char* const* arguments) noexcept
{
    return Fails(Call::execvp) ? Failed(-1) : NEXT(int(char const*, char* const*), execvp)(program, arguments);
}

int execle(char const* program, char const* first, ...) noexcept
{
    if (Fails(Call::execle))
        return Failed(-1);

    constexpr std::size_t MAXIMUM = 8;
    char const* arguments[MAXIMUM + 1] = {first};
    va_list rest;
    va_start(rest, first);
    for (std::size_t i = 0; arguments[i] != nullptr && i < MAXIMUM; ++i)
        arguments[i + 1] = va_arg(rest, char const*);
    char* const* const environment = va_arg(rest, char* const*);
    va_end(rest);
    return execve(program, const_cast<char* const*>(arguments), environment);
}

pid_t waitpid(pid_t process, int* status, int options)
{
    return Fails(Call::waitpid) ? Failed(pid_t{-1}) : NEXT(pid_t(pid_t, int*, int), waitpid)(process, status, options);
}

int kill(pid_t process, int signal) noexcept
{
    return Fails(Call::kill) ? Failed(-1) : NEXT(int(pid_t, int), kill)(process, signal);
}

int getrlimit(__rlimit_resource_t resource, struct rlimit* limit) noexcept
{
    using Function = int(__rlimit_resource_t, struct rlimit*);
    return Fails(Call::getrlimit) ? Failed(-1) : NEXT(Function, getrlimit)(resource, limit);
}

int setrlimit(__rlimit_resource_t resource, struct rlimit const* limit) noexcept
{
    using Function = int(__rlimit_resource_t, struct rlimit const*);
    return Fails(Call::setrlimit) ? Failed(-1) : NEXT(Function, setrlimit)(resource, limit);
}

int setpriority(__priority_which_t which, id_t who, int priority) noexcept
{
    using Function = int(__priority_which_t, id_t, int);
    return Fails(Call::setpriority) ? Failed(-1) : NEXT(Function, setpriority)(which, who, priority);
}

// Plug-ins.

void* dlopen(char const* path, int mode) noexcept
{
    if (!Fails(Call::dlopen))
        return NEXT(void*(char const*, int), dlopen)(path, mode);
    tovu::test::_loaderFailed = true;
    return nullptr;
}

int dlclose(void* library) noexcept
{
    if (!Fails(Call::dlclose))
        return NEXT(int(void*), dlclose)(library);
    tovu::test::_loaderFailed = true;
    return -1;
}

char* dlerror() noexcept
{
    if (!tovu::test::_loaderFailed)
        return NEXT(char*(), dlerror)();
    tovu::test::_loaderFailed = false;
    return const_cast<char*>(tovu::test::TEXT_OF_LOADER);
}

// Threads. These return their error number.

int pthread_create(pthread_t* thread, pthread_attr_t const* attributes, void* (*body)(void*), void* argument) noexcept
{
    using Function = int(pthread_t*, pthread_attr_t const*, void* (*)(void*), void*);
    return Fails(Call::pthread_create) ? tovu::test::_fault.error
                                       : NEXT(Function, pthread_create)(thread, attributes, body, argument);
}

int pthread_join(pthread_t thread, void** result)
{
    bool const fails = Fails(Call::pthread_join);
    int const error = NEXT(int(pthread_t, void**), pthread_join)(thread, result);
    return fails ? tovu::test::_fault.error : error;
}

int pthread_setaffinity_np(pthread_t thread, std::size_t size, cpu_set_t const* processors) noexcept
{
    using Function = int(pthread_t, std::size_t, cpu_set_t const*);
    return Fails(Call::pthread_setaffinity_np) ? tovu::test::_fault.error
                                               : NEXT(Function, pthread_setaffinity_np)(thread, size, processors);
}

int pthread_mutex_init(pthread_mutex_t* mutex, pthread_mutexattr_t const* attributes) noexcept
{
    bool const fails = Fails(Call::pthread_mutex_init);
    int const error = NEXT(int(pthread_mutex_t*, pthread_mutexattr_t const*), pthread_mutex_init)(mutex, attributes);
    return fails ? tovu::test::_fault.error : error;
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    return Fails(Call::pthread_mutex_lock) ? tovu::test::_fault.error
                                           : NEXT(int(pthread_mutex_t*), pthread_mutex_lock)(mutex);
}

int pthread_cond_init(pthread_cond_t* condition, pthread_condattr_t const* attributes) noexcept
{
    using Function = int(pthread_cond_t*, pthread_condattr_t const*);
    return Fails(Call::pthread_cond_init) ? tovu::test::_fault.error
                                          : NEXT(Function, pthread_cond_init)(condition, attributes);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    return Fails(Call::pthread_cond_wait)
               ? tovu::test::_fault.error
               : NEXT(int(pthread_cond_t*, pthread_mutex_t*), pthread_cond_wait)(condition, mutex);
}

int pthread_condattr_init(pthread_condattr_t* attributes) noexcept
{
    return Fails(Call::pthread_condattr_init) ? tovu::test::_fault.error
                                              : NEXT(int(pthread_condattr_t*), pthread_condattr_init)(attributes);
}

}  // extern "C"
