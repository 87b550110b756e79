#pragma once

#include <stdexcept>
#include <string>

#include "tovu/util/MessageProcessor.h"

namespace volume {

/// No answer came; what() says why.
class NoAnswer : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Reads one answer of the volume service.
class AnswerReader : public tovu::util::MessageProcessor
{
public:
    /// Waits for the answer. Throws NoAnswer when it is malformed, when the service closes the connection, or after 30
    /// seconds.
    void Read(tovu::util::Stream& stream);

    /// The answer as it came.
    std::string const& GetDocument() const { return document_; }

    /// True for an Error answer; then GetWords tells what the service says.
    bool IsRefusal() const { return refusal_; }
    std::string const& GetWords() const { return words_; }

    unsigned ParseMessage(tovu::util::Stream& stream, unsigned char const* data, unsigned length) const override;
    bool IsValidMessage(std::string const& name) const override;
    void HandleMessage(tovu::util::Stream& stream, unsigned char const* data, unsigned length,
                       xercesc::DOMNode const& element) const override;
    void HandleError(int code, tovu::util::Stream& stream, unsigned char const* data, unsigned length) const override;

private:
    // The hooks are const; what they find is the result of Read.
    mutable bool answered_ = false;
    mutable bool refusal_ = false;
    mutable std::string document_;
    mutable std::string words_;
};

}  // namespace volume
