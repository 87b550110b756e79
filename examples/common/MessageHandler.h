#pragma once

#include <string>
#include <xercesc/util/XercesDefs.hpp>

XERCES_CPP_NAMESPACE_BEGIN
class DOMNode;
XERCES_CPP_NAMESPACE_END

namespace volume {

/// What a plug-in of volumed adds: the answer to one more message.
///
/// A plug-in is a shared library that exports
/// \code
///     extern "C" volume::MessageHandler* CreateMessageHandler();
/// \endcode
/// volumed calls it once, owns what it returns, and destroys that before it unloads the library.
///
/// Threads: Handle is called for several clients at once.
class MessageHandler
{
public:
    MessageHandler() = default;
    MessageHandler(MessageHandler const&) = delete;
    MessageHandler& operator=(MessageHandler const&) = delete;
    virtual ~MessageHandler() = default;

    /// The name of the document elements that it handles.
    virtual std::string GetName() const = 0;

    /// \return The answer: one XML document in UTF-8, without the delimiter. May throw Refusal; a std::exception is
    ///         logged, and answered as a message that could not be handled.
    virtual std::string Handle(xercesc::DOMNode const& element) const = 0;
};

}  // namespace volume
