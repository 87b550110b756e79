#pragma once

#include <cstdlib>
#include <cstring>

namespace tovu { namespace test {

#if defined(__has_feature)
#define TOVU_TEST_HAS_FEATURE(feature) __has_feature(feature)
#else
#define TOVU_TEST_HAS_FEATURE(feature) 0
#endif

/// True in a build whose memory is watched: it reserves most of the address space, and it ends the process where
/// operator new would throw std::bad_alloc.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || TOVU_TEST_HAS_FEATURE(address_sanitizer) || \
    TOVU_TEST_HAS_FEATURE(thread_sanitizer)
constexpr bool MEMORY_IS_WATCHED = true;
#else
constexpr bool MEMORY_IS_WATCHED = false;
#endif

/// True in a build whose threads are watched by ThreadSanitizer.
#if defined(__SANITIZE_THREAD__) || TOVU_TEST_HAS_FEATURE(thread_sanitizer)
constexpr bool THREADS_ARE_WATCHED = true;
#else
constexpr bool THREADS_ARE_WATCHED = false;
#endif

#undef TOVU_TEST_HAS_FEATURE

/// True while memcheck runs the program, on a processor of its own making that keeps signals, limits and what becomes of
/// a process in its own books. It preloads a library of its name.
inline bool RunsUnderMemcheck()
{
    char const* const preloaded = std::getenv("LD_PRELOAD");
    return preloaded != nullptr && std::strstr(preloaded, "/vgpreload") != nullptr;
}

}}  // namespace tovu::test
