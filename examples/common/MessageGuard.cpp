#include "MessageGuard.h"

#include "Markup.h"
#include "Prolog.h"

namespace volume {

namespace {

Verdict VerdictOn(Prolog prolog)
{
    switch (prolog) {
        case Prolog::Accepted:
            return Verdict::Accepted;
        case Prolog::DocumentType:
            return Verdict::DocumentType;
        case Prolog::Encoding:
            return Verdict::Encoding;
        default:
            return Verdict::Malformed;
    }
}

}  // namespace

char const* Words(Verdict verdict)
{
    switch (verdict) {
        case Verdict::TooLong:
            return "it is too long";
        case Verdict::Malformed:
            return "it is no XML document";
        case Verdict::DocumentType:
            return "it has a document type declaration";
        case Verdict::Encoding:
            return "its encoding is not accepted";
        case Verdict::TooDeep:
            return "its elements are nested too deeply";
        case Verdict::TooManyAttributes:
            return "an element has too many attributes";
        case Verdict::Failed:
            return "it could not be handled";
        default:
            return "it is accepted";
    }
}

Verdict MessageGuard::Inspect(unsigned char const* data, unsigned length) const
{
    if (length > limits_.length)
        return Verdict::TooLong;

    Verdict const verdict = VerdictOn(InspectProlog(data, length));
    if (verdict != Verdict::Accepted)
        return verdict;

    MarkupShape const shape = MeasureMarkup(data, length);
    if (shape.depth > limits_.depth)
        return Verdict::TooDeep;
    return shape.attributes > limits_.attributes ? Verdict::TooManyAttributes : Verdict::Accepted;
}

}  // namespace volume
