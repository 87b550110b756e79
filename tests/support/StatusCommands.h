#pragma once

#include <cstddef>
#include <cstdio>

#include "CFunction.h"

// Defines popen(3), pclose(3) and fread(3) for the program, so include it in one source file only.

namespace tovu { namespace test {

using PopenFunction = CFunction<FILE*(char const*, char const*)>;
using PcloseFunction = CFunction<int(FILE*)>;
using FreadFunction = CFunction<std::size_t(void*, std::size_t, std::size_t, FILE*)>;

inline PopenFunction& PopenCall()
{
    static PopenFunction call("popen");
    return call;
}

inline PcloseFunction& PcloseCall()
{
    static PcloseFunction call("pclose");
    return call;
}

inline FreadFunction& FreadCall()
{
    static FreadFunction call("fread");
    return call;
}

}}  // namespace tovu::test

extern "C" FILE* popen(char const* command, char const* mode)
{
    return tovu::test::PopenCall()(command, mode);
}

extern "C" int pclose(FILE* stream)
{
    return tovu::test::PcloseCall()(stream);
}

extern "C" std::size_t fread(void* buffer, std::size_t size, std::size_t count, FILE* stream)
{
    return tovu::test::FreadCall()(buffer, size, count, stream);
}
