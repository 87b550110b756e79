// What does it cost to make a text fit for a document, beside the writers of other XML libraries? What do names and
// attribute values cost beyond the parser's own transcoding? Escaping is measured in prose, where one character of a
// paragraph is to be replaced, and in markup, where every third is. The texts have only characters that all libraries
// replace by the same entities, so that all write the same bytes.

#include "tovu/util/XercesUtils.h"

#include <Poco/XML/XMLWriter.h>
#include <benchmark/benchmark.h>
#include <libxml/entities.h>

#include <cstring>
#include <pugixml.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <xercesc/dom/DOMAttr.hpp>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMImplementation.hpp>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/util/XMLString.hpp>

using tovu::util::EncodeXMLCharEntities;
using tovu::util::GetAttributeValue;
using tovu::util::XMLCh2string;

namespace {

// A pattern repeated up to the size.
std::string Repeated(std::string const& pattern, std::size_t size)
{
    std::string text;
    while (text.size() < size)
        text += pattern;
    text.resize(size);
    return text;
}

std::string Prose(benchmark::State const& state)
{
    return Repeated(
        "The volumes on this shelf belong to Miller & Daughters, who keep the drawings of their houses in one and the "
        "letters of their customers in another. When less than a tenth of a volume is left, somebody is told to look "
        "after it; until then nobody needs to know how full it is, or where it is.\n",
        static_cast<std::size_t>(state.range()));
}

std::string Markup(benchmark::State const& state)
{
    return Repeated("<a><b>1&2</b><c>&amp;</c></a>", static_cast<std::size_t>(state.range()));
}

// The peers are asked to write what ours does before they are measured.
void Require(std::string const& written, std::string const& text)
{
    if (written != EncodeXMLCharEntities(text))
        throw std::logic_error("a peer writes other bytes");
}

void EscapeOurs(benchmark::State& state, std::string (*makeText)(benchmark::State const&))
{
    std::string const text = makeText(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(EncodeXMLCharEntities(text));
    state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
}

void EscapeLibxml2(benchmark::State& state, std::string (*makeText)(benchmark::State const&))
{
    std::string const text = makeText(state);
    auto const* const characters = reinterpret_cast<xmlChar const*>(text.c_str());
    xmlChar* const first = xmlEncodeSpecialChars(nullptr, characters);
    Require(reinterpret_cast<char const*>(first), text);
    xmlFree(first);

    for (auto _ : state) {
        xmlChar* const written = xmlEncodeSpecialChars(nullptr, characters);
        benchmark::DoNotOptimize(written);
        xmlFree(written);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
}

// The text is in the document already: its writer escapes it on the way out.
void EscapePugixml(benchmark::State& state, std::string (*makeText)(benchmark::State const&))
{
    struct Writer : pugi::xml_writer
    {
        void write(void const* data, std::size_t size) override { text.append(static_cast<char const*>(data), size); }
        std::string text;
    };

    std::string const text = makeText(state);
    pugi::xml_document document;
    document.append_child(pugi::node_pcdata).set_value(text.c_str());
    auto const write = [&](Writer& writer) {
        writer.text.reserve(text.size());
        document.first_child().print(writer, "", pugi::format_raw);
    };
    Writer first;
    write(first);
    Require(first.text, text);

    for (auto _ : state) {
        Writer writer;
        write(writer);
        benchmark::DoNotOptimize(writer.text);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
}

void EscapePoco(benchmark::State& state, std::string (*makeText)(benchmark::State const&))
{
    std::string const text = makeText(state);
    auto const write = [&text] {
        std::ostringstream stream;
        Poco::XML::XMLWriter writer(stream, 0);
        writer.startFragment();
        writer.characters(text);
        writer.endFragment();
        return stream.str();
    };
    Require(write(), text);

    for (auto _ : state)
        benchmark::DoNotOptimize(write());
    state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
}

void ThreeSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(1 << 10)->Arg(1 << 15)->Arg(1 << 20);
}

BENCHMARK_CAPTURE(EscapeOurs, prose, Prose)->Name("XercesUtils_Escape_Prose/tovuutil")->Apply(ThreeSizes);
BENCHMARK_CAPTURE(EscapeLibxml2, prose, Prose)->Name("XercesUtils_Escape_Prose/libxml2")->Apply(ThreeSizes);
BENCHMARK_CAPTURE(EscapePugixml, prose, Prose)->Name("XercesUtils_Escape_Prose/pugixml")->Apply(ThreeSizes);
BENCHMARK_CAPTURE(EscapePoco, prose, Prose)->Name("XercesUtils_Escape_Prose/POCO")->Apply(ThreeSizes);
BENCHMARK_CAPTURE(EscapeOurs, markup, Markup)->Name("XercesUtils_Escape_Markup/tovuutil")->Apply(ThreeSizes);
BENCHMARK_CAPTURE(EscapeLibxml2, markup, Markup)->Name("XercesUtils_Escape_Markup/libxml2")->Apply(ThreeSizes);
BENCHMARK_CAPTURE(EscapePugixml, markup, Markup)->Name("XercesUtils_Escape_Markup/pugixml")->Apply(ThreeSizes);
BENCHMARK_CAPTURE(EscapePoco, markup, Markup)->Name("XercesUtils_Escape_Markup/POCO")->Apply(ThreeSizes);

// A text of the parser's, of the size of a name, a path and a paragraph.
class WideText
{
public:
    explicit WideText(benchmark::State const& state)
        : text_(xercesc::XMLString::transcode(std::string(static_cast<std::size_t>(state.range()), 'n').c_str()))
    {}
    WideText(WideText const&) = delete;
    WideText& operator=(WideText const&) = delete;
    ~WideText() { xercesc::XMLString::release(&text_); }

    XMLCh const* Get() const { return text_; }

private:
    XMLCh* text_;
};

void TranscodeOurs(benchmark::State& state)
{
    WideText const text(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(XMLCh2string(text.Get()));
    state.SetBytesProcessed(state.range() * state.iterations());
}
BENCHMARK(TranscodeOurs)->Name("XercesUtils_XMLCh2string/tovuutil")->Arg(10)->Arg(100)->Arg(1000);

void TranscodeBare(benchmark::State& state)
{
    WideText const text(state);
    for (auto _ : state) {
        char* local = xercesc::XMLString::transcode(text.Get());
        benchmark::DoNotOptimize(std::string(local));
        xercesc::XMLString::release(&local);
    }
    state.SetBytesProcessed(state.range() * state.iterations());
}
BENCHMARK(TranscodeBare)->Name("XercesUtils_XMLCh2string/transcode")->Arg(10)->Arg(100)->Arg(1000);

// An element with three attributes, as a directory entry has.
class Element
{
public:
    Element() : document_(xercesc::DOMImplementation::getImplementation()->createDocument())
    {
        WideName const element("Entry");
        element_ = document_->createElement(element.text);
        for (char const* name : {"name", "type", "size"}) {
            WideName const wide(name);
            element_->setAttribute(wide.text, wide.text);
        }
    }
    Element(Element const&) = delete;
    Element& operator=(Element const&) = delete;
    ~Element()
    {
        element_->release();
        document_->release();
    }

    xercesc::DOMNamedNodeMap const* GetAttributes() const { return element_->getAttributes(); }

private:
    struct WideName
    {
        explicit WideName(char const* name) : text(xercesc::XMLString::transcode(name)) {}
        WideName(WideName const&) = delete;
        WideName& operator=(WideName const&) = delete;
        ~WideName() { xercesc::XMLString::release(&text); }
        XMLCh* text;
    };

    xercesc::DOMDocument* document_;
    xercesc::DOMElement* element_ = nullptr;
};

void AttributeOurs(benchmark::State& state)
{
    Element const element;
    std::string const name = "size";
    for (auto _ : state)
        benchmark::DoNotOptimize(GetAttributeValue(name, element.GetAttributes()));
}
BENCHMARK(AttributeOurs)->Name("XercesUtils_GetAttributeValue/tovuutil");

void AttributeBare(benchmark::State& state)
{
    Element const element;
    std::string const name = "size";
    for (auto _ : state) {
        XMLCh* wideName = xercesc::XMLString::transcode(name.c_str());
        char* value = xercesc::XMLString::transcode(element.GetAttributes()->getNamedItem(wideName)->getNodeValue());
        benchmark::DoNotOptimize(std::string(value));
        xercesc::XMLString::release(&value);
        xercesc::XMLString::release(&wideName);
    }
}
BENCHMARK(AttributeBare)->Name("XercesUtils_GetAttributeValue/transcode");

}  // namespace
