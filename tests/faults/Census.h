#pragma once

#include <cstddef>
#include <string>

namespace tovu { namespace test {

/// What a run must leave as it was.
struct Census
{
    std::size_t descriptors;
    std::size_t threads;
    long allocations;   ///< Without the parser's.
    long parserPieces;  ///< Of memory. The parser makes a point of giving back nothing once it has met a lack of it.

    static Census Take();

    /// The census, once there are no more threads than `before`: one that was joined may stay in the system's books for
    /// a moment.
    static Census Await(Census const& before);

    /// The `other` may have fewer threads: one that was joined before this census was still in the books.
    bool HasTheResourcesOf(Census const& other) const;
    bool HasTheMemoryOf(Census const& other, bool withParser) const;
};

std::string Difference(Census const& before, Census const& after);

/// Lets the parser's memory be counted by itself, until StopCountingParserPieces. Takes the parser to be initialised.
void CountParserPieces();

void StopCountingParserPieces();

}}  // namespace tovu::test
