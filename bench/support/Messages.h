#pragma once

#include <cstdint>
#include <string>

#include "tovu/util/MessageProcessor.h"

namespace bench {

/// Takes the documents of MakeDocument, and counts them.
class Messages : public tovu::util::MessageProcessor
{
public:
    bool IsValidMessage(std::string const& name) const override { return name == "Volumes"; }

    void HandleMessage(tovu::util::Stream& /*stream*/, unsigned char const* /*data*/, unsigned /*length*/,
                       xercesc::DOMNode const& /*element*/) const override
    {
        ++handled;
    }

    mutable std::int64_t handled = 0;
};

}  // namespace bench
