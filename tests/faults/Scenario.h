#pragma once

#include <string>
#include <type_traits>
#include <vector>

#include "FaultShim.h"

namespace tovu { namespace test {

/// A text that takes no memory while it grows: values, with blanks between them.
class Text
{
public:
    Text& operator<<(char const* text);
    Text& operator<<(std::string const& text) { return *this << text.c_str(); }
    Text& operator<<(bool value) { return *this << (value ? "true" : "false"); }

    template <typename Number, typename = typename std::enable_if<std::is_integral<Number>::value>::type>
    Text& operator<<(Number value)
    {
        return AppendNumber(static_cast<long long>(value));
    }

    /// Without a blank in front.
    Text& Append(char const* text);

    void Clear();
    char const* Get() const { return text_; }

private:
    Text& AppendNumber(long long value);

    char text_[4096] = "";
    std::size_t length_ = 0;
};

/// One run of a scenario: what goes wrong, and what the caller of the library got to see.
struct Run
{
    Fault fault;
    Text out;
};

/// What a fault leads to. "%E" in the texts stands for the text of the fault's errno, "%N" for its number.
struct Expected
{
    enum Kind
    {
        EXCEPTION,
        ANSWER,   ///< A result that says so: false, 0, -1, less than was asked for.
        IGNORED,  ///< The same as without a fault.
        UNTRIED   ///< Not to be found out: the call is passed on.
    };

    Kind kind;
    std::string text;
    std::string log;  ///< The lines of level Error, each as "; SOURCE:LINE MESSAGE", the first line of the message.

    Expected Logging(std::string const& line) const { return {kind, text, log + "; " + line}; }
};

/// An Exception with the text of errno. The trail names the places that it went through, blanks between them:
/// "src/util/Pipe.cpp:116", or without the number where any line will do.
inline Expected Throws(std::string const& trail)
{
    return {Expected::EXCEPTION, "Exception '%E' " + trail, ""};
}

/// Any other exception, as the runs describe it.
inline Expected ThrowsOther(std::string const& description)
{
    return {Expected::EXCEPTION, description, ""};
}

inline Expected Gives(std::string const& text)
{
    return {Expected::ANSWER, text, ""};
}

inline Expected Ignored()
{
    return {Expected::IGNORED, "", ""};
}

/// For a call that Boost takes for one that cannot fail: a debug build ends there, others do not look.
inline Expected AssertedByBoost()
{
    return {Expected::UNTRIED, "", ""};
}

inline std::vector<Expected> Times(std::size_t count, Expected const& expected)
{
    return std::vector<Expected>(count, expected);
}

/// What the faults of one function lead to: one entry for each of its calls, of which there must be just as many.
struct Rule
{
    Call call;
    Fault::Kind kind;
    std::vector<int> errors;  ///< Of Fault::FAIL. Empty for all of the function's that have no rule of their own.
    std::vector<Expected> calls;
};

inline Rule Fails(Call call, std::vector<Expected> const& calls)
{
    return {call, Fault::FAIL, {}, calls};
}

inline Rule Fails(Call call, Expected const& expected)
{
    return Fails(call, std::vector<Expected>(1, expected));
}

inline Rule FailsWith(std::vector<int> const& errors, Call call, std::vector<Expected> const& calls)
{
    return {call, Fault::FAIL, errors, calls};
}

inline Rule FailsWith(std::vector<int> const& errors, Call call, Expected const& expected)
{
    return FailsWith(errors, call, std::vector<Expected>(1, expected));
}

inline Rule MovesOneByte(Call call, std::vector<Expected> const& calls)
{
    return {call, Fault::ONE_BYTE, {}, calls};
}

inline Rule MovesHalf(Call call, std::vector<Expected> const& calls)
{
    return {call, Fault::HALF, {}, calls};
}

/// A small piece of work with one class of the library, and what it comes to with and without faults.
struct Scenario
{
    std::string name;
    std::vector<std::string> classes;  ///< The classes that it stands for.

    /// Makes what it needs, then a FaultScope with the run's fault, and under that uses the library. What the library
    /// answers goes to the run's text; what it throws passes out.
    void (*run)(Run&);

    std::string clean;  ///< The text of a run without faults.
    std::vector<Rule> rules;

    /// What else an allocation that fails may lead to than std::bad_alloc, the parser's OutOfMemoryException or
    /// nothing: texts of runs, in which "*" stands for anything.
    std::vector<std::string> withoutMemory;

    /// False where a run allocates as often as its threads happen to meet.
    bool sweepsMemory;

    /// True for a scenario of a child process that needs no log. An emulated one can start a thread only when the
    /// process that it was forked from has no others.
    bool comesBeforeTheLog = false;
};

std::vector<Scenario> FoundationScenarios();
std::vector<Scenario> StreamScenarios();
std::vector<Scenario> SocketScenarios();
std::vector<Scenario> MessageScenarios();
std::vector<Scenario> ProcessScenarios();
std::vector<Scenario> FileScenarios();

/// Socket::GetInterfaces, in a network of its own. Where the machine gives none, its runs end with NO_NETWORK.
Scenario InterfacesScenario();
extern char const* const NO_NETWORK;

}}  // namespace tovu::test
