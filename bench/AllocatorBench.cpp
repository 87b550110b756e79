// What does the allocator of a program decide? A parser takes some two hundred blocks for a small message and gives them
// back at once. One program for the C library's allocator and one for each that Debian has beside it.

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <stdexcept>
#include <string>

#include "Documents.h"
#include "tovu/util/MessageProcessor.h"
#include "tovu/util/Pipe.h"

using namespace tovu::util;

namespace {

class Messages : public MessageProcessor
{
public:
    bool IsValidMessage(std::string const& name) const override { return name == "Volumes"; }

    void HandleMessage(Stream& /*stream*/, unsigned char const* /*data*/, unsigned /*length*/,
                       xercesc::DOMNode const& /*element*/) const override
    {
        ++handled;
    }

    mutable std::int64_t handled = 0;
};

// The peak is that of the whole process, so of the largest message.
double PeakKilobytes()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss);
}

void Dispatch(benchmark::State& state)
{
    std::string const message = bench::MakeDocument(static_cast<std::size_t>(state.range())) + '\0';
    Messages messages;
    Pipe stream;
    for (auto _ : state)
        messages.ProcessMessages(stream, reinterpret_cast<unsigned char const*>(message.data()),
                                 static_cast<unsigned>(message.size()));
    if (messages.handled != state.iterations())
        throw std::logic_error("a message was not handled");
    state.SetBytesProcessed(state.range() * state.iterations());
    state.counters["peak_kilobytes"] = PeakKilobytes();
}
BENCHMARK(Dispatch)->Name("Allocator_Dispatch/" ALLOCATOR)->Arg(177)->Arg(1000)->Arg(5000);

}  // namespace
