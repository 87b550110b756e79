#include "common/XmlText.h"

#include <gtest/gtest.h>

#include <string>

namespace volume { namespace {

TEST(XmlTextTest, AnAttributeKeepsItsLineEndsAndTabsAsReferences)
{
    EXPECT_EQ("&lt;a&gt; &amp; &quot;b&quot; &apos;c&apos;&#10;&#13;&#9;", EscapeAttribute("<a> & \"b\" 'c'\n\r\t"));
    EXPECT_EQ("", EscapeAttribute(""));
}

TEST(XmlTextTest, ATextKeepsOnlyWhatItIsToldTo)
{
    EXPECT_EQ("a\n&#13;&lt;", EscapeText("a\n\r<", "\r"));
}

TEST(XmlTextTest, ANameOfUtf8IsWrittenAsItIs)
{
    for (char const* name : {"photos", "a b",
                             "gr\xC3\xB6\xC3\x9F"
                             "e",
                             "\xE2\x82\xAC", "\xF0\x9F\x93\xB7", "100%"})
        EXPECT_EQ(name, EscapeName(name));
}

TEST(XmlTextTest, BytesThatNoDocumentCanHoldAreWrittenInHexadecimalDigits)
{
    struct
    {
        char const* name;
        char const* text;
    } const cases[] = {
        {"\x01", "%01"},
        {"a\nb\tc", "a%0Ab%09c"},
        {"\x7F", "%7F"},
        {"\x80", "%80"},
        {"\xC3", "%C3"},
        {"\xC3(", "%C3("},
        {"\xC0\xAF", "%C0%AF"},
        {"\xE0\x80\xAF", "%E0%80%AF"},
        {"\xED\xA0\x80", "%ED%A0%80"},
        {"\xEF\xBF\xBE", "%EF%BF%BE"},
        {"\xEF\xBF\xBF", "%EF%BF%BF"},
        {"\xEF\xBF\xBD", "\xEF\xBF\xBD"},
        {"\xE2\x82", "%E2%82"},
        {"\xF0\x80\x80\x80", "%F0%80%80%80"},
        {"\xF4\x90\x80\x80", "%F4%90%80%80"},
        {"\xF5\x80\x80\x80", "%F5%80%80%80"},
        {"\xFF", "%FF"},
    };
    for (auto const& pair : cases)
        EXPECT_EQ(pair.text, EscapeName(pair.name));
}

TEST(XmlTextTest, ANameIsEscapedForAnAttributeAsWell)
{
    EXPECT_EQ("a&quot;b&lt;&amp;%01", EscapeName("a\"b<&\x01"));
}

}}  // namespace volume
