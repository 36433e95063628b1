#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "common/exc.h"
#include "common/xml.h"

// What comes from the cloud may be damaged or hostile: every such text ends in an exception that says what is wrong.

namespace {

std::string Repeated(std::string_view text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

/// What reading the text fails with, without "Invalid XML document: "; empty when it is read.
std::string CheckFailure(std::string_view text) {
    const std::string head = "Invalid XML document: ";
    try {
        (void)xml::TiXmlParseExc(text);
    } catch (const exc::CRuntimeExc& failure) {
        const std::string what = failure.what();
        return what.starts_with(head) ? what.substr(head.size()) : "unexpected: " + what;
    }
    return "";
}

TEST(XmlCheck, GoodDocumentsAreRead) {
    const std::string good[] = {
        "<a/>",
        "<a></a>",
        " \t\r\n<a/>\r\n",
        "\xEF\xBB\xBF<a/>",
        "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" standalone='yes' ?>\n<a/>",
        "<?xml version='1.0'?><a/>",
        "<?xml version = '1.0' ?><a/>",
        "<?xml?><a/>",
        "<?pi some data?><a><?pi?></a><?pi x='1'?>",
        "<!-- before --><a><!-- in <b> & --></a><!-- behind -->",
        "<!----><a/>",
        "<!-->--><a/>",
        "<a><![CDATA[<b>&]] >]]></a>",
        "<a><![CDATA[]]></a>",
        "<a><![CDATA[]]]]></a>",
        "<a >text &lt; &gt; &amp; &quot; &apos; &#65; &#x41; &#x10FFFF;</a >",
        "<a b=\"1\"\n c = '2'\td='\"' e=\">\"/>",
        "<a_1-.:x ü='1'/>",
        "<a>]]></a>",
        "<a><b><b/></b><b/></a>",
    };
    for (const std::string& text : good) {
        EXPECT_EQ("", CheckFailure(text)) << text;
    }
}

TEST(XmlCheck, NoDocumentAtAll) {
    EXPECT_EQ("no root element at byte 0", CheckFailure(""));
    EXPECT_EQ("no root element at byte 0", CheckFailure({}));
    EXPECT_EQ("no root element at byte 3", CheckFailure(" \n\t"));
    EXPECT_EQ("no root element at byte 3", CheckFailure("\xEF\xBB\xBF"));
    EXPECT_EQ("text before the root element at byte 0", CheckFailure("text"));
    EXPECT_EQ("text before the root element at byte 0", CheckFailure("{\"json\": 1}"));
    EXPECT_EQ("no name where one should be at byte 1", CheckFailure("</a>"));
    EXPECT_EQ("no name where one should be at byte 1", CheckFailure("<![CDATA[x]]>"));
    EXPECT_EQ("no root element at byte 8", CheckFailure("<!-- -->"));
}

TEST(XmlCheck, ADocumentCutInItsPrologIsNotAnEmptyOne) {
    EXPECT_EQ("cut off at byte 1", CheckFailure("<"));
    EXPECT_EQ("cut off at byte 2", CheckFailure("<?"));
    EXPECT_EQ("cut off at byte 5", CheckFailure("<?xml"));
    EXPECT_EQ("cut off at byte 6", CheckFailure("<?xml "));
    EXPECT_EQ("cut off at byte 13", CheckFailure("<?xml version"));
    EXPECT_EQ("cut off at byte 14", CheckFailure("<?xml version="));
    EXPECT_EQ("cut off at byte 18", CheckFailure("<?xml version=\"1.0"));
    EXPECT_EQ("cut off at byte 19", CheckFailure("<?xml version=\"1.0\""));
    EXPECT_EQ("no root element at byte 22", CheckFailure("<?xml version=\"1.0\" ?>"));
    EXPECT_EQ("a part that does not end at byte 4", CheckFailure("<!--"));
    EXPECT_EQ("a part that does not end at byte 4", CheckFailure("<!-- x --"));
    EXPECT_EQ("a part that does not end at byte 4", CheckFailure("<?pi data"));
}

TEST(XmlCheck, ADocumentCutAtAnyByteIsRefused) {
    const std::string text =
        "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- c --><?pi x?>\n<Root A=\"1\" B='&amp;ü&#x41;'>\n"
        "  <Child C=\"3\"/>text &lt; <![CDATA[ x ]]><!-- y --><?pi y?>\n  <Other>№</Other>\n</Root>";
    ASSERT_EQ("", CheckFailure(text));
    for (std::size_t size = 0; size < text.size(); ++size) {
        EXPECT_NE("", CheckFailure(text.substr(0, size))) << size;
    }
}

TEST(XmlCheck, DeepNestingIsRefused) {
    EXPECT_EQ("", CheckFailure(Repeated("<a>", 32) + Repeated("</a>", 32)));
    EXPECT_EQ("", CheckFailure(Repeated("<a>", 31) + "<a/>" + Repeated("</a>", 31)));
    EXPECT_EQ("elements nested too deep at byte 97", CheckFailure(Repeated("<a>", 33) + Repeated("</a>", 33)));
    EXPECT_EQ("elements nested too deep at byte 97", CheckFailure(Repeated("<a>", 32) + "<a/>" + Repeated("</a>", 32)));
    EXPECT_EQ("elements nested too deep at byte 97", CheckFailure(Repeated("<a>", 40000) + Repeated("</a>", 40000)));
    EXPECT_EQ("elements nested too deep at byte 97", CheckFailure(Repeated("<a>", 40000)));
}

std::string WithAttributes(std::size_t count) {
    std::string text = "<a";
    for (std::size_t i = 0; i < count; ++i) {
        text += " a" + std::to_string(i) + "='1'";
    }
    return text + "/>";
}

TEST(XmlCheck, ManyAttributesAreRefused) {
    EXPECT_EQ("", CheckFailure(WithAttributes(64)));
    EXPECT_TRUE(CheckFailure(WithAttributes(65)).starts_with("too many attributes in one element at byte"));
    EXPECT_TRUE(CheckFailure(WithAttributes(100000)).starts_with("too many attributes in one element at byte"));
}

TEST(XmlCheck, AnAttributeThatStandsTwiceIsRefused) {
    const std::string head = "an attribute that stands twice at byte ";
    EXPECT_EQ(head + "9, in attribute 'b' of node 'a'", CheckFailure("<a b='1' b='2'/>"));
    EXPECT_EQ(head + "9, in attribute 'b' of node 'a'", CheckFailure("<a b='1' b='1'/>"));
    EXPECT_EQ(head + "23, in attribute 'c' of node 'd'", CheckFailure("<a b='1'><d c='1' e=\"\" c=\"2\"/></a>"));
    EXPECT_EQ(head + "9, in attribute 'a' of node 'a'",
              CheckFailure("<a" + Repeated(" a='1'", 100000) + "/>").substr(0, 70))
        << "also where there are too many of them";
    EXPECT_EQ("", CheckFailure("<a b='1' B='2' bb='3'><a b='1'/></a>")) << "others may";
}

TEST(XmlCheck, AnAttributeWhoseValueIsWrongIsNamed) {
    const std::string where = ", in attribute 'b' of node 'a'";
    EXPECT_EQ("cut off at byte 7" + where, CheckFailure("<a b='1"));
    EXPECT_EQ("invalid UTF-8 at byte 7" + where, CheckFailure("<a b='1\xFF'/>"));
    EXPECT_EQ("invalid UTF-8 at byte 14, in attribute 'c' of node 'a'", CheckFailure("<a b='1\xC3\xBC' c='\xFF'/>"));
    EXPECT_EQ("invalid UTF-8 at byte 15, in attribute 'b' of node 'd'", CheckFailure("<a b='1'><d b='\xFF'/></a>"));
    EXPECT_EQ("an unknown or invalid reference at byte 7" + where, CheckFailure("<a b='1&x;'/>"));
    EXPECT_EQ("a '<' inside a value at byte 6" + where, CheckFailure("<a b='<'/>"));
    const std::string name(100, 'n');
    EXPECT_EQ("cut off at byte 205, in attribute '" + name.substr(0, 64) + "' of node '" + name.substr(0, 64) + "'",
              CheckFailure("<" + name + " " + name + "='1"))
        << "a long name by its beginning";
}

// What stands where a name should may be the rest of a value, a password perhaps, that has a quote in it.
TEST(XmlCheck, WhatHasNoValueIsNotNamed) {
    EXPECT_EQ("an attribute without a value at byte 16", CheckFailure("<a b='my' secret' c='1'/>"));
    EXPECT_EQ("cut off at byte 16", CheckFailure("<a b='my' secret"));
    EXPECT_EQ("an attribute value without quotes at byte 17", CheckFailure("<a b='my' secret=my/>"));
    EXPECT_EQ("invalid UTF-8 at byte 16", CheckFailure("<a b='my' secret\xFF='1'/>"));
    EXPECT_EQ("invalid UTF-8 at byte 10", CheckFailure("<a b='1'>\n\xFF</a>")) << "nor an attribute that is behind";
    EXPECT_EQ("invalid UTF-8 at byte 13", CheckFailure("<a b='&x' c='\xFF'/>")) << "nor one that is wrong before";
}

TEST(XmlCheck, NulBytesAreRefused) {
    using namespace std::string_literals;
    EXPECT_EQ("a NUL byte at byte 0", CheckFailure("\0"s));
    EXPECT_EQ("a NUL byte at byte 4", CheckFailure("<a/>\0"s));
    EXPECT_EQ("a NUL byte at byte 7, in attribute 'b' of node 'a'", CheckFailure("<a b='x\0y'/>"s));
    EXPECT_EQ("a NUL byte at byte 20", CheckFailure("<?xml version=\"1.0\" \0?><a/>"s));
    EXPECT_EQ("a NUL byte at byte 5", CheckFailure("<!-- \0 --><a/>"s));
}

TEST(XmlCheck, ReferencesToNulAndToNoCharacterAreRefused) {
    const std::string where = ", in attribute 'b' of node 'a'";
    for (const std::string reference :
         {"&#0;",   "&#00;", "&#x0;",  "&#x000;", "&#xD800;",    "&#xDFFF;",   "&#x110000;", "&#1114112;",
          "&#;",    "&#x;",  "&#X41;", "&#xG;",   "&#4A;",       "&#-1;",      "&# 65;",     "&#x41 ;",
          "&nbsp;", "&;",    "&AMP;",  "& ;",     "&#99999999;", "&#xFFFFFFF;"}) {
        EXPECT_EQ("an unknown or invalid reference at byte 7" + where, CheckFailure("<a b='x" + reference + "'/>"))
            << reference;
        EXPECT_EQ("an unknown or invalid reference at byte 3", CheckFailure("<a>" + reference + "</a>")) << reference;
    }
    for (const std::string reference : {"&", "&amp", "&#65", "&#0000000065;", "&thisisnotanentity;", "& b"}) {
        EXPECT_EQ("a reference without an end at byte 6" + where, CheckFailure("<a b='" + reference + "'/>"))
            << reference;
        EXPECT_EQ("a reference without an end at byte 3", CheckFailure("<a>" + reference + "</a>")) << reference;
    }
}

TEST(XmlCheck, InvalidUtf8IsRefused) {
    for (const std::string bytes :
         {"\x80", "\xC0\x80", "\xC3", "\xE0\x80\x80", "\xED\xA0\x80", "\xF5\x80\x80\x80", "\xFF"}) {
        EXPECT_EQ("invalid UTF-8 at byte 6, in attribute 'b' of node 'a'", CheckFailure("<a b='" + bytes + "'/>"));
        EXPECT_EQ("invalid UTF-8 at byte 3", CheckFailure("<a>" + bytes + "</a>"));
        EXPECT_EQ("invalid UTF-8 at byte 1", CheckFailure("<" + bytes + "/>"));
        EXPECT_EQ("invalid UTF-8 at byte 4", CheckFailure("<!--" + bytes + "--><a/>"));
    }
    EXPECT_EQ("invalid UTF-8 at byte 0", CheckFailure("\xFF\xFE<\0a\0/\0>\0")) << "no other encoding";
}

TEST(XmlCheck, WhatIsLeftOverBehindTheRootIsRefused) {
    EXPECT_EQ("text after the root element at byte 4", CheckFailure("<a/>x"));
    EXPECT_EQ("text after the root element at byte 5", CheckFailure("<a/> <b/>"));
    EXPECT_EQ("text after the root element at byte 7", CheckFailure("<a></a></a>"));
    EXPECT_EQ("text after the root element at byte 4", CheckFailure("<a/><![CDATA[x]]>"));
    EXPECT_EQ("text after the root element at byte 4", CheckFailure("<a/>\xEF\xBB\xBF"));
    EXPECT_EQ("a part that does not end at byte 8", CheckFailure("<a/><!-- cut"));
    EXPECT_EQ("a declaration that is not at the beginning at byte 9", CheckFailure("<a/><?xml version='1.0'?>"));
}

TEST(XmlCheck, DocumentTypesAreRefused) {
    EXPECT_EQ("no name where one should be at byte 1", CheckFailure("<!DOCTYPE a><a/>"));
    EXPECT_EQ("no name where one should be at byte 22",
              CheckFailure("<?xml version='1.0'?><!DOCTYPE a [<!ENTITY b 'c'>]><a/>"));
    EXPECT_EQ("no name where one should be at byte 4", CheckFailure("<a><!DOCTYPE a></a>"));
    EXPECT_EQ("no name where one should be at byte 1", CheckFailure("<!ELEMENT a><a/>"));
}

TEST(XmlCheck, CommentsAndCharacterDataThatDoNotEnd) {
    EXPECT_EQ("no name where one should be at byte 4", CheckFailure("<a><!-x--></a>"));
    EXPECT_EQ("a part that does not end at byte 7", CheckFailure("<a><!-- x -- ></a>"));
    EXPECT_EQ("a part that does not end at byte 7", CheckFailure("<a><!--></a>"));
    EXPECT_EQ("a part that does not end at byte 12", CheckFailure("<a><![CDATA[ x ]] ></a>"));
    EXPECT_EQ("no name where one should be at byte 4", CheckFailure("<a><![cdata[x]]></a>"));
    EXPECT_EQ("no name where one should be at byte 4", CheckFailure("<a><![CDATA x]]></a>"));
    EXPECT_EQ("a part that does not end at byte 4", CheckFailure("<!--" + Repeated("<!--", 1000)));
}

TEST(XmlCheck, DeclarationsThatTinyXmlWouldReadOtherwise) {
    const std::pair<std::string, std::string> refused[] = {
        {"<?xml version?><a/>", "an attribute without a value at byte 13"},
        {"<?xml version=?><a/>", "an attribute value without quotes at byte 14"},
        {"<?xml version=1.0?><a/>", "an attribute value without quotes at byte 14"},
        {"<?xml version='1\"0'?><a/>", "a malformed declaration at byte 16"},
        {"<?xml version='1.0'encoding='UTF-8'?><a/>", "a malformed declaration at byte 19"},
        {"<?xml versions='1.0'?><a/>", "an attribute without a value at byte 13"},
        {"<?xml a='>' ?><a/>", "a malformed declaration at byte 6"},
        {"<?xml > ?><a/>", "a malformed declaration at byte 6"},
        {"<?xmlversion='1.0'?><a/>", "a malformed declaration at byte 5"},
        {"<?xml-stylesheet href='a'?><a/>", "a malformed declaration at byte 5"},
        {"<?XML version='1.0'?><a/>", "a declaration that is not at the beginning at byte 5"},
        {"<!-- --><?xml version='1.0'?><a/>", "a declaration that is not at the beginning at byte 13"},
        {"<a><?xml encoding b?><b/></a>", "a declaration that is not at the beginning at byte 8"},
        {"<?pi > ?><a/>", "a '>' inside a processing instruction at byte 6"},
        {"<a><?pi > ?></a>", "a '>' inside a processing instruction at byte 9"},
        {"<? pi?><a/>", "no name where one should be at byte 2"},
        {"<?"
         "?><a/>",
         "no name where one should be at byte 2"},
    };
    for (const auto& [text, failure] : refused) {
        EXPECT_EQ(failure, CheckFailure(text)) << text;
    }
    EXPECT_TRUE(
        CheckFailure("<?xml" + Repeated(" version='1.0'", 65) + "?><a/>").starts_with("a malformed declaration"));
}

TEST(XmlCheck, MalformedElements) {
    const std::pair<std::string, std::string> refused[] = {
        {"< a/>", "no name where one should be at byte 1"},
        {"<1/>", "no name where one should be at byte 1"},
        {"<-a/>", "no name where one should be at byte 1"},
        {"<:a/>", "no name where one should be at byte 1"},
        {"<>", "no name where one should be at byte 1"},
        {"<a", "cut off at byte 2"},
        {"<a ", "cut off at byte 3"},
        {"<a/", "a malformed tag at byte 2"},
        {"<a/ >", "a malformed tag at byte 2"},
        {"<a\v/>", "a malformed tag at byte 2"},
        {"<a\x7F/>", "a malformed tag at byte 2"},
        {"<a b='1'c='2'/>", "a malformed tag at byte 8"},
        {"<a b/>", "an attribute without a value at byte 4"},
        {"<a b", "cut off at byte 4"},
        {"<a b=", "cut off at byte 5"},
        {"<a b=/>", "an attribute value without quotes at byte 5"},
        {"<a b=1/>", "an attribute value without quotes at byte 5"},
        {"<a b='1/>", "cut off at byte 9, in attribute 'b' of node 'a'"},
        {"<a b='<'/>", "a '<' inside a value at byte 6, in attribute 'b' of node 'a'"},
        {"<a ='1'/>", "no name where one should be at byte 3"},
        {"<a \xEF\xBB\xBF"
         "b='1'/>",
         "no name where one should be at byte 3"},
        {"<\xEF\xBF\xBE/>", "no name where one should be at byte 1"},
        {"<a \xEF\xBF\xBF='1'/>", "no name where one should be at byte 3"},
        {"<a><b></a></b>", "an end tag that does not match at byte 8"},
        {"<a></aa>", "an end tag that does not match at byte 5"},
        {"<aa></a>", "an end tag that does not match at byte 6"},
        {"<a></A>", "an end tag that does not match at byte 5"},
        {"<a></ a>", "no name where one should be at byte 5"},
        {"<a></a b='1'>", "a malformed end tag at byte 7"},
        {"<a></a", "cut off at byte 6"},
        {"<a></", "cut off at byte 5"},
        {"<a>", "cut off at byte 3"},
        {"<a>text", "cut off at byte 7"},
        {"<a><b/>", "cut off at byte 7"},
    };
    for (const auto& [text, failure] : refused) {
        EXPECT_EQ(failure, CheckFailure(text)) << text;
    }
}

}  // namespace
