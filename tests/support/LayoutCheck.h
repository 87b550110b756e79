#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

namespace tovu { namespace test {

/// Where a member stands in the objects of its class, in bytes: a pointer to a data member is that number.
template <typename Class, typename Member>
std::size_t OffsetOf(Member Class::*member)
{
    std::size_t offset = 0;
    static_assert(sizeof(offset) == sizeof(member), "as the C++ ABI has it, on 64 and on 32 bits");
    std::memcpy(&offset, &member, sizeof(offset));
    return offset;
}

/// Expects `Class` to be laid out like `Expected`, a plain structure of the same members in their order, behind a pointer
/// for the table of virtual operations where there is one.
template <typename Class, typename Expected>
class LayoutCheck
{
public:
    LayoutCheck()
    {
        EXPECT_EQ(sizeof(Expected), sizeof(Class)) << "members have come or gone";
        EXPECT_EQ(alignof(Expected), alignof(Class));
    }

    /// A member of the class, or of a base of it: its place, and by the parameters' types its type.
    template <typename Member, typename Base>
    LayoutCheck& Has(char const* name, Member Expected::*expected, Member Base::*member)
    {
        Member Class::*const inherited = member;
        EXPECT_EQ(OffsetOf(expected), OffsetOf(inherited)) << "the place of " << name;
        return *this;
    }
};

}}  // namespace tovu::test
