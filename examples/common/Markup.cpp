#include "Markup.h"

#include <algorithm>
#include <cstring>

namespace volume {

namespace {

// Walks over a document from one piece of markup to the next.
class Walk
{
public:
    Walk(char const* position, char const* end) : position_(position), end_(end) {}

    MarkupShape const& GetShape() const { return shape_; }

    // Takes the next piece of markup. False when there is none, or none that is well-formed.
    bool Next()
    {
        if (!MoveTo('<'))
            return false;
        if (At("<!--"))
            return Pass("<!--", "-->");
        if (At("<![CDATA["))
            return Pass("<![CDATA[", "]]>");
        if (At("<?"))
            return Pass("<?", "?>");
        if (At("<!"))
            return false;
        return At("</") ? TakeEndTag() : TakeStartTag();
    }

private:
    bool At(char const* text) const
    {
        std::size_t const length = std::strlen(text);
        return length <= Rest() && std::memcmp(position_, text, length) == 0;
    }

    std::size_t Rest() const { return static_cast<std::size_t>(end_ - position_); }

    // Moves to the next such character, which is not passed.
    bool MoveTo(char character)
    {
        void const* const found = std::memchr(position_, character, Rest());
        position_ = found != nullptr ? static_cast<char const*>(found) : end_;
        return found != nullptr;
    }

    // Moves behind what begins here, which ends with the next `close` behind `open`.
    bool Pass(char const* open, char const* close)
    {
        std::size_t const length = std::strlen(close);
        position_ = std::search(position_ + std::strlen(open), end_, close, close + length);
        if (position_ == end_)
            return false;
        position_ += length;
        return true;
    }

    bool TakeEndTag()
    {
        if (open_ == 0 || !MoveTo('>'))
            return false;
        --open_;
        return true;
    }

    // The value of each attribute stands in quotes, and nothing else does.
    bool TakeStartTag()
    {
        unsigned attributes = 0;
        shape_.depth = std::max(shape_.depth, open_ + 1);
        for (++position_; position_ != end_ && *position_ != '<'; ++position_) {
            if (*position_ == '>') {
                if (position_[-1] != '/')
                    ++open_;
                return true;
            }
            if (*position_ != '"' && *position_ != '\'')
                continue;
            shape_.attributes = std::max(shape_.attributes, ++attributes);
            char const quote = *position_++;
            if (!MoveTo(quote))
                return false;
        }
        return false;
    }

    char const* position_;
    char const* const end_;
    unsigned open_ = 0;  // elements whose end tag has not come
    MarkupShape shape_ = {0, 0};
};

}  // namespace

MarkupShape MeasureMarkup(unsigned char const* data, unsigned length)
{
    auto const* const text = reinterpret_cast<char const*>(data);
    Walk walk(text, text + length);
    while (walk.Next())
        continue;  // cppcheck-suppress redundantContinue ; stands for an empty body
    return walk.GetShape();
}

}  // namespace volume
