#include "cloudbackuplib/CloudCheckpoint.h"

#include <gtest/gtest.h>

#include "cloudbackuplib/checkpoint/CheckpointTexts.h"
#include "tests/support/SingleFileOption.h"
#include "tests/support/XmlDamage.h"

namespace cloudbackuplib::backup::checkpoint {
namespace {

using test_texts::BlobsStorage;
using test_texts::firstId;
using test_texts::FullCheckpoint;
using test_texts::fullCompatible;
using test_texts::fullLongTerm;
using test_texts::LegacyStorage;
using test_texts::Read;
using test_texts::secondId;
using test_texts::Text;

constexpr auto compatible = DxrContentFeature::compatible;
constexpr auto longTerm = DxrContentFeature::longTerm;

std::string CheckpointFailure(const std::string& text, DxrContentFeature feature) {
    return test::FailureOf([&](const std::string& t) { static_cast<void>(Read(t, feature)); }, text).value_or("");
}

std::string Replace(std::string text, std::string_view what, std::string_view with) {
    return text.replace(text.find(what), what.size(), with);
}

TEST(DxrContentFeature, HasATextForEachValue) {
    EXPECT_EQ(ToString(compatible), "compatible");
    EXPECT_EQ(ToString(longTerm), "longTerm");
}

TEST(DxrContentFeature, HasANumberForEachValue) {
    EXPECT_EQ(static_cast<int>(compatible), 0);
    EXPECT_EQ(static_cast<int>(longTerm), 1);
}

TEST(DxrContentFeature, RefusesOtherValues) {
    for (const int value : {2, -1, 1000000}) {
        EXPECT_EQ(
            test::FailureOf(
                [&](const std::string&) { static_cast<void>(ToString(static_cast<DxrContentFeature>(value))); }, ""),
            "Unkown DxrContentFeature value: " + std::to_string(value));
    }
}

TEST(CloudCheckpoint, KeepsWhatItIsMadeOf) {
    const CCloudCheckpoint checkpoint = FullCheckpoint();
    ASSERT_EQ(checkpoint.GetStorages().size(), 2U);
    EXPECT_EQ(checkpoint.GetStorages()[0].GetStorageId(), secondId);
    EXPECT_EQ(checkpoint.GetStorages()[1].GetStorageId(), firstId);
    EXPECT_EQ(checkpoint.GetDxr().GetContent(), "Dxr");
    EXPECT_EQ(checkpoint.GetDxrLongTerm().GetContent(), "long-term");
    EXPECT_EQ(checkpoint.GetOwner().GetId(), test_texts::ownerId);
    EXPECT_EQ(checkpoint.GetId(), 42U);
    EXPECT_EQ(checkpoint.GetFormatVersion(), 2);
}

TEST(CloudCheckpoint, CopiesWhatItIsMadeOf) {
    std::vector<CCloudStorageDescriptor> storages{LegacyStorage()};
    const CCloudCheckpoint checkpoint(storages, {}, {}, {}, 1, 2);
    storages[0].SetCloudMetadataPartDescriptionsMap({});
    storages.push_back(BlobsStorage());
    ASSERT_EQ(checkpoint.GetStorages().size(), 1U);
    EXPECT_EQ(checkpoint.GetStorages()[0].GetCloudMetadataPartDescriptionsMap(),
              LegacyStorage().GetCloudMetadataPartDescriptionsMap());
}

TEST(CloudCheckpoint, TakesAnyFormatVersionAsItIs) {
    const test::SingleFileOption singleFile(true);
    for (const int version : {-1, 0, 2, 3}) {
        EXPECT_EQ(CCloudCheckpoint({}, {}, {}, {}, 1, version).GetFormatVersion(), version);
    }
}

TEST(CloudCheckpoint, TakesItsFormatVersionFromTheOptions) {
    const auto make = [] { return CCloudCheckpoint({LegacyStorage()}, {}, {}, {}, 5); };
    {
        const test::SingleFileOption singleFile(true);
        EXPECT_EQ(make().GetFormatVersion(), 1);
        EXPECT_EQ(CCloudCheckpoint::CreateEmpty()->GetFormatVersion(), 1);
    }
    const test::SingleFileOption parts(false);
    EXPECT_EQ(make().GetFormatVersion(), 2);
    EXPECT_EQ(make().GetId(), 5U);
    EXPECT_EQ(make().GetStorages().size(), 1U);
    EXPECT_EQ(CCloudCheckpoint::CreateEmpty()->GetFormatVersion(), 2);
}

TEST(CloudCheckpoint, CanBeEmpty) {
    const auto empty = CCloudCheckpoint::CreateEmpty();
    EXPECT_TRUE(empty->GetStorages().empty());
    EXPECT_TRUE(empty->GetDxr().IsEmpty());
    EXPECT_TRUE(empty->GetDxrLongTerm().IsEmpty());
    EXPECT_FALSE(empty->GetOwner().IsSet());
    EXPECT_EQ(empty->GetId(), 0U);
    for (const auto feature : {compatible, longTerm}) {
        EXPECT_EQ(Text(*empty, feature),
                  "<Checkpoint FormatVersion=\"2\" Id=\"0\">\n"
                  "    <Dxr />\n"
                  "</Checkpoint>\n");
    }
}

TEST(CloudCheckpoint, FindsAStorage) {
    const CCloudCheckpoint checkpoint = FullCheckpoint();
    EXPECT_EQ(checkpoint.GetStorageById(firstId).GetFileName(), "one.3");
    EXPECT_EQ(checkpoint.GetStorageById(secondId).GetFileName(), "two.5");
    CCloudStorageDescriptor found;
    EXPECT_TRUE(checkpoint.FindStorageById(firstId, found));
    EXPECT_EQ(found.GetFileName(), "one.3");
    EXPECT_EQ(found.GetMetaVersion(), 3U);
    EXPECT_EQ(found.GetMetaSize(), 100U);
    EXPECT_EQ(found.GetBlockStoreSchema(), CloudStorageBlockStoreSchema::legacy);
    EXPECT_EQ(found.GetCloudMetadataPartDescriptionsMap(), LegacyStorage().GetCloudMetadataPartDescriptionsMap());
}

TEST(CloudCheckpoint, OfTwoStoragesWithOneIdFindsTheFirst) {
    const CCloudStorageDescriptor other(firstId, "other", 9, 9, CloudStorageBlockStoreSchema::legacy, {});
    const CCloudCheckpoint checkpoint({BlobsStorage(), LegacyStorage(), other}, {}, {}, {}, 1, 2);
    EXPECT_EQ(&checkpoint.GetStorageById(firstId), &checkpoint.GetStorages()[1]);
    CCloudStorageDescriptor found;
    EXPECT_TRUE(checkpoint.FindStorageById(firstId, found));
    EXPECT_EQ(found.GetFileName(), "one.3");
}

TEST(CloudCheckpoint, TellsOfAStorageThatItDoesNotHave) {
    const CCloudCheckpoint checkpoint({BlobsStorage()}, {}, {}, {}, 1, 2);
    EXPECT_EQ(test::FailureOf([&](const std::string&) { static_cast<void>(checkpoint.GetStorageById(firstId)); }, ""),
              "Storage with id '0000000b-0000-0000-0000-000000000001' not found");
    CCloudStorageDescriptor untouched = LegacyStorage();
    EXPECT_FALSE(checkpoint.FindStorageById(firstId, untouched));
    EXPECT_EQ(untouched.GetFileName(), "one.3");
}

TEST(CloudCheckpoint, HidesNewerStoragesInTheCompatibleFlavour) {
    EXPECT_EQ(Text(FullCheckpoint(), compatible), fullCompatible);
}

TEST(CloudCheckpoint, NamesAllStoragesAlikeInTheLongTermFlavour) {
    EXPECT_EQ(Text(FullCheckpoint(), longTerm), fullLongTerm);
}

TEST(CloudCheckpoint, HidesAStorageOfAnUnknownSchemaToo) {
    const CCloudStorageDescriptor strange(firstId, "f", 1, 1, static_cast<CloudStorageBlockStoreSchema>(7), {});
    const std::string text = Text(CCloudCheckpoint({strange}, {}, {}, {}, 1, 2), compatible);
    EXPECT_NE(text.find("<StgLongTerm FileName=\"f\" MetaVersion=\"1\" MetaFileSize=\"1\" "
                        "StorageId=\"0000000b-0000-0000-0000-000000000001\" />"),
              std::string::npos);
}

TEST(CloudCheckpoint, HasNoFlagsWithoutLongTermContent) {
    const CCloudCheckpoint checkpoint({}, CCloudDxrDescriptor("Dxr"), {}, {}, 3, 1);
    const std::string expected =
        "<Checkpoint FormatVersion=\"1\" Id=\"3\">\n"
        "    <Dxr InlineContent=\"eNpzqSgCAAIxAS8=\" />\n"
        "</Checkpoint>\n";
    EXPECT_EQ(Text(checkpoint, compatible), expected);
    EXPECT_EQ(Text(checkpoint, longTerm), expected);
    EXPECT_EQ(CheckpointFailure(expected, longTerm), "Cannot find required node: DxrLongTerm");
    EXPECT_EQ(CheckpointFailure(expected, compatible), "");
}

TEST(CloudCheckpoint, DoesNotWriteAnOwnerWithoutId) {
    const CCloudCheckpoint checkpoint({}, {}, {}, COwnerDescriptor({}, "type", "description"), 3, 2);
    const std::string text = Text(checkpoint, compatible);
    EXPECT_EQ(text.find("Owner"), std::string::npos);
    EXPECT_FALSE(Read(text, compatible)->GetOwner().IsSet());
}

TEST(CloudCheckpoint, IsReadBackInEitherFlavour) {
    for (const std::string& text : {fullCompatible, fullLongTerm}) {
        for (const auto feature : {compatible, longTerm}) {
            const auto checkpoint = Read(text, feature);
            EXPECT_EQ(Text(*checkpoint, compatible), fullCompatible);
            EXPECT_EQ(Text(*checkpoint, longTerm), fullLongTerm);
            EXPECT_EQ(checkpoint->GetStorages()[0].GetStorageId(), secondId);
        }
    }
}

TEST(CloudCheckpoint, DoesNotConsultItsFlags) {
    for (const char* flag : {"", " HasLongTerm=\"0\"", " IsLongTerm=\"x\"", " HasLongTerm=\"1\" IsLongTerm=\"1\""}) {
        const std::string text = Replace(fullCompatible, " HasLongTerm=\"1\"", flag);
        EXPECT_EQ(Text(*Read(text, compatible), compatible), fullCompatible) << flag;
        EXPECT_EQ(Text(*Read(text, longTerm), longTerm), fullLongTerm) << flag;
    }
}

TEST(CloudCheckpoint, AcceptsItsFormatVersions) {
    const auto withVersion = [](const std::string& version) {
        return Replace(fullCompatible, "FormatVersion=\"2\"", "FormatVersion=\"" + version + "\"");
    };
    EXPECT_EQ(Read(withVersion("1"), compatible)->GetFormatVersion(), 1);
    EXPECT_EQ(Read(withVersion("2"), compatible)->GetFormatVersion(), 2);
    EXPECT_EQ(Read(withVersion("-1"), compatible)->GetFormatVersion(), -1);
    EXPECT_EQ(Read(withVersion("-2147483648"), compatible)->GetFormatVersion(), -2147483647 - 1);
    EXPECT_EQ(CheckpointFailure(withVersion("3"), compatible), "Unsupported cloud backup version: [3]");
    EXPECT_EQ(CheckpointFailure(withVersion("2147483647"), longTerm), "Unsupported cloud backup version: [2147483647]");
    EXPECT_EQ(CheckpointFailure(withVersion("0"), compatible), "Unsupported cloud backup version: [0]");
    EXPECT_EQ(CheckpointFailure(withVersion("-0"), compatible), "Unsupported cloud backup version: [0]");
}

TEST(CloudCheckpoint, CountsAMissingFormatVersionAsZero) {
    EXPECT_EQ(CheckpointFailure(Replace(fullCompatible, " FormatVersion=\"2\"", ""), compatible),
              "Unsupported cloud backup version: [0]");
}

TEST(CloudCheckpoint, LooksAtTheFormatVersionFirst) {
    EXPECT_EQ(CheckpointFailure("<Checkpoint/>", compatible), "Unsupported cloud backup version: [0]");
    EXPECT_EQ(CheckpointFailure("<Checkpoint FormatVersion=\"2\"/>", compatible),
              "Cannot find required attribute 'Id' of node 'Checkpoint'");
    EXPECT_EQ(CheckpointFailure("<Checkpoint FormatVersion=\"2\" Id=\"1\"><Owner/></Checkpoint>", longTerm),
              "Cannot find required attribute 'Id' of node 'Owner'");
    EXPECT_EQ(CheckpointFailure("<Checkpoint FormatVersion=\"2\" Id=\"1\"/>", longTerm),
              "Cannot find required node: Dxr");
    EXPECT_EQ(CheckpointFailure("<Checkpoint FormatVersion=\"2\" Id=\"1\"><Dxr/><Stg/></Checkpoint>", longTerm),
              "Cannot find required node: DxrLongTerm");
    EXPECT_EQ(CheckpointFailure("<Checkpoint FormatVersion=\"2\" Id=\"1\"><Dxr/><Stg/></Checkpoint>", compatible),
              "Cannot find required attribute 'StorageId' of node 'Stg'");
}

TEST(CloudCheckpoint, ReadsLongTermContentInTheCompatibleFlavourToo) {
    EXPECT_EQ(Read(fullCompatible, compatible)->GetDxrLongTerm().GetContent(), "long-term");
}

TEST(CloudCheckpoint, MayHaveAnEmptyLongTermNode) {
    const std::string text = "<Checkpoint FormatVersion=\"2\" Id=\"1\"><DxrLongTerm/><Dxr/></Checkpoint>";
    EXPECT_TRUE(Read(text, longTerm)->GetDxrLongTerm().IsEmpty());
    EXPECT_TRUE(Read(text, compatible)->GetDxrLongTerm().IsEmpty());
}

TEST(CloudCheckpoint, SkipsChildrenOfOtherNames) {
    const std::string text =
        Replace(fullCompatible, "</Checkpoint>", "<stg/><StgX/>text<StgLongTermX/><!-- <Stg/> --></Checkpoint>");
    EXPECT_EQ(Text(*Read(text, compatible), compatible), fullCompatible);
}

TEST(CloudCheckpoint, OfSeveralNodesOfOneNameTheFirstCounts) {
    const std::string text = Replace(fullCompatible, "</Checkpoint>",
                                     "<Owner Id=\"no id\"/><Dxr/><DxrLongTerm InlineContent=\"later\"/></Checkpoint>");
    for (const auto feature : {compatible, longTerm}) {
        EXPECT_EQ(Text(*Read(text, feature), compatible), fullCompatible);
    }
}

TEST(CloudCheckpoint, KeepsItsStoragesInTheDocumentsOrder) {
    const auto node = [](const char* name, const char* file) {
        return std::string("<") + name + " FileName=\"" + file +
               "\" MetaVersion=\"1\" MetaFileSize=\"1\" StorageId=\"0000000b-0000-0000-0000-000000000001\"/>";
    };
    const std::string text = "<Checkpoint FormatVersion=\"2\" Id=\"1\">" + node("Stg", "z") + node("StgLongTerm", "a") +
                             "<DxrLongTerm/>" + node("Stg", "m") + "<Dxr/>" + node("StgLongTerm", "b") +
                             "</Checkpoint>";
    for (const auto feature : {compatible, longTerm}) {
        std::string order;
        const auto checkpoint = Read(text, feature);
        for (const auto& storage : checkpoint->GetStorages()) {
            order += storage.GetFileName();
        }
        EXPECT_EQ(order, "zamb");
    }
}

// The name of the node says nothing of the schema when a document is read.
TEST(CloudCheckpoint, TakesTheSchemaFromTheAttributeAlone) {
    const std::string text = Replace(fullCompatible, " BlockStoreSchema=\"blobs\"", "");
    EXPECT_EQ(Read(text, compatible)->GetStorages()[0].GetBlockStoreSchema(), CloudStorageBlockStoreSchema::legacy);
    EXPECT_EQ(Read(fullLongTerm, longTerm)->GetStorages()[0].GetBlockStoreSchema(),
              CloudStorageBlockStoreSchema::blobs);
}

TEST(CloudCheckpoint, WritesNoPartsInSingleFileMode) {
    const test::SingleFileOption singleFile(true);
    for (const auto feature : {compatible, longTerm}) {
        const std::string text = Text(FullCheckpoint(), feature);
        EXPECT_EQ(text.find("MetaPart"), std::string::npos);
        EXPECT_NE(text.find("FormatVersion=\"2\""), std::string::npos) << "the version is the checkpoint's own";
    }
}

TEST(CloudCheckpoint, MayBeNamedOtherwise) {
    const auto document = xml::TiXmlParseExc("<Any FormatVersion=\"1\" Id=\"4\"><Dxr/></Any>");
    EXPECT_EQ(CCloudCheckpoint::Deserialize(xml::TiXmlGetChildExc(document, "Any"), compatible)->GetId(), 4U);
}

}  // namespace
}  // namespace cloudbackuplib::backup::checkpoint
