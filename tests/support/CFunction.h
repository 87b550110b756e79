#pragma once

#include <atomic>
#include <functional>
#include <utility>

#include "Interposition.h"

namespace tovu { namespace test {

template <typename Function>
class CFunction;

/// A function of the C library that a test program defines itself: the definition calls this object, which goes on to
/// the C library unless a test has put another body in its place. For answers that no real system gives on demand.
/// \code
///     CFunction<int(int, int)> listenCall("listen");
///     extern "C" int listen(int descriptor, int backlog) noexcept { return listenCall(descriptor, backlog); }
/// \endcode
template <typename Result, typename... Arguments>
class CFunction<Result(Arguments...)>
{
public:
    using Body = std::function<Result(Arguments...)>;

    constexpr explicit CFunction(char const* name) : name_(name), body_(nullptr) {}

    Result operator()(Arguments... arguments) const
    {
        Body const* const body = body_.load();
        return body != nullptr ? (*body)(arguments...) : System(arguments...);
    }

    /// The C library's own.
    Result System(Arguments... arguments) const { return NextFunction<Result(Arguments...)>(name_)(arguments...); }

    /// Another body for the length of a scope. One at a time for each function.
    class Replacement
    {
    public:
        Replacement(CFunction& function, Body body) : function_(function), body_(std::move(body))
        {
            function_.body_ = &body_;
        }

        Replacement(Replacement const&) = delete;
        Replacement& operator=(Replacement const&) = delete;
        ~Replacement() { function_.body_ = nullptr; }

    private:
        CFunction& function_;
        Body const body_;
    };

private:
    char const* name_;
    std::atomic<Body const*> body_;
};

}}  // namespace tovu::test
