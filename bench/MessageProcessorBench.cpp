// What does the framing of messages add to memchr over the same bytes, and what does the dispatch of a message add to a
// bare parser? Framing hands the messages to a hook that only counts them. A bare scan cannot frame what is spread over
// chunks: beside it stands one that joins such messages in a buffer, as any framer must.
//
// Each message gets a parser of its own, which costs more than all the rest: what other libraries take for the same
// document is shown for orientation.

#include "tovu/util/MessageProcessor.h"

#include <benchmark/benchmark.h>
#include <expat.h>
#include <libxml/parser.h>

#include <algorithm>
#include <cstring>
#include <pugixml.hpp>
#include <stdexcept>
#include <string>
#include <vector>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "Documents.h"
#include "Messages.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/XercesUtils.h"

using namespace tovu::util;

namespace {

constexpr std::size_t STREAM = 1 << 20;
constexpr std::size_t CHUNK = 16 * 1024;

unsigned char const* Bytes(char const* text)
{
    return reinterpret_cast<unsigned char const*>(text);
}

// A megabyte of messages that have, with their delimiter, the benchmark's size.
std::string MakeStream(benchmark::State const& state)
{
    std::string const message(static_cast<std::size_t>(state.range()) - 1, 'x');
    std::string stream;
    while (stream.size() < STREAM)
        stream.append(message).push_back('\0');
    return stream;
}

// Calls `take` with each chunk: a pointer and a length.
template <typename Take>
void ForEachChunk(std::string const& stream, std::size_t chunk, Take take)
{
    for (std::size_t i = 0; i < stream.size(); i += chunk)
        take(stream.data() + i, std::min(chunk, stream.size() - i));
}

void CheckAndReport(benchmark::State& state, std::string const& stream, std::size_t messages)
{
    auto const sent = static_cast<std::size_t>(std::count(stream.begin(), stream.end(), '\0'));
    if (messages != sent * static_cast<std::size_t>(state.iterations()))
        throw std::logic_error("messages were lost");
    state.SetItemsProcessed(static_cast<std::int64_t>(messages));
    state.SetBytesProcessed(static_cast<std::int64_t>(stream.size()) * state.iterations());
}

class CountingProcessor : public MessageProcessor
{
public:
    unsigned ParseMessage(Stream& /*stream*/, unsigned char const* /*data*/, unsigned /*length*/) const override
    {
        ++messages;
        return 0;
    }

    mutable std::size_t messages = 0;
};

void FrameOurs(benchmark::State& state, std::size_t chunk)
{
    std::string const stream = MakeStream(state);
    CountingProcessor processor;
    Pipe pipe;
    for (auto _ : state)
        ForEachChunk(stream, chunk, [&](char const* data, std::size_t length) {
            processor.ProcessMessages(pipe, Bytes(data), static_cast<unsigned>(length));
        });
    CheckAndReport(state, stream, processor.messages);
}

void FrameScan(benchmark::State& state, std::size_t chunk)
{
    std::string const stream = MakeStream(state);
    std::size_t messages = 0;
    for (auto _ : state)
        ForEachChunk(stream, chunk, [&](char const* data, std::size_t length) {
            char const* const end = data + length;
            while (void const* const hit = std::memchr(data, '\0', static_cast<std::size_t>(end - data))) {
                benchmark::DoNotOptimize(++messages);
                data = static_cast<char const*>(hit) + 1;
            }
        });
    CheckAndReport(state, stream, messages);
}

void FrameJoin(benchmark::State& state, std::size_t chunk)
{
    std::string const stream = MakeStream(state);
    std::vector<char> pending;
    std::size_t messages = 0;
    for (auto _ : state)
        ForEachChunk(stream, chunk, [&](char const* data, std::size_t length) {
            char const* const end = data + length;
            while (void const* const hit = std::memchr(data, '\0', static_cast<std::size_t>(end - data))) {
                if (!pending.empty()) {
                    pending.insert(pending.end(), data, static_cast<char const*>(hit));
                    benchmark::DoNotOptimize(pending.data());
                    pending.clear();
                }
                benchmark::DoNotOptimize(++messages);
                data = static_cast<char const*>(hit) + 1;
            }
            pending.insert(pending.end(), data, end);
        });
    CheckAndReport(state, stream, messages);
}

void ThreeSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(100)->Arg(2048)->Arg(64 * 1024);
}

