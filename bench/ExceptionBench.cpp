// What does an exception cost that passes handlers, each of which adds its place, and is reported at the end? Beside it
// what a user would take for that: information added to a boost::exception, and standard exceptions nested in others.
// And what does the report cost alone?

#include "tovu/util/Exception.h"

#include <benchmark/benchmark.h>

#include <boost/exception/all.hpp>
#include <exception>
#include <stdexcept>
#include <string>
#include <type_traits>

using tovu::util::Exception;

namespace {

// Each handler stands in a function of its own; a number of them is the type that chooses the function.
template <int Number>
using Handlers = std::integral_constant<int, Number>;

struct Ours
{
    static void Pass(Handlers<0> /*none*/) { throw Exception(__FILE__, __LINE__, "The volume is gone."); }

    template <int Number>
    __attribute__((noinline)) static void Pass(Handlers<Number> /*handlers*/)
    {
        try {
            Pass(Handlers<Number - 1>());
        } catch (Exception& exception) {
            exception.locations.push_back(Exception::Location(__FILE__, __LINE__));
            throw;
        }
    }

    template <int Number>
    static std::string ThrowAndReport()
    {
        try {
            Pass(Handlers<Number>());
        } catch (Exception const& exception) {
            return exception.Report();
        }
        return std::string();
    }
};

struct Boost
{
    struct Error : virtual std::exception, virtual boost::exception
    {
        char const* what() const noexcept override { return "The volume is gone."; }
    };

    // An exception keeps one piece of information of each type: each handler has its own.
    template <int Number>
    using Place = boost::error_info<Handlers<Number>, char const*>;

    static void Pass(Handlers<0> /*none*/) { BOOST_THROW_EXCEPTION(Error()); }

    template <int Number>
    __attribute__((noinline)) static void Pass(Handlers<Number> /*handlers*/)
    {
        try {
            Pass(Handlers<Number - 1>());
        } catch (boost::exception& exception) {
            exception << Place<Number>(__FILE__ ", line 30");
            throw;
        }
    }

    template <int Number>
    static std::string ThrowAndReport()
    {
        try {
            Pass(Handlers<Number>());
        } catch (boost::exception const& exception) {
            return boost::diagnostic_information(exception);
        }
        return std::string();
    }
};

struct Nested
{
    static void Pass(Handlers<0> /*none*/) { throw std::runtime_error("The volume is gone, line 30"); }

    template <int Number>
    __attribute__((noinline)) static void Pass(Handlers<Number> /*handlers*/)
    {
        try {
            Pass(Handlers<Number - 1>());
        } catch (...) {
            std::throw_with_nested(std::runtime_error(__FILE__ ", line 30"));
        }
    }

    static void Append(std::string& report, std::exception const& exception)
    {
        report += exception.what();
        try {
            std::rethrow_if_nested(exception);
        } catch (std::exception const& inner) {
            report += "\n  from ";
            Append(report, inner);
        }
    }

    template <int Number>
    static std::string ThrowAndReport()
    {
        std::string report;
        try {
            Pass(Handlers<Number>());
        } catch (std::exception const& exception) {
            Append(report, exception);
        }
        return report;
    }
};

int Count(std::string const& text, std::string const& part)
{
    int found = 0;
    for (auto place = text.find(part); place != std::string::npos; place = text.find(part, place + 1))
        ++found;
    return found;
}

template <typename Who, int Number>
void ThrowAndReport(benchmark::State& state)
{
    if (Count(Who::template ThrowAndReport<Number>(), __FILE__) < Number)
        state.SkipWithError("the report lacks a place");
    for (auto _ : state)
        benchmark::DoNotOptimize(Who::template ThrowAndReport<Number>());
    state.SetItemsProcessed(state.iterations() * Number);
}
BENCHMARK_TEMPLATE(ThrowAndReport, Ours, 1)->Name("Exception_ThrowAndReport_Handlers/tovuutil/1");
BENCHMARK_TEMPLATE(ThrowAndReport, Ours, 3)->Name("Exception_ThrowAndReport_Handlers/tovuutil/3");
BENCHMARK_TEMPLATE(ThrowAndReport, Ours, 10)->Name("Exception_ThrowAndReport_Handlers/tovuutil/10");
BENCHMARK_TEMPLATE(ThrowAndReport, Boost, 1)->Name("Exception_ThrowAndReport_Handlers/boost/1");
BENCHMARK_TEMPLATE(ThrowAndReport, Boost, 3)->Name("Exception_ThrowAndReport_Handlers/boost/3");
BENCHMARK_TEMPLATE(ThrowAndReport, Boost, 10)->Name("Exception_ThrowAndReport_Handlers/boost/10");
BENCHMARK_TEMPLATE(ThrowAndReport, Nested, 1)->Name("Exception_ThrowAndReport_Handlers/nested/1");
BENCHMARK_TEMPLATE(ThrowAndReport, Nested, 3)->Name("Exception_ThrowAndReport_Handlers/nested/3");
BENCHMARK_TEMPLATE(ThrowAndReport, Nested, 10)->Name("Exception_ThrowAndReport_Handlers/nested/10");

void ReportOurs(benchmark::State& state)
{
    Exception exception("src/Volume.cpp", 10, "The volume is gone.");
    for (std::int64_t i = 0; i < state.range(0); ++i)
        exception.locations.push_back(Exception::Location("src/Volume.cpp", 20));
    for (auto _ : state)
        benchmark::DoNotOptimize(exception.Report());
}
BENCHMARK(ReportOurs)->Name("Exception_Report_Handlers/tovuutil")->Arg(1)->Arg(3)->Arg(10);

}  // namespace
