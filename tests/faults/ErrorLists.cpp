#include "ErrorLists.h"

#include <netdb.h>

#include <cerrno>

namespace tovu { namespace test {

namespace {

using Errors = std::vector<int>;

Errors operator+(Errors const& left, Errors const& right)
{
    Errors both(left);
    both.insert(both.end(), right.begin(), right.end());
    return both;
}

// Errors of a path, in every function that takes one.
Errors const PATH = {EACCES, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR};

Errors const OPEN =
    PATH + Errors{EBUSY,  EDQUOT, EEXIST, EFAULT, EFBIG,      EINTR,     EINVAL, EISDIR,  EMFILE, ENFILE,
                  ENODEV, ENOSPC, ENXIO,  EPERM,  EOPNOTSUPP, EOVERFLOW, EROFS,  ETXTBSY, EAGAIN};
Errors const READ = {EAGAIN, EBADF, EFAULT, EINTR, EINVAL, EIO, EISDIR};
Errors const WRITE = {EAGAIN, EBADF, EDESTADDRREQ, EDQUOT, EFAULT, EFBIG, EINTR, EINVAL, EIO, ENOSPC, EPERM, EPIPE};
Errors const SEEK = {EBADF, EINVAL, ENXIO, EOVERFLOW, ESPIPE};
Errors const CLOSE = {EBADF, EINTR, EIO, ENOSPC, EDQUOT};
Errors const RECEIVE = {EAGAIN, EBADF,  ECONNREFUSED, ECONNRESET, EFAULT,   EINTR,
                        EINVAL, ENOMEM, ENOTCONN,     ENOTSOCK,   ETIMEDOUT};
Errors const SEND = {EACCES,  EAGAIN, EALREADY, EBADF,   ECONNRESET, EDESTADDRREQ, EFAULT,     EINTR, EINVAL,
                     EISCONN, ENOMEM, EMSGSIZE, ENOBUFS, ENOTCONN,   ENOTSOCK,     EOPNOTSUPP, EPIPE, ENETUNREACH};
Errors const NAME = {EBADF, EFAULT, EINVAL, ENOBUFS, ENOTSOCK};
Errors const PROCESS = {EAGAIN, ENOMEM, ENOSYS};
Errors const EXEC =
    PATH + Errors{E2BIG, EAGAIN, EFAULT, EINVAL, EIO, EISDIR, ELIBBAD, EMFILE, ENFILE, EPERM, ENOEXEC, ETXTBSY};
Errors const LIMIT = {EFAULT, EINVAL, EPERM};
Errors const STATUS = PATH + Errors{EBADF, EFAULT, EINVAL, EOVERFLOW};

std::map<Call, Errors> const ERRORS = {
    {Call::accept,
     {EAGAIN, EBADF, ECONNABORTED, EFAULT, EINTR, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM, ENOTSOCK, EOPNOTSUPP, EPERM,
      EPROTO}},
    {Call::bind, PATH + Errors{EADDRINUSE, EADDRNOTAVAIL, EBADF, EFAULT, EINVAL, ENOTSOCK, EROFS}},
    {Call::close, CLOSE},
    {Call::closedir, {EBADF}},
    {Call::connect,
     {EACCES, EPERM, EADDRINUSE, EADDRNOTAVAIL, EAFNOSUPPORT, EAGAIN, EALREADY, EBADF, ECONNREFUSED, EFAULT,
      EINPROGRESS, EINTR, EISCONN, ENETUNREACH, ENOTSOCK, EPROTOTYPE, ETIMEDOUT}},
    {Call::dlclose, {0}},
    {Call::dlopen, {0}},
    {Call::execle, EXEC},
    {Call::execvp, EXEC},
    {Call::fclose, CLOSE + WRITE},
    {Call::fcntl, {EACCES, EAGAIN, EBADF, EDEADLK, EFAULT, EINTR, EINVAL, ENOLCK, EPERM}},
    {Call::fflush, WRITE},
    {Call::fopen, OPEN},
    {Call::fork, PROCESS},
    {Call::fprintf, WRITE + Errors{EILSEQ, ENOMEM, EOVERFLOW}},
    {Call::fread, READ},
    {Call::fseek, SEEK + WRITE},
    {Call::fsync, {EBADF, EINTR, EIO, ENOSPC, EROFS, EINVAL, EDQUOT}},
    {Call::ftell, SEEK},
    {Call::ftruncate, {EACCES, EBADF, EFBIG, EINTR, EINVAL, EIO, EISDIR, EPERM, EROFS, ETXTBSY}},
    {Call::fwrite, WRITE},
    {Call::getaddrinfo,
     {EAI_ADDRFAMILY, EAI_AGAIN, EAI_BADFLAGS, EAI_FAIL, EAI_FAMILY, EAI_MEMORY, EAI_NODATA, EAI_NONAME, EAI_SERVICE,
      EAI_SOCKTYPE, EAI_SYSTEM}},
    {Call::gethostname, {EFAULT, EINVAL, ENAMETOOLONG, EPERM}},
    {Call::getnetbyname, {ENOENT, EMFILE, ENOMEM}},  // the man page lists none: no such file, and no room for it
    {Call::getpeername, NAME + Errors{ENOTCONN}},
    {Call::getrlimit, LIMIT},
    {Call::getsockname, NAME},
    {Call::getsockopt, {EBADF, EFAULT, EINVAL, ENOPROTOOPT, ENOTSOCK}},
    {Call::ioctl, {EBADF, EFAULT, EINVAL, ENOTTY}},
    {Call::kill, {EINVAL, EPERM, ESRCH}},
    {Call::listen, {EADDRINUSE, EBADF, ENOTSOCK, EOPNOTSUPP}},
    {Call::lseek, SEEK},
    {Call::lstat, STATUS},
    {Call::malloc, {ENOMEM}},
    {Call::mkdir, PATH + Errors{EDQUOT, EEXIST, EFAULT, EINVAL, EMLINK, ENOSPC, EPERM, EROFS}},
    {Call::open, OPEN},
    {Call::opendir, {EACCES, EBADF, EMFILE, ENFILE, ENOENT, ENOMEM, ENOTDIR}},
    {Call::pclose, {ECHILD, EINVAL}},
    {Call::pipe, {EFAULT, EINVAL, EMFILE, ENFILE}},
    {Call::popen, PROCESS + Errors{EINVAL, EMFILE, ENFILE}},
    {Call::pthread_cond_init, {EAGAIN, ENOMEM}},
    {Call::pthread_cond_wait, {EINVAL, EPERM}},
    {Call::pthread_condattr_init, {ENOMEM}},
    {Call::pthread_create, {EAGAIN, EINVAL, EPERM}},
    {Call::pthread_join, {EDEADLK, EINVAL, ESRCH}},
    {Call::pthread_mutex_init, {EAGAIN, ENOMEM, EPERM}},
    {Call::pthread_mutex_lock, {EAGAIN, EDEADLK, EINVAL}},
    {Call::pthread_setaffinity_np, {EFAULT, EINVAL, ESRCH}},
    {Call::read, READ},
    {Call::readdir, {EBADF}},
    {Call::recv, RECEIVE},
    {Call::recvfrom, RECEIVE},
    {Call::select, {EBADF, EINTR, EINVAL, ENOMEM}},
    {Call::send, SEND},
    {Call::sendto, SEND},
    {Call::setpriority, {EINVAL, ESRCH, EACCES, EPERM}},
    {Call::setrlimit, LIMIT},
    {Call::setsockopt, {EBADF, EFAULT, EINVAL, ENOPROTOOPT, ENOTSOCK}},
    {Call::socket, {EACCES, EAFNOSUPPORT, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPROTONOSUPPORT}},
    {Call::stat, STATUS},
    {Call::statvfs, PATH + Errors{EFAULT, EINTR, EIO, ENOSYS, EOVERFLOW}},
    {Call::strerror, {EINVAL}},
    {Call::unlink, PATH + Errors{EBUSY, EFAULT, EIO, EISDIR, EPERM, EROFS}},
    {Call::vsnprintf, {EILSEQ, ENOMEM, EOVERFLOW}},
    {Call::waitpid, {ECHILD, EINTR, EINVAL}},
    {Call::write, WRITE},
};

char const* const MEMORY_ALONE = "works on memory alone";
char const* const COMPILER = "the compiler's or the loader's own";
char const* const NO_RESULT = "has no result";
char const* const OWN_LOCK = "fails only for a lock or a condition that is none, or is not held";

std::map<std::string, std::string> const DO_NOT_FAIL = {
    {"__assert_fail", "ends the process"},
    {"__cxa_atexit", COMPILER},
    {"__cxa_finalize", COMPILER},
    {"__dynamic_cast", COMPILER},
    {"__errno_location", MEMORY_ALONE},
    {"__fdelt_chk", "ends the process, or gives its argument back"},
    {"__gmon_start__", COMPILER},
    {"__localtime64_r", "fails only for a year beyond an int"},
    {"__snprintf_chk", "as snprintf"},
    {"__stack_chk_fail", "ends the process"},
    {"__syslog_chk", NO_RESULT},
    {"__time64", "fails only for an address that is none"},
    {"__tls_get_addr", COMPILER},
    {"_exit", "does not come back"},
    {"abort", "ends the process"},
    {"dlerror", "tells of a failure"},
    {"dlsym", "fails for a name that is not there, which DynamicLibrary's scenario asks for"},
    {"feof", MEMORY_ALONE},
    {"ferror", MEMORY_ALONE},
    {"freeaddrinfo", NO_RESULT},
    {"getenv", MEMORY_ALONE},
    {"getpid", "always succeeds"},
    {"htons", MEMORY_ALONE},
    {"inet_makeaddr", MEMORY_ALONE},
    {"inet_ntoa", MEMORY_ALONE},
    {"inet_ntop", "fails only for an unknown family or too little room"},
    {"isprint", MEMORY_ALONE},
    {"localtime_r", "fails only for a year beyond an int"},
    {"memchr", MEMORY_ALONE},
    {"memcmp", MEMORY_ALONE},
    {"memcpy", MEMORY_ALONE},
    {"memmove", MEMORY_ALONE},
    {"memset", MEMORY_ALONE},
    {"nl_langinfo", "has a text for every month"},
    {"ntohs", MEMORY_ALONE},
    {"pthread_cond_destroy", OWN_LOCK},
    {"pthread_cond_signal", OWN_LOCK},
    {"pthread_condattr_destroy", OWN_LOCK},
    {"pthread_condattr_setclock", "fails only for an unknown clock"},
    {"pthread_mutex_destroy", OWN_LOCK},
    {"pthread_mutex_unlock", OWN_LOCK},
    {"pthread_self", "always succeeds"},
    {"raise", MEMORY_ALONE},
    {"sched_yield", "always succeeds"},
    {"snprintf", "writes numbers into a buffer that has room for any"},
    {"strchr", MEMORY_ALONE},
    {"strcmp", MEMORY_ALONE},
    {"strerror_r", "called by Boost for texts that nobody asks for"},
    {"strftime", "writes into a buffer that has room for any date"},
    {"strlen", MEMORY_ALONE},
    {"strncmp", MEMORY_ALONE},
    {"strncpy", MEMORY_ALONE},
    {"strnlen", MEMORY_ALONE},
    {"strspn", MEMORY_ALONE},
    {"strtol", "gives a number for any text"},
    {"strtoll", "gives a number for any text"},
    {"syslog", NO_RESULT},
    {"time", "fails only for an address that is none"},
    {"tzset", NO_RESULT},
};

}  // namespace

std::vector<int> const& ErrorsOf(Call call)
{
    return ERRORS.at(call);
}

bool NeedsRule(Call call)
{
    switch (call) {
        case Call::malloc:
        case Call::pthread_cond_wait:
        case Call::pthread_mutex_init:
        case Call::pthread_mutex_lock:
        case Call::strerror:
        case Call::vsnprintf:
            return false;
        default:
            return true;
    }
}

std::map<std::string, std::string> const& FunctionsThatDoNotFail()
{
    return DO_NOT_FAIL;
}

}}  // namespace tovu::test
