#pragma once

#include <atomic>
#include <exception>

namespace volume {

/// What a guard says of a message.
enum class Verdict
{
    Accepted,           ///< The parser may see it.
    TooLong,            ///< It is longer than the limit, or its unfinished start is already.
    Malformed,          ///< No parser could read it.
    DocumentType,       ///< It has a document type declaration.
    Encoding,           ///< It is in an encoding that is not accepted, see InspectProlog.
    TooDeep,            ///< Its elements are nested more deeply than the limit.
    TooManyAttributes,  ///< One of its elements has more attributes than the limit.
    Failed              ///< It was accepted, and parsing or handling it threw what is no std::exception.
};

/// A verdict in words that fit behind "refused: ".
char const* Words(Verdict verdict);

/// Looks at messages from strangers before the XML parser does, and counts what is refused. One guard serves all
/// connections of a service.
///
/// Threads: any, all at once.
class MessageGuard
{
public:
    /// What is still accepted. The memory that the parser takes grows with the length, to about eighty times of it for a
    /// document that is all tags; its time grows with the square of the attributes of an element; and whoever walks a
    /// document by recursion needs a stack as deep as the document.
    struct Limits
    {
        unsigned length;      ///< Of a message, in bytes, without its delimiter.
        unsigned depth;       ///< How many elements may be open at once.
        unsigned attributes;  ///< How many attributes one element may have.
    };

    /// 1 MiB, 100 elements, 100 attributes.
    MessageGuard() : MessageGuard(Limits{1 << 20, 100, 100}) {}
    explicit MessageGuard(Limits const& limits) : limits_(limits) {}

    Limits const& GetLimits() const { return limits_; }

    /// Looks at a message, given without its delimiter.
    Verdict Inspect(unsigned char const* data, unsigned length) const;

    /// Looks at a message and, when it is accepted, has it parsed. What that throws passes out if it is a std::exception:
    /// HandleError could not tell the peer. Anything else makes the verdict Failed.
    template <typename Parse>
    Verdict Admit(unsigned char const* data, unsigned length, Parse parse) const
    {
        Verdict const verdict = Inspect(data, length);
        if (verdict != Verdict::Accepted)
            return verdict;
        try {
            parse();
            return Verdict::Accepted;
        } catch (std::exception const&) {
            throw;
        } catch (...) {
            return Verdict::Failed;
        }
    }

    /// Counts a refusal.
    /// \return How many there were for that reason, this one included.
    unsigned long Count(Verdict reason) { return ++counts_[static_cast<unsigned>(reason)]; }

    unsigned long GetCount(Verdict reason) const { return counts_[static_cast<unsigned>(reason)]; }

private:
    Limits const limits_;
    std::atomic<unsigned long> counts_[static_cast<unsigned>(Verdict::Failed) + 1] = {};
};

}  // namespace volume
