#include <gtest/gtest.h>

#include "cloudbackuplib/AzureConnectionSpec.h"
#include "cloudbackuplib/EBSConnectionSpec.h"
#include "cloudbackuplib/S3ConnectionSpec.h"

namespace cloudbackuplib::backup::platform {
namespace {

/// One kind of specification by its root's name and its recogniser.
struct SKind {
    std::string name;
    bool (*recognise)(const std::string&);
};

class SpecRecognition : public testing::TestWithParam<SKind> {};

TEST_P(SpecRecognition, TakesItsOwnRootElement) {
    const auto& [name, recognise] = GetParam();
    EXPECT_TRUE(recognise("<" + name + "/>"));
    EXPECT_TRUE(recognise("<" + name + " a=\"1\"><b/></" + name + ">"));
    EXPECT_TRUE(recognise("<?xml version=\"1.0\"?><!-- a note -->\n<" + name + "></" + name + ">\n"));
}

TEST_P(SpecRecognition, RefusesOtherRootElements) {
    const auto& [name, recognise] = GetParam();
    EXPECT_FALSE(recognise("<Other name=\"" + name + "\"/>"));
    EXPECT_FALSE(recognise("<Other><" + name + "/></Other>"));
    EXPECT_FALSE(recognise("<!-- " + name + " --><Other/>"));
    EXPECT_FALSE(recognise("<" + name + "2/>"));
    EXPECT_FALSE(recognise("<my" + name + "/>"));
}

TEST_P(SpecRecognition, RefusesWhatIsNoDocumentWithoutFailing) {
    const auto& [name, recognise] = GetParam();
    for (const std::string& text :
         {std::string(), std::string("<"), std::string("<Other/>"), name, "<" + name + ">",
          "<" + name + "/><" + name + "/>", "<" + name + " a=\"\xff\"/>", "<" + name + "/>" + std::string(1, '\0')}) {
        EXPECT_FALSE(recognise(text)) << text;
    }
}

TEST_P(SpecRecognition, TellsTheKindsApart) {
    const std::vector<std::string> names = {"S3ConnSpec", "AzureConnectionSpec", "EBSConnSpec"};
    for (const std::string& name : names) {
        EXPECT_EQ(GetParam().recognise("<" + name + "/>"), name == GetParam().name) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, SpecRecognition,
                         testing::Values(SKind{"S3ConnSpec", &s3::CS3ConnectionSpec::IsS3ConnSpec},
                                         SKind{"AzureConnectionSpec",
                                               &azure::SAzureConnectionSpec::IsAzureConnectionSpec},
                                         SKind{"EBSConnSpec", &ebs::CEBSConnectionSpec::IsEBSConnSpec}),
                         [](const auto& kind) { return kind.param.name; });

TEST(SpecRootNodes, HaveFixedNames) {
    EXPECT_EQ(s3::CS3ConnectionSpec::GetRootNodeName(), "S3ConnSpec");
    EXPECT_EQ(azure::SAzureConnectionSpec::GetRootNodeName(), "AzureConnectionSpec");
    EXPECT_EQ(ebs::CEBSConnectionSpec::GetRootNodeName(), "EBSConnSpec");
}

}  // namespace
}  // namespace cloudbackuplib::backup::platform
