#include "common/xml.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "common/exc.h"
#include "tests/support/Thrown.h"

namespace {

using xml::TiXmlCreateChild;
using xml::TiXmlCreateDocument;
using xml::TiXmlGetChildExc;
using xml::TiXmlGetChildren;
using xml::TiXmlGetChildSafe;
using xml::TiXmlGetNodeName;
using xml::TiXmlGetStrAttrExc;
using xml::TiXmlParseExc;
using xml::TiXmlToStr;
using xml::xml_holder_t;

constexpr std::uint64_t largestUInt64 = std::numeric_limits<std::uint64_t>::max();

/// The element <Node A="..."/> with that value.
xml_holder_t NodeWith(std::string_view value) {
    auto document = TiXmlCreateDocument();
    auto node = TiXmlCreateChild(document, "Node");
    xml::TiXmlSetStrAttr(node, "A", value);
    return node;
}

TEST(Xml, ADocumentIsBuiltAndPrinted) {
    auto document = TiXmlCreateDocument();
    auto root = TiXmlCreateChild(document, "Root");
    xml::TiXmlSetStrAttr(root, "Text", "a<b>&\"c\"'d'");
    xml::TiXmlSetUInt64Attr(root, "Size", largestUInt64);
    auto child = TiXmlCreateChild(root, "Child");
    xml::TiXmlSetIntAttr(child, "Number", -5);
    xml::TiXmlSetBoolAttr(child, "Yes", true);
    xml::TiXmlSetBoolAttr(child, "No", false);
    TiXmlCreateChild(root, "Child");
    const std::string expected =
        "<Root Text='a&lt;b&gt;&amp;&quot;c&quot;&apos;d&apos;' Size=\"18446744073709551615\">\n"
        "    <Child Number=\"-5\" Yes=\"true\" No=\"false\" />\n"
        "    <Child />\n"
        "</Root>\n";
    EXPECT_EQ(expected, TiXmlToStr(document));
    EXPECT_EQ(expected, TiXmlToStr(child)) << "of any node, its whole document";
}

TEST(Xml, AnAttributeThatIsSetAgainIsReplaced) {
    auto node = NodeWith("old");
    xml::TiXmlSetStrAttr(node, "A", "new");
    EXPECT_EQ("<Node A=\"new\" />\n", TiXmlToStr(node));
}

TEST(Xml, AHandleKeepsItsDocumentAlive) {
    const auto child = TiXmlGetChildExc(TiXmlGetChildExc(TiXmlParseExc("<a><b c='1'/></a>"), "a"), "b");
    EXPECT_EQ("1", TiXmlGetStrAttrExc(child, "c"));
    EXPECT_EQ("b", TiXmlGetNodeName(child));
}

TEST(Xml, ChildrenAreFoundByName) {
    const auto root =
        TiXmlGetChildExc(TiXmlParseExc("<r>text<x n='1'/><!-- --><y/><x n='2'/><![CDATA[<x n='3'/>]]></r>"), "r");
    EXPECT_EQ("1", TiXmlGetStrAttrExc(TiXmlGetChildExc(root, "x"), "n")) << "the first of that name";
    EXPECT_EQ("Cannot find required node: z", test::ThrownBy([&] { (void)TiXmlGetChildExc(root, "z"); }));
    EXPECT_FALSE(TiXmlGetChildSafe(root, "z").has_value());
    EXPECT_FALSE(TiXmlGetChildSafe(root, "X").has_value()) << "names are case-sensitive";
    ASSERT_TRUE(TiXmlGetChildSafe(root, "y").has_value());
    EXPECT_EQ("y", TiXmlGetNodeName(*TiXmlGetChildSafe(root, "y")));
    std::vector<std::string> names;
    for (const auto& child : TiXmlGetChildren(root)) {
        names.push_back(TiXmlGetNodeName(child));
    }
    EXPECT_EQ((std::vector<std::string>{"x", "y", "x"}), names) << "elements alone";
    EXPECT_TRUE(TiXmlGetChildren(TiXmlGetChildExc(root, "y")).empty());
}

TEST(Xml, AMissingAttributeIsNamedWithItsElement) {
    const auto node = NodeWith("x");
    EXPECT_EQ("Cannot find required attribute 'B' of node 'Node'",
              test::ThrownBy([&] { (void)TiXmlGetStrAttrExc(node, "B"); }));
    EXPECT_EQ("Cannot find required attribute 'B' of node 'Node'",
              test::ThrownBy([&] { (void)xml::TiXmlGetUInt64AttrExc(node, "B"); }));
    EXPECT_EQ("Cannot find required attribute 'B' of node 'Node'",
              test::ThrownBy([&] { (void)xml::TiXmlGetGuidAttrExc(node, "B"); }));
    EXPECT_EQ("Cannot find required attribute 'a' of node 'Node'",
              test::ThrownBy([&] { (void)TiXmlGetStrAttrExc(node, "a"); }));
}

TEST(Xml, AnOptionalAttributeThatIsMissingHasItsDefault) {
    const auto node = NodeWith("x");
    EXPECT_EQ("", xml::TiXmlGetStrAttrSafe(node, "B"));
    EXPECT_EQ("default", xml::TiXmlGetStrAttrSafe(node, "B", "default"));
    EXPECT_EQ("x", xml::TiXmlGetStrAttrSafe(node, "A", "default"));
    EXPECT_EQ("", xml::TiXmlGetStrAttrSafe(NodeWith(""), "A", "default")) << "an empty value is a value";
    EXPECT_EQ(-7, xml::TiXmlGetIntAttrSafe(node, "B", -7));
    EXPECT_TRUE(xml::TiXmlGetBoolAttrSafe(node, "B", true));
    EXPECT_FALSE(xml::TiXmlGetBoolAttrSafe(node, "B", false));
}

TEST(Xml, UnsignedNumbersAreStrict) {
    const auto read = [](std::string_view text) { return xml::TiXmlGetUInt64AttrExc(NodeWith(text), "A"); };
    EXPECT_EQ(0U, read("0"));
    EXPECT_EQ(12U, read("012"));
    EXPECT_EQ(largestUInt64, read("18446744073709551615"));
    for (const std::string text :
         {"", " ", "-1", "-0", "+1", " 1", "1 ", "1x", "0x1", "1.0", "1e2", "18446744073709551616"}) {
        EXPECT_EQ("Attribute 'A' of node 'Node' is not an unsigned number: '" + text + "'",
                  test::ThrownBy([&] { (void)read(text); }));
    }
}

TEST(Xml, SignedNumbersAreStrict) {
    const auto read = [](std::string_view text) { return xml::TiXmlGetIntAttrSafe(NodeWith(text), "A", 99); };
    EXPECT_EQ(0, read("-0"));
    EXPECT_EQ(-5, read("-5"));
    EXPECT_EQ(2147483647, read("2147483647"));
    EXPECT_EQ(std::numeric_limits<int>::min(), read("-2147483648"));
    for (const std::string text : {"", "-", "--1", "+1", " 1", "1 ", "1-", "2147483648", "-2147483649", "one"}) {
        EXPECT_EQ("Attribute 'A' of node 'Node' is not a number: '" + text + "'",
                  test::ThrownBy([&] { (void)read(text); }));
    }
}

TEST(Xml, FlagsAreStrict) {
    const auto read = [](std::string_view text) { return xml::TiXmlGetBoolAttrSafe(NodeWith(text), "A", false); };
    EXPECT_TRUE(read("true"));
    EXPECT_TRUE(read("1"));
    EXPECT_FALSE(read("false"));
    EXPECT_FALSE(read("0"));
    for (const std::string text : {"", "True", "yes", "2", " true", "01", "truefalse"}) {
        EXPECT_EQ("Attribute 'A' of node 'Node' is not a flag: '" + text + "'",
                  test::ThrownBy([&] { (void)read(text); }));
    }
}

TEST(Xml, GuidsAreStrict) {
    const auto read = [](std::string_view text) { return xml::TiXmlGetGuidAttrExc(NodeWith(text), "A").ToAStr(); };
    EXPECT_EQ("01234567-89ab-cdef-0123-456789abcdef", read("{01234567-89AB-cdef-0123-456789abcdef}"));
    for (const std::string text : {"", "0", "01234567-89ab-cdef-0123-456789abcde"}) {
        EXPECT_EQ("Attribute 'A' of node 'Node' is not a GUID: '" + text + "'",
                  test::ThrownBy([&] { (void)read(text); }));
    }
}

TEST(Xml, OfAHostileValueOnlyTheBeginningIsQuoted) {
    const auto message = [](const std::string& value) {
        return test::ThrownBy([&] { (void)xml::TiXmlGetUInt64AttrExc(NodeWith(value), "A"); });
    };
    const std::string head = "Attribute 'A' of node 'Node' is not an unsigned number: '";
    EXPECT_EQ(head + std::string(64, 'x') + "'", message(std::string(100000, 'x')));
    EXPECT_EQ(head + std::string(64, 'x') + "'", message(std::string(64, 'x')));
    EXPECT_EQ(head + std::string(62, 'x') + "'", message(std::string(62, 'x') + "№ behind")) << "no half characters";
    EXPECT_EQ(head + std::string(61, 'x') + "№'", message(std::string(61, 'x') + "№ behind"));
}

TEST(Xml, ADocumentIsNoElement) {
    auto document = TiXmlParseExc("<a/>");
    EXPECT_EQ("XML node '' is not an element", test::ThrownBy([&] { (void)TiXmlGetStrAttrExc(document, "x"); }));
    EXPECT_THROW(xml::TiXmlSetStrAttr(document, "x", "y"), exc::CRuntimeExc);
    EXPECT_THROW((void)xml::TiXmlGetIntAttrSafe(document, "x", 1), exc::CRuntimeExc);
}

TEST(Xml, ATextThatNoDocumentCanCarryIsRefused) {
    auto node = NodeWith("kept");
    for (const std::string& text : {std::string("a\0b", 3), std::string("\xFF"), std::string("\xED\xA0\x80")}) {
        EXPECT_EQ("Attribute 'A' of node 'Node' is not UTF-8 text: ''",
                  test::ThrownBy([&] { xml::TiXmlSetStrAttr(node, "A", text); }));
    }
    EXPECT_EQ("kept", TiXmlGetStrAttrExc(node, "A"));
}

TEST(Xml, ValuesThatLookLikeMarkupComeBackAsTheyWere) {
    const std::string values[] = {"",
                                  " ",
                                  "  lead and trail  ",
                                  "\t",
                                  "\r\n",
                                  "\n\n",
                                  "\x01\x1F\x7F",
                                  "&amp;",
                                  "&#x41;",
                                  "&#x",
                                  "&#x;",
                                  "&#65;",
                                  "&#xZZ",
                                  "&",
                                  "&&",
                                  "<",
                                  "]]>",
                                  "<!--",
                                  "-->",
                                  "'",
                                  "\"",
                                  "'\"",
                                  "%1",
                                  "a=b",
                                  "/>",
                                  "\xEF\xBB\xBF",
                                  "\xEF\xBB\xBFx",
                                  "\xEF\xBF\xBF",
                                  "№ Schlüssel 🔑"};
    for (const std::string& value : values) {
        const auto read = TiXmlParseExc(TiXmlToStr(NodeWith(value)));
        EXPECT_EQ(value, TiXmlGetStrAttrExc(TiXmlGetChildExc(read, "Node"), "A"));
    }
}

TEST(XmlText, IsReadBackAsItWasAdded) {
    for (const std::string& text : {std::string("a"), std::string("<&>\"'"), std::string(" a  b\t"),
                                    std::string("\xC3\xA9\n%1"), std::string("a\x01")}) {
        auto document = TiXmlCreateDocument();
        auto root = TiXmlCreateChild(document, "Root");
        auto child = TiXmlCreateChild(root, "Key");
        TiXmlAddText(child, text);
        for (const std::string& written : {TiXmlToStr(document), TiXmlToCompactStr(document)}) {
            const auto read = TiXmlGetChildExc(TiXmlParseExc(written), "Root");
            EXPECT_EQ(TiXmlGetText(TiXmlGetChildExc(read, "Key")), text) << written;
        }
    }
}

TEST(XmlText, OfSeveralPiecesIsPutTogether) {
    const auto node =
        TiXmlGetChildExc(TiXmlParseExc("<a>one<b>not this</b><!-- nor this -->two<![CDATA[<3>]]></a>"), "a");
    EXPECT_EQ(TiXmlGetText(node), "onetwo<3>");
    EXPECT_EQ(TiXmlGetText(TiXmlGetChildExc(TiXmlParseExc("<a/>"), "a")), "");
    EXPECT_EQ(TiXmlGetText(TiXmlGetChildExc(TiXmlParseExc("<a>  </a>"), "a")), "");
}

TEST(XmlText, ThatNoDocumentCanCarryIsRefused) {
    auto document = TiXmlCreateDocument();
    auto root = TiXmlCreateChild(document, "Root");
    for (const std::string& text : {std::string("a\0b", 3), std::string("\xff")}) {
        EXPECT_THROW(TiXmlAddText(root, text), exc::CRuntimeExc);
    }
    EXPECT_EQ(TiXmlToStr(document), "<Root />\n");
}

TEST(XmlText, TheCompactFormHasNoLineEnds) {
    auto document = TiXmlCreateDocument();
    auto root = TiXmlCreateChild(document, "Root");
    auto child = TiXmlCreateChild(root, "A");
    TiXmlAddText(child, "x");
    TiXmlCreateChild(root, "B");
    EXPECT_EQ(TiXmlToCompactStr(document), "<Root><A>x</A><B /></Root>");
}

TEST(XmlThreads, DocumentsAreReadFromSeveralThreadsAtOnce) {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k < 100; ++k) {
                const auto node = TiXmlGetChildExc(TiXmlParseExc("<a b='&#x41;'/>"), "a");
                EXPECT_EQ("A", TiXmlGetStrAttrExc(node, "b"));
                EXPECT_EQ("<a b=\"A\" />\n", TiXmlToStr(node));
            }
        });
    }
}

}  // namespace
