#pragma once

#include <functional>
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

/// Waits until the service has sent something. Throws NoAnswer when nothing comes within 30 seconds.
void AwaitData(tovu::util::Stream const& stream);

/// Reads one answer of the volume service.
class AnswerReader : public tovu::util::MessageProcessor
{
public:
    /// \param look Shown the document element of the answer, unless that is an Error.
    explicit AnswerReader(std::function<void(xercesc::DOMNode const&)> look);

    /// Waits for the answer. Throws NoAnswer when it is malformed, when the service closes the connection, or when it is
    /// silent for 30 seconds.
    void Read(tovu::util::Stream& stream);

    /// The answer as it came.
    std::string const& GetDocument() const { return document_; }

    /// What came behind the answer's delimiter: the first bytes of a file.
    std::string const& GetRest() const { return rest_; }

    /// True for an Error answer; then GetWords tells what the service says.
    bool IsRefusal() const { return refusal_; }
    std::string const& GetWords() const { return words_; }

    unsigned ParseMessage(tovu::util::Stream& stream, unsigned char const* data, unsigned length) const override;
    bool IsValidMessage(std::string const& name) const override;
    void HandleMessage(tovu::util::Stream& stream, unsigned char const* data, unsigned length,
                       xercesc::DOMNode const& element) const override;
    void HandleError(int code, tovu::util::Stream& stream, unsigned char const* data, unsigned length) const override;

private:
    std::function<void(xercesc::DOMNode const&)> const look_;
    std::string rest_;

    // The hooks are const; what they find is the result of Read.
    mutable bool answered_ = false;
    mutable bool refusal_ = false;
    mutable std::string document_;
    mutable std::string words_;
};

}  // namespace volume
