#pragma once

#include <unistd.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>
#include <xercesc/util/RuntimeException.hpp>

#include "Interposition.h"
#include "tovu/util/Exception.h"
#include "tovu/util/XercesUtils.h"

// Defines close(2) for the program, so include it in one source file only.

namespace tovu { namespace test {

/// Makes close(2) of one descriptor throw, for the length of a scope. The descriptor stays open until the scope ends.
/// No close fails with anything but `errno`, so this is the way to see what a destructor makes of the other exceptions.
class ThrowingClose
{
public:
    typedef void (*Thrower)();

    ThrowingClose(int descriptor, Thrower thrower) : descriptor_(descriptor), thrower_(thrower) { Current() = this; }
    ThrowingClose(ThrowingClose const&) = delete;
    ThrowingClose& operator=(ThrowingClose const&) = delete;
    ~ThrowingClose()
    {
        Current() = nullptr;
        close(descriptor_);
    }

    void Throw(int descriptor) const
    {
        if (descriptor == descriptor_)
            thrower_();
    }

    static ThrowingClose*& Current()
    {
        static ThrowingClose* current = nullptr;
        return current;
    }

private:
    int descriptor_;
    Thrower thrower_;
};

/// One kind of exception that a destructor may meet, and the text that it logs for it.
struct CaughtKind
{
    char const* name;
    ThrowingClose::Thrower thrower;
    std::string (*logged)();
};

[[noreturn]] inline void ThrowXmlException()
{
    throw xercesc::RuntimeException(__FILE__, __LINE__, xercesc::XMLExcepts::Str_ZeroSizedTargetBuf);
}

inline std::string XmlExceptionText()
{
    try {
        ThrowXmlException();
    } catch (xercesc::XMLException const& exception) {
        return util::XMLCh2string(exception.getMessage());
    }
}

/// A derived class comes with each kind: it is told apart by what it is, not by its exact type.
inline std::vector<CaughtKind> CaughtKinds()
{
    return {
        {"Exception", [] { throw util::Exception("cable.cpp", 7, "unplugged"); },
         [] { return std::string("unplugged\nTraceback:\nthrown from cable.cpp, line 7"); }},
        {"StandardException", [] { throw std::runtime_error("a standard failure"); },
         [] { return std::string("a standard failure"); }},
        {"XmlException", [] { ThrowXmlException(); }, &XmlExceptionText},
        {"AnythingElse", [] { throw 42; }, [] { return std::string("Caught unknown exception!"); }},
    };
}

}}  // namespace tovu::test

extern "C" int close(int descriptor)
{
    static auto* const system = tovu::test::NextFunction<int(int)>("close");
    if (tovu::test::ThrowingClose const* const failure = tovu::test::ThrowingClose::Current())
        failure->Throw(descriptor);
    return system(descriptor);
}
