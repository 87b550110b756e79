#pragma once

namespace volume {

/// What a document asks of a parser, beyond its length.
struct MarkupShape
{
    unsigned depth;       ///< How many elements are open at once.
    unsigned attributes;  ///< How many attributes one element has.
};

/// Measures a document with an accepted prolog (see InspectProlog) in one pass over its bytes, without recursion and
/// without memory. A document that is not well-formed is measured up to there: a parser comes no further.
MarkupShape MeasureMarkup(unsigned char const* data, unsigned length);

}  // namespace volume
