#include "common/Prolog.h"

#include <gtest/gtest.h>

#include <string>

namespace volume { namespace {

Prolog Inspect(std::string const& document)
{
    return InspectProlog(reinterpret_cast<unsigned char const*>(document.data()),
                         static_cast<unsigned>(document.size()));
}

struct Case
{
    char const* document;
    Prolog verdict;
};

void PrintTo(Case const& item, std::ostream* stream)
{
    *stream << item.document;
}

class PrologTest : public testing::TestWithParam<Case>
{};

TEST_P(PrologTest, IsJudged)
{
    EXPECT_EQ(GetParam().verdict, Inspect(GetParam().document));
}

INSTANTIATE_TEST_SUITE_P(Accepted, PrologTest,
                         testing::Values(Case{"<a/>", Prolog::Accepted}, Case{" \t\r\n<a/>", Prolog::Accepted},
                                         Case{"\xEF\xBB\xBF<a/>", Prolog::Accepted},
                                         Case{"<?xml version='1.0'?><a/>", Prolog::Accepted},
                                         Case{"<?xml version='1.0' encoding=\"utf-8\"?><a/>", Prolog::Accepted},
                                         Case{"<?xml version='1.0' encoding = 'ISO-8859-1' ?><a/>", Prolog::Accepted},
                                         Case{"<?xml version='1.0' encoding='US-ASCII'?><a/>", Prolog::Accepted},
                                         Case{"<!-- <!DOCTYPE a> --><a/>", Prolog::Accepted},
                                         Case{"<?pi <!DOCTYPE a> ?><a/>", Prolog::Accepted},
                                         Case{"<?xml-stylesheet encoding='UTF-7'?><a/>", Prolog::Accepted},
                                         Case{"<?xml version='1.1' standalone=\"no\"?><a/>", Prolog::Accepted},
                                         Case{"<?xml version='1.0'?>\n<!--x--> <?y z?>\n<a/>", Prolog::Accepted},
                                         Case{"<a><!DOCTYPE b></a>", Prolog::Accepted}));

INSTANTIATE_TEST_SUITE_P(DocumentType, PrologTest,
                         testing::Values(Case{"<!DOCTYPE a><a/>", Prolog::DocumentType},
                                         Case{"\xEF\xBB\xBF\n<!DOCTYPE a><a/>", Prolog::DocumentType},
                                         Case{"<?xml version='1.0'?><!DOCTYPE a []><a/>", Prolog::DocumentType},
                                         Case{"<!-- a --><!-- b --><?c?><!DOCTYPE a><a/>", Prolog::DocumentType},
                                         Case{"<!doctype a><a/>", Prolog::DocumentType},
                                         Case{"<!", Prolog::DocumentType}, Case{"<!->", Prolog::DocumentType}));

INSTANTIATE_TEST_SUITE_P(Encoding, PrologTest,
                         testing::Values(Case{"<?xml version='1.0' encoding='UTF-7'?><a/>", Prolog::Encoding},
                                         Case{"<?xml version='1.0' encoding='UTF-16'?><a/>", Prolog::Encoding},
                                         Case{"<?xml version='1.0' encoding='IBM037'?><a/>", Prolog::Encoding},
                                         Case{"<?xml version='1.0' encoding='UTF-7' standalone='yes'?><a/>",
                                              Prolog::Encoding},
                                         Case{"<?xml version='1.0' encoding=''?><a/>", Prolog::Encoding}));

INSTANTIATE_TEST_SUITE_P(Malformed, PrologTest,
                         testing::Values(Case{"", Prolog::Malformed}, Case{"  ", Prolog::Malformed},
                                         Case{"hello", Prolog::Malformed}, Case{"<!-- never closed", Prolog::Malformed},
                                         Case{"<!-->", Prolog::Malformed}, Case{"<?never closed", Prolog::Malformed},
                                         Case{"<?xml version='1.0'", Prolog::Malformed},
                                         Case{"\xFE\xFF<a/>", Prolog::Malformed},
                                         Case{"\x4C\x6F\xA7\x94\x93\x40", Prolog::Malformed},  // EBCDIC
                                         Case{"\xC2\x85<a/>", Prolog::Malformed}));

INSTANTIATE_TEST_SUITE_P(
    MalformedDeclaration, PrologTest,
    testing::Values(Case{"<?xml ?><a/>", Prolog::Malformed}, Case{"<?xml encoding='UTF-8'?><a/>", Prolog::Malformed},
                    Case{"<?xml version='1.2'?><a/>", Prolog::Malformed},
                    Case{"<?xml version='1.0'encoding='UTF-8'?><a/>", Prolog::Malformed},
                    Case{"<?xml version='1.0' encoding=UTF-8?><a/>", Prolog::Malformed},
                    Case{"<?xml version='1.0' encoding 'UTF-8'?><a/>", Prolog::Malformed},
                    Case{"<?xml version='1.0' encoding='UTF-8?><a/>", Prolog::Malformed},
                    Case{"<?xml version='1.0' encoding=?><a/>", Prolog::Malformed},
                    Case{"<?xml version='1.0' standalone='maybe'?><a/>", Prolog::Malformed},
                    Case{"<?xml version='1.0' standalone='no' encoding='UTF-7'?><a/>", Prolog::Malformed},
                    Case{"<?xml version='encoding=\"UTF-8\"' encoding='UTF-7'?><a/>", Prolog::Malformed}));

TEST(PrologOfZeroBytesTest, AZeroByteIsOfAnotherEncoding)
{
    EXPECT_EQ(Prolog::Encoding, Inspect(std::string("<\0?\0x\0m\0l\0", 10)));
    EXPECT_EQ(Prolog::Encoding, Inspect(std::string("<a/>\0", 5)));
}

}}  // namespace volume
