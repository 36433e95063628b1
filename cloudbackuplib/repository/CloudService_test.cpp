#include "cloudbackuplib/CloudService.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "common/exc.h"
#include "tests/support/Thrown.h"

namespace cloudbackuplib::backup {
namespace {

TEST(CloudService, HasTheseValuesAndTexts) {
    const std::vector<std::string> texts = {"OneDrive", "OneDriveForBusiness", "OneDriveGraph",
                                            "AmazonS3", "AzureBlobStorage",    "AmazonEBS"};
    for (int value = 0; value != 6; ++value) {
        const auto service = static_cast<ECloudService::type>(value);
        EXPECT_EQ(ECloudService::ToStr(service), texts.at(static_cast<std::size_t>(value)));
        EXPECT_EQ(ECloudService::FromStr(texts.at(static_cast<std::size_t>(value))), service);
    }
    EXPECT_EQ(sizeof(ECloudService::type), 4U);
}

TEST(CloudService, RefusesOtherTexts) {
    for (const std::string text : {"", "amazons3", "AmazonS3 ", " AmazonS3", "AmazonS", "OneDriveGraphs", "3", "%1"}) {
        EXPECT_EQ(test::ThrownBy([&] { (void)ECloudService::FromStr(text); }),
                  "Unknown cloud service string: '" + text + "'");
    }
}

TEST(CloudService, RefusesOtherValues) {
    for (const int value : {6, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(test::ThrownBy([&] { (void)ECloudService::ToStr(static_cast<ECloudService::type>(value)); }),
                  "Unknown cloud service value: '" + std::to_string(value) + "'");
    }
}

TEST(CloudRepoType, HasTwoTexts) {
    EXPECT_EQ(ECloudRepoType::ToStr(static_cast<ECloudRepoType::type>(0)), "personal");
    EXPECT_EQ(ECloudRepoType::ToStr(static_cast<ECloudRepoType::type>(1)), "external");
    EXPECT_EQ(sizeof(ECloudRepoType::type), 4U);
    for (const int value : {2, -1}) {
        EXPECT_EQ(test::ThrownBy([&] { (void)ECloudRepoType::ToStr(static_cast<ECloudRepoType::type>(value)); }),
                  "Unknown cloud repository type value: '" + std::to_string(value) + "'");
    }
}

}  // namespace
}  // namespace cloudbackuplib::backup