BENCHMARK_CAPTURE(FrameOurs, whole, STREAM * 2)->Name("MessageProcessor_Frame_Whole/tovuutil")->Apply(ThreeSizes);
BENCHMARK_CAPTURE(FrameScan, whole, STREAM * 2)->Name("MessageProcessor_Frame_Whole/memchr")->Apply(ThreeSizes);
BENCHMARK_CAPTURE(FrameJoin, whole, STREAM * 2)->Name("MessageProcessor_Frame_Whole/joined")->Apply(ThreeSizes);
BENCHMARK_CAPTURE(FrameOurs, chunks, CHUNK)->Name("MessageProcessor_Frame_Chunks16KiB/tovuutil")->Apply(ThreeSizes);
BENCHMARK_CAPTURE(FrameScan, chunks, CHUNK)->Name("MessageProcessor_Frame_Chunks16KiB/memchr")->Apply(ThreeSizes);
BENCHMARK_CAPTURE(FrameJoin, chunks, CHUNK)->Name("MessageProcessor_Frame_Chunks16KiB/joined")->Apply(ThreeSizes);

void DispatchOurs(benchmark::State& state)
{
    std::string const message = bench::MakeDocument(static_cast<std::size_t>(state.range())) + '\0';
    bench::Messages messages;
    Pipe pipe;
    for (auto _ : state)
        messages.ProcessMessages(pipe, Bytes(message.data()), static_cast<unsigned>(message.size()));
    if (messages.handled != state.iterations())
        throw std::logic_error("a message was not handled");
    state.SetBytesProcessed(state.range() * state.iterations());
}

void DispatchBare(benchmark::State& state)
{
    std::string const document = bench::MakeDocument(static_cast<std::size_t>(state.range()));
    for (auto _ : state) {
        XercesErrorHandler errorHandler;
        xercesc::XercesDOMParser parser(nullptr, xercesc::XMLPlatformUtils::fgMemoryManager, nullptr);
        parser.setErrorHandler(&errorHandler);
        xercesc::MemBufInputSource source(Bytes(document.data()), document.size(), "", false,
                                          xercesc::XMLPlatformUtils::fgMemoryManager);
        parser.parse(source);
        benchmark::DoNotOptimize(parser.getDocument()->getDocumentElement());
    }
    state.SetBytesProcessed(state.range() * state.iterations());
}

void DispatchLibxml2(benchmark::State& state)
{
    std::string const document = bench::MakeDocument(static_cast<std::size_t>(state.range()));
    for (auto _ : state) {
        xmlDoc* const parsed = xmlReadMemory(document.data(), static_cast<int>(document.size()), "", nullptr, 0);
        benchmark::DoNotOptimize(xmlDocGetRootElement(parsed));
        xmlFreeDoc(parsed);
    }
    state.SetBytesProcessed(state.range() * state.iterations());
}

void DispatchPugixml(benchmark::State& state)
{
    std::string const document = bench::MakeDocument(static_cast<std::size_t>(state.range()));
    for (auto _ : state) {
        pugi::xml_document parsed;
        parsed.load_buffer(document.data(), document.size());
        benchmark::DoNotOptimize(parsed.document_element());
    }
    state.SetBytesProcessed(state.range() * state.iterations());
}

// Makes no document: the least that reading one takes.
void DispatchExpat(benchmark::State& state)
{
    std::string const document = bench::MakeDocument(static_cast<std::size_t>(state.range()));
    for (auto _ : state) {
        XML_Parser const parser = XML_ParserCreate(nullptr);
        benchmark::DoNotOptimize(XML_Parse(parser, document.data(), static_cast<int>(document.size()), 1));
        XML_ParserFree(parser);
    }
    state.SetBytesProcessed(state.range() * state.iterations());
}

void ThreeDocuments(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(200)->Arg(5000)->Arg(1000000);
}

BENCHMARK(DispatchOurs)->Name("MessageProcessor_Dispatch/tovuutil")->Apply(ThreeDocuments);
BENCHMARK(DispatchBare)->Name("MessageProcessor_Dispatch/XercesDOMParser")->Apply(ThreeDocuments);
BENCHMARK(DispatchLibxml2)->Name("MessageProcessor_Dispatch/libxml2")->Apply(ThreeDocuments);
BENCHMARK(DispatchPugixml)->Name("MessageProcessor_Dispatch/pugixml")->Apply(ThreeDocuments);
BENCHMARK(DispatchExpat)->Name("MessageProcessor_Dispatch/expat")->Apply(ThreeDocuments);

}  // namespace
