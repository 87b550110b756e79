#pragma once

#include <exception>
#include <stdexcept>
#include <string>

#include "Fuzz.h"
#include "Xml.h"
#include "tovu/util/XercesUtils.h"

namespace tovu { namespace fuzz {

/// What a hook throws that is no std::exception.
struct Refusal
{};

/// What becomes of one message, stream or datagram: the hooks of a processor report here. Messages named "Other" are
/// refused, those named "Fail" and "Refuse" are accepted and fail, the second with what is no std::exception.
class Outcome
{
public:
    /// Runs the parser on a message of that many bytes, and checks that exactly one thing came of it.
    template <typename Parse>
    void Of(std::string::size_type length, Parse parse)
    {
        *this = Outcome();
        try {
            parse();
        } catch (std::exception const&) {
            Require(false, "no std::exception passes out of ParseMessage");
        } catch (Refusal const&) {
            Require(name_ == "Refuse", "what is no std::exception is only that of the hook or of the parser");
            handled_ = false;
            passedOut_ = true;
        } catch (xercesc::DOMException const&) {
            passedOut_ = true;
        } catch (xercesc::XMLException const&) {
            passedOut_ = true;
        } catch (xercesc::SAXException const&) {
            passedOut_ = true;
        }
        Require((handled_ ? 1 : 0) + (failed_ ? 1 : 0) + (passedOut_ ? 1 : 0) == (length == 0 ? 0 : 1),
                "a message is handled, or reported, or passed out by an exception, and dropped when it is empty");
    }

    bool IsValid(std::string const& name)
    {
        Require(!asked_ && !name.empty(), "one name is asked for");
        asked_ = true;
        name_ = name;
        return name != "Other";
    }

    void Handle(xercesc::DOMNode const& element)
    {
        Require(asked_ && !handled_ && name_ != "Other", "only a message whose name was accepted is handled, once");
        RequireEqual(name_, util::XMLCh2string(element.getNodeName()), "the element has the name that was asked for");
        Require(element.getNodeType() == xercesc::DOMNode::ELEMENT_NODE, "what is handled is an element");
        if (name_ == "Fail")
            throw std::runtime_error("a hook fails");
        handled_ = true;
        if (name_ == "Refuse")
            throw Refusal();
    }

    void Fail(int code)
    {
        Require(!handled_ && !failed_, "a message that was handled is not reported, and others are once");
        bool const isRefusedName = asked_ && name_ == "Other";
        Require(code == (isRefusedName ? 0 : 3), "0 tells of a refused name, 3 of an exception");
        failed_ = true;
    }

private:
    std::string name_;
    bool asked_ = false;
    bool handled_ = false;
    bool failed_ = false;
    bool passedOut_ = false;
};

}}  // namespace tovu::fuzz
