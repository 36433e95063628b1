// Checkpoints of random content; a failing case prints its seed.

#include <gtest/gtest.h>

#include <rapidcheck/gtest.h>

#include "cloudbackuplib/checkpoint/CheckpointTexts.h"
#include "common/util.h"

namespace cloudbackuplib::backup::checkpoint {
namespace {

using test_texts::Read;
using test_texts::Text;

guid::guid_t ArbitraryGuid() { return guid::guid_t(*rc::gen::arbitrary<std::array<std::uint8_t, 16>>()); }

/// Text that a document can carry: any characters of Unicode but NUL, control characters, quotes and brackets included.
std::string ArbitraryText() {
    const auto character = rc::gen::map(
        rc::gen::oneOf(rc::gen::inRange<std::uint32_t>(1, 0x80), rc::gen::inRange<std::uint32_t>(0x80, 0xD800),
                       rc::gen::inRange<std::uint32_t>(0xE000, 0x110000)),
        [](std::uint32_t code) { return static_cast<wchar_t>(code); });
    const auto wide = *rc::gen::container<std::vector<wchar_t>>(character);
    return util::WideToUtf8(std::wstring(wide.begin(), wide.end()));
}

std::string ArbitraryBytes() {
    const auto bytes = *rc::gen::arbitrary<std::vector<char>>();
    return {bytes.begin(), bytes.end()};
}

unsigned long ArbitraryNumber() {
    const auto number = *rc::gen::arbitrary<unsigned long>();
    return *rc::gen::element(0UL, ~0UL, number, number % 1000);
}

CCloudStorageDescriptor ArbitraryStorage() {
    cloud_parts_map_t parts;
    for (auto left = *rc::gen::inRange(0, 5); left != 0; --left) {
        const unsigned long offset = ArbitraryNumber();
        parts[offset] = {ArbitraryText(), offset, ArbitraryNumber()};
    }
    const auto schema = *rc::gen::element(CloudStorageBlockStoreSchema::legacy, CloudStorageBlockStoreSchema::blobs);
    return {ArbitraryGuid(), ArbitraryText(), ArbitraryNumber(), ArbitraryNumber(), schema, parts};
}

CCloudCheckpoint ArbitraryCheckpoint(const std::string& dxrLongTerm) {
    std::vector<CCloudStorageDescriptor> storages;
    for (auto left = *rc::gen::inRange(0, 5); left != 0; --left) {
        storages.push_back(ArbitraryStorage());
    }
    const COwnerDescriptor owner = *rc::gen::arbitrary<bool>()
                                       ? COwnerDescriptor(ArbitraryGuid(), ArbitraryText(), ArbitraryText())
                                       : COwnerDescriptor();
    return {storages,
            CCloudDxrDescriptor(ArbitraryBytes()),
            CCloudDxrDescriptor(dxrLongTerm),
            owner,
            ArbitraryNumber(),
            *rc::gen::element(-3, 1, 2)};
}

void AssertSame(const CCloudStorageDescriptor& a, const CCloudStorageDescriptor& b) {
    RC_ASSERT(a.GetStorageId() == b.GetStorageId());
    RC_ASSERT(a.GetFileName() == b.GetFileName());
    RC_ASSERT(a.GetMetaVersion() == b.GetMetaVersion());
    RC_ASSERT(a.GetMetaSize() == b.GetMetaSize());
    RC_ASSERT(a.GetBlockStoreSchema() == b.GetBlockStoreSchema());
    RC_ASSERT(a.GetCloudMetadataPartDescriptionsMap() == b.GetCloudMetadataPartDescriptionsMap());
}

void AssertSame(const CCloudCheckpoint& a, const CCloudCheckpoint& b) {
    RC_ASSERT(a.GetId() == b.GetId());
    RC_ASSERT(a.GetFormatVersion() == b.GetFormatVersion());
    RC_ASSERT(a.GetDxr().GetContent() == b.GetDxr().GetContent());
    RC_ASSERT(a.GetDxrLongTerm().GetContent() == b.GetDxrLongTerm().GetContent());
    RC_ASSERT(a.GetOwner().IsSet() == b.GetOwner().IsSet());
    if (a.GetOwner().IsSet()) {
        RC_ASSERT(a.GetOwner().GetId() == b.GetOwner().GetId());
        RC_ASSERT(a.GetOwner().GetType() == b.GetOwner().GetType());
        RC_ASSERT(a.GetOwner().GetDescription() == b.GetOwner().GetDescription());
    }
    RC_ASSERT(a.GetStorages().size() == b.GetStorages().size());
    for (std::size_t i = 0; i < a.GetStorages().size(); ++i) {
        AssertSame(a.GetStorages()[i], b.GetStorages()[i]);
    }
}

RC_GTEST_PROP(CheckpointProperties, AnyCheckpointIsReadBack, ()) {
    const CCloudCheckpoint checkpoint = ArbitraryCheckpoint(ArbitraryBytes());
    const std::string text = Text(checkpoint, DxrContentFeature::compatible);
    const auto read = Read(text, DxrContentFeature::compatible);
    AssertSame(checkpoint, *read);
    RC_ASSERT(Text(*read, DxrContentFeature::compatible) == text);
}

RC_GTEST_PROP(CheckpointProperties, AnyLongTermCheckpointIsReadBack, ()) {
    const CCloudCheckpoint checkpoint = ArbitraryCheckpoint("long-term" + ArbitraryBytes());
    const std::string text = Text(checkpoint, DxrContentFeature::longTerm);
    const auto read = Read(text, DxrContentFeature::longTerm);
    AssertSame(checkpoint, *read);
    RC_ASSERT(Text(*read, DxrContentFeature::longTerm) == text);
}

}  // namespace
}  // namespace cloudbackuplib::backup::checkpoint
