# The flags that every target of the project is compiled with, on one interface target: tovuutil_flags.

set(CMAKE_CXX_STANDARD 14)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

# Destructors tell kinds of exceptions apart, and plug-ins catch what the library throws. Asked anew each time, because
# the flags may have changed.
include(CheckCXXSourceCompiles)
unset(TOVUUTIL_COMPILER_THROWS CACHE)
check_cxx_source_compiles("
    #include <typeinfo>
    int main()
    {
        try { throw 1; } catch (int) { return typeid(int).name() == nullptr; }
    }" TOVUUTIL_COMPILER_THROWS)
if(NOT TOVUUTIL_COMPILER_THROWS)
    message(FATAL_ERROR "libtovuutil needs run-time type information and exceptions: take -fno-rtti and "
        "-fno-exceptions out of the compiler's flags (CMAKE_CXX_FLAGS is '${CMAKE_CXX_FLAGS}').")
endif()

add_library(tovuutil_flags INTERFACE)

# __FILE__ is relative to the project root, whatever the build folder is: log monitors match on these names. A distribution's
# own map of whole files is stronger than one of macros, so ours is such a map then as well.
set(TOVUUTIL_PREFIX_MAP -fmacro-prefix-map)
if(CMAKE_CXX_FLAGS MATCHES "-ffile-prefix-map=")
    set(TOVUUTIL_PREFIX_MAP -ffile-prefix-map)
endif()
target_compile_options(tovuutil_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wold-style-cast -Wnon-virtual-dtor -Wcast-qual
    "${TOVUUTIL_PREFIX_MAP}=${PROJECT_SOURCE_DIR}/=")

if(TOVUUTIL_WERROR)
    target_compile_options(tovuutil_flags INTERFACE -Werror)
endif()

if(TOVUUTIL_HARDEN)
    target_compile_options(tovuutil_flags INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong)
    target_link_options(tovuutil_flags INTERFACE LINKER:-z,relro LINKER:-z,now)
endif()

if(TOVUUTIL_SANITIZE)
    target_compile_options(tovuutil_flags INTERFACE
        "-fsanitize=${TOVUUTIL_SANITIZE}" -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(tovuutil_flags INTERFACE "-fsanitize=${TOVUUTIL_SANITIZE}")
endif()

# What is counted are the library's sources and its headers, these in every program that includes them. Lines are those of
# the sources: nothing is optimised.
if(TOVUUTIL_COVERAGE)
    target_compile_options(tovuutil_flags INTERFACE
        -O0 --coverage -fprofile-update=atomic "-fprofile-filter-files=/(src/util|include/tovu)/")
    target_link_options(tovuutil_flags INTERFACE --coverage)
endif()
