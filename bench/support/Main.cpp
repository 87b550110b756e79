#include <benchmark/benchmark.h>

#include <xercesc/util/PlatformUtils.hpp>

int main(int argumentCount, char** arguments)
{
    benchmark::Initialize(&argumentCount, arguments);
    if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments))
        return 1;

    xercesc::XMLPlatformUtils::Initialize();
    std::size_t const ran = benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    xercesc::XMLPlatformUtils::Terminate();
    return ran != 0 ? 0 : 1;
}
