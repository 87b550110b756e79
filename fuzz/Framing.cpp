// How a MessageProcessor cuts a stream into messages, whatever the chunks in which it comes.
//
// An input is: which delimiter, how much is skipped behind a message, where the first cuts are, and from the next line
// on the stream.

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Fuzz.h"
#include "tovu/util/MessageProcessor.h"
#include "tovu/util/Pipe.h"

namespace tovu { namespace fuzz { namespace {

typedef std::vector<std::string> Texts;

std::string const DELIMITERS[] = {std::string(1, '\0'), "\r\n", "aab", "--"};
unsigned const SKIPS[] = {0, 0, 1, 2, 7, 0xFFFFFFFF};

// How the framer is set up.
struct Rules
{
    std::string delimiter;
    unsigned skip;  // behind a message of an odd number of bytes

    unsigned SkipBehind(std::string::size_type length) const { return length % 2 != 0 ? skip : 0; }
};

class Framer : public util::MessageProcessor
{
public:
    explicit Framer(Rules const& rules) : rules_(rules) {}

    unsigned ParseMessage(util::Stream& /*stream*/, unsigned char const* data, unsigned length) const override
    {
        messages.emplace_back(reinterpret_cast<char const*>(data), length);
        return rules_.SkipBehind(length);
    }

    ByteSpan GetDelimiter() const override
    {
        return ByteSpan(Bytes(rules_.delimiter), static_cast<unsigned>(rules_.delimiter.size()));
    }

    // In memory of its own, so that a step beyond its ends is noticed.
    void Feed(std::string const& chunk)
    {
        util::Pipe closed;
        std::unique_ptr<unsigned char[]> const copy(new unsigned char[chunk.size()]);
        std::memcpy(copy.get(), chunk.data(), chunk.size());
        Require(ProcessMessages(closed, copy.get(), static_cast<unsigned>(chunk.size())) == !chunk.empty(),
                "a chunk is processed unless it is empty");
    }

    mutable Texts messages;

private:
    Rules const rules_;
};

// The messages, and at the end what is pending: it is completed by a delimiter of its own.
Texts Frame(Rules const& rules, Texts const& chunks)
{
    Framer framer(rules);
    for (std::string const& chunk : chunks)
        framer.Feed(chunk);
    framer.Feed(rules.delimiter);
    return framer.messages;
}

// The same by the words of the interface: delimiters are looked for within one chunk, and skips end with it.
Texts ExpectedFrames(Rules const& rules, Texts chunks)
{
    chunks.push_back(rules.delimiter);
    Texts messages;
    std::string pending;
    for (std::string chunk : chunks) {
        std::string::size_type found = 0;
        while ((found = chunk.find(rules.delimiter)) != std::string::npos) {
            messages.push_back(pending + chunk.substr(0, found));
            pending.clear();
            chunk.erase(0, found + rules.delimiter.size());
            chunk.erase(0, rules.SkipBehind(messages.back().size()));
        }
        pending += chunk;
    }
    return messages;
}

// Cuts a stream where `cuts` says: each byte is the length of a chunk, and they are used over and over.
Texts Chunks(std::string const& stream, std::string const& cuts)
{
    Texts chunks;
    for (std::string::size_type position = 0, i = 0; position < stream.size(); ++i) {
        std::string::size_type const length = cuts.empty() ? stream.size() : 1 + cuts[i % cuts.size()] % 16U;
        chunks.push_back(stream.substr(position, length));
        position += length;
    }
    return chunks;
}

void CheckTheEnds(Rules const& rules, std::string const& text)
{
    Framer const framer(rules);
    std::string::size_type const found = text.find(rules.delimiter);
    unsigned char const* const delimiter = framer.FindDelimiter(Bytes(text), static_cast<unsigned>(text.size()));
    Require(delimiter == (found == std::string::npos ? nullptr : Bytes(text) + found), "the first delimiter is found");

    bool const endsWithOne = text.size() >= rules.delimiter.size() &&
                             std::equal(rules.delimiter.rbegin(), rules.delimiter.rend(), text.rbegin());
    Require(framer.WellFormedMessage(std::vector<unsigned char>(text.begin(), text.end())) == endsWithOne,
            "a message that ends in a delimiter is known");
}

}}}  // namespace tovu::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace tovu::fuzz;

    Input input(data, size);
    Rules const rules = {DELIMITERS[input.TakeNumber(1) % 4], SKIPS[input.TakeNumber(1) % 6]};
    std::string const cuts = input.TakeUntil("\n");
    std::string const stream = input.TakeRest();

    Texts const chunks = Chunks(stream, cuts);
    Texts const messages = Frame(rules, chunks);
    Require(messages == ExpectedFrames(rules, chunks), "messages are what stands between delimiters");
    if (rules.delimiter.size() == 1 && rules.skip == 0)
        Require(messages == Frame(rules, {stream}), "any chunks give what one gives");
    CheckTheEnds(rules, stream);
    return 0;
}
