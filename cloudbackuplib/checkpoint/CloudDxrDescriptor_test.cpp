#include "cloudbackuplib/CloudDxrDescriptor.h"

#include <gtest/gtest.h>

#include <rapidcheck/gtest.h>

#include "common/exc.h"
#include "common/util.h"
#include "tests/support/XmlDamage.h"

namespace cloudbackuplib::backup::checkpoint {
namespace {

std::string Text(const CCloudDxrDescriptor& dxr) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t node = xml::TiXmlCreateChild(document, "Dxr");
    dxr.Serialize(node);
    return xml::TiXmlToStr(document);
}

CCloudDxrDescriptor ReadDxr(const std::string& text) {
    CCloudDxrDescriptor dxr("before");
    dxr.Deserialize(xml::TiXmlGetChildExc(xml::TiXmlParseExc(text), "Dxr"));
    return dxr;
}

std::string ContentFailure(const std::string& inlineContent) {
    const CCloudDxrDescriptor dxr = ReadDxr("<Dxr InlineContent=\"" + inlineContent + "\"/>");
    EXPECT_EQ(dxr.IsEmpty(), inlineContent.empty());
    return test::FailureOf([&](const std::string&) { static_cast<void>(dxr.GetContent()); }, "").value_or("");
}

TEST(CloudDxrDescriptor, IsEmptyWithoutContent) {
    for (const auto& dxr : {CCloudDxrDescriptor(), CCloudDxrDescriptor(""), ReadDxr("<Dxr />")}) {
        EXPECT_TRUE(dxr.IsEmpty());
        EXPECT_EQ(dxr.GetContent(), "");
        EXPECT_EQ(Text(dxr), "<Dxr />\n");
    }
}

TEST(CloudDxrDescriptor, KeepsItsContentCompressed) {
    const CCloudDxrDescriptor dxr("<Backup Name=\"Documents\"/>");
    EXPECT_FALSE(dxr.IsEmpty());
    EXPECT_EQ(dxr.GetContent(), "<Backup Name=\"Documents\"/>");
    EXPECT_EQ(Text(dxr), "<Dxr InlineContent=\"eNqzcUpMzi4tUPBLzE21VXLJTy7NTc0rKVbStwMAeAUI1A==\" />\n");
}

TEST(CloudDxrDescriptor, IsReadBack) {
    const CCloudDxrDescriptor dxr = ReadDxr("<Dxr InlineContent=\"eNpzqSgCAAIxAS8=\"/>");
    EXPECT_FALSE(dxr.IsEmpty());
    EXPECT_EQ(dxr.GetContent(), "Dxr");
    EXPECT_EQ(Text(dxr), "<Dxr InlineContent=\"eNpzqSgCAAIxAS8=\" />\n");
}

TEST(CloudDxrDescriptor, ReadsWhatALowerLevelCompressed) {
    // zlib, no compression: 78 01, one stored block "ab", Adler-32.
    const std::string stored("\x78\x01\x01\x02\x00\xfd\xff\x61\x62\x01\x26\x00\xc4", 13);
    EXPECT_EQ(ReadDxr("<Dxr InlineContent=\"" + util::toBase64(stored) + "\"/>").GetContent(), "ab");
}

TEST(CloudDxrDescriptor, TakesWhateverStandsThereAndTellsOnUse) {
    EXPECT_EQ(ContentFailure("not base64"), "Invalid DXR content: 'not base64'");
    EXPECT_EQ(ContentFailure("%1"), "Invalid DXR content: '%1'");
    EXPECT_EQ(ContentFailure("eNpzqSgCAAIxAS8"), "Invalid DXR content: 'eNpzqSgCAAIxAS8'");
    EXPECT_EQ(ContentFailure("===="), "Invalid DXR content: '===='");
    EXPECT_EQ(ContentFailure(""), "");
}

TEST(CloudDxrDescriptor, PassesDecompressionFailuresThrough) {
    EXPECT_EQ(ContentFailure("eNpzqSgCAAIxAQ=="), "Damaged zlib data: cut off or corrupt");
    EXPECT_EQ(ContentFailure("eNpzqSgCAAIxAS9B"), "Damaged zlib data: bytes behind its end");
    EXPECT_EQ(ContentFailure("QUJD"), "Damaged zlib data: incorrect header check");
    EXPECT_EQ(ContentFailure("eNpzqSgCAAIxATA="), "Damaged zlib data: incorrect data check");
}

TEST(CloudDxrDescriptor, SpeaksOfEveryCutOfItsContent) {
    const std::string whole("\x78\xda\x73\xa9\x28\x02\x00\x02\x31\x01\x2f", 11);
    for (std::size_t size = 1; size < whole.size(); ++size) {
        EXPECT_NE(ContentFailure(util::toBase64(whole.substr(0, size))), "") << size;
    }
    EXPECT_EQ(ContentFailure(util::toBase64(whole)), "");
}

RC_GTEST_PROP(CloudDxrDescriptor, AnyContentComesBack, ()) {
    const auto bytes = *rc::gen::arbitrary<std::vector<char>>();
    const std::string content(bytes.begin(), bytes.end());
    const CCloudDxrDescriptor dxr(content);
    RC_ASSERT(dxr.IsEmpty() == content.empty());
    RC_ASSERT(dxr.GetContent() == content);
    RC_ASSERT(ReadDxr(Text(dxr)).GetContent() == content);
}

TEST(CloudDxrDescriptor, LargeContentComesBack) {
    std::string content;
    for (unsigned i = 0; content.size() < 3'000'000; ++i) {
        content += std::to_string(i * 2654435761U);
    }
    EXPECT_TRUE(ReadDxr(Text(CCloudDxrDescriptor(content))).GetContent() == content);
}

TEST(CloudDxrDescriptor, RefusesContentThatItWouldNotGiveBack) {
    const std::string tooLong((std::size_t{1} << 30U) + 1, 'x');
    EXPECT_EQ(test::FailureOf([&](const std::string&) { static_cast<void>(CCloudDxrDescriptor(tooLong)); }, ""),
              "DXR content of 1073741825 bytes is longer than 1073741824 bytes");
}

}  // namespace
}  // namespace cloudbackuplib::backup::checkpoint
