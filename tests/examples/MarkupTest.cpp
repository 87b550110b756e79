#include "common/Markup.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace volume { namespace {

struct Case
{
    std::string document;
    unsigned depth;
    unsigned attributes;
};

void PrintTo(Case const& item, std::ostream* stream)
{
    *stream << item.document.substr(0, 60);
}

std::string Repeat(std::string const& text, int count)
{
    std::string result;
    for (int i = 0; i < count; ++i)
        result += text;
    return result;
}

class MarkupTest : public testing::TestWithParam<Case>
{};

TEST_P(MarkupTest, IsMeasured)
{
    std::string const& document = GetParam().document;
    MarkupShape const shape =
        MeasureMarkup(reinterpret_cast<unsigned char const*>(document.data()), static_cast<unsigned>(document.size()));
    EXPECT_EQ(GetParam().depth, shape.depth);
    EXPECT_EQ(GetParam().attributes, shape.attributes);
}

INSTANTIATE_TEST_SUITE_P(Elements, MarkupTest,
                         testing::Values(Case{"<a/>", 1, 0}, Case{"<a></a>", 1, 0}, Case{"<a><b/><b/></a>", 2, 0},
                                         Case{"<a><b><c/></b><b></b></a>", 3, 0}, Case{"<a ><b\n/></a >", 2, 0},
                                         Case{"<?xml version='1.0'?><!-- <x><y> --><a/>", 1, 0},
                                         Case{Repeat("<a>", 200000) + Repeat("</a>", 200000), 200000, 0},
                                         Case{"<a>" + Repeat("<b/>", 200000) + "</a>", 2, 0}));

INSTANTIATE_TEST_SUITE_P(Attributes, MarkupTest,
                         testing::Values(Case{"<a b='1'/>", 1, 1}, Case{"<a b='1' c=\"2\"><d e=''/></a>", 2, 2},
                                         Case{"<a b='/>'><c/></a>", 2, 1}, Case{"<a b='>' c='<d>'/>", 1, 2},
                                         Case{"<a b='\"' c=\"'\"/>", 1, 2}, Case{"<a b='x/'><c d = 'y'/></a>", 2, 1},
                                         Case{"<a" + Repeat(" b='1'", 200000) + "/>", 1, 200000}));

INSTANTIATE_TEST_SUITE_P(WhatIsNoMarkup, MarkupTest,
                         testing::Values(Case{"<a>b > c='d'</a>", 1, 0}, Case{"<a><!-- <b><c d='1'/> --></a>", 1, 0},
                                         Case{"<a><![CDATA[<b><c>]]]></a>", 1, 0}, Case{"<a><?b <c d='1'>?></a>", 1, 0},
                                         Case{"<a>&lt;b><c/></a>", 2, 0}, Case{"", 0, 0}, Case{"text", 0, 0}));

INSTANTIATE_TEST_SUITE_P(UpToTheFirstMistake, MarkupTest,
                         testing::Values(Case{"<a><b", 2, 0}, Case{"<a b='1", 1, 1},
                                         Case{"<a b='1'<c d='1' e='2'>", 1, 1}, Case{"</a><b/>", 0, 0},
                                         Case{"<a><!b><c/></a>", 1, 0}, Case{"<a><!-- <b>", 1, 0},
                                         Case{"<a><![CDATA[ <b>", 1, 0}, Case{"<a><?b <c>", 1, 0}, Case{"<a></a", 1, 0},
                                         Case{"<a/></a><b><c/></b>", 1, 0}, Case{"<", 1, 0}));

}}  // namespace volume
