// Messages from a stream, as they reach the hooks of a MessageProcessor.

#include <algorithm>
#include <cstddef>
#include <string>

#include "Fuzz.h"
#include "Outcome.h"
#include "Xml.h"
#include "tovu/util/MessageProcessor.h"
#include "tovu/util/Pipe.h"

namespace tovu { namespace fuzz { namespace {

class Dispatcher : public util::MessageProcessor
{
public:
    unsigned ParseMessage(util::Stream& stream, unsigned char const* data, unsigned length) const override
    {
        ++messages;
        data_ = data;
        length_ = length;
        outcome_.Of(length, [&] {
            Require(MessageProcessor::ParseMessage(stream, data, length) == 0, "nothing behind a message is skipped");
        });
        return 0;
    }

    bool IsValidMessage(std::string const& name) const override { return outcome_.IsValid(name); }

    void HandleMessage(util::Stream& /*stream*/, unsigned char const* data, unsigned length,
                       xercesc::DOMNode const& element) const override
    {
        RequireTheMessage(data, length);
        outcome_.Handle(element);
    }

    void HandleError(int code, util::Stream& /*stream*/, unsigned char const* data, unsigned length) const override
    {
        RequireTheMessage(data, length);
        outcome_.Fail(code);
    }

    mutable std::ptrdiff_t messages = 0;

private:
    void RequireTheMessage(unsigned char const* data, unsigned length) const
    {
        Require(data == data_ && length == length_, "a hook is given the message itself");
    }

    mutable Outcome outcome_;
    mutable unsigned char const* data_ = nullptr;
    mutable unsigned length_ = 0;
};

}}}  // namespace tovu::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace tovu::fuzz;

    std::ptrdiff_t const delimiters = std::count(data, data + size, 0);
    if (delimiters > MOST_MESSAGES)
        return 0;

    XmlPlatform::Use();
    Dispatcher dispatcher;
    tovu::util::Pipe closed;
    Require(dispatcher.ProcessMessages(closed, data, static_cast<unsigned>(size)) == (size != 0),
            "a chunk is processed unless it is empty");
    Require(dispatcher.messages == delimiters, "each delimiter ends a message");
    return 0;
}
