#include "agent/meta/MetaFile.h"

#include "agent/meta/MetaLimits.h"
#include "agent/meta/MetaTestKit.h"
#include "tests/support/TempDir.h"

namespace agent {

namespace {

using namespace test_kit;

data_key_ptr KeyOf(char byte) { return std::make_shared<const CDataKey>(crypto::sec_bytes_t(32, byte)); }

class MetaSealing : public testing::Test {
protected:
    std::string Path(int version) const { return folder + "/" + std::to_string(version); }

    SMetaLayout Write(int version, SMetaChanges changes, const data_key_ptr& key) {
        SMetaTarget target{std::nullopt, Path(version), storageId, static_cast<std::uint64_t>(version), key};
        if (version > 1) {
            target.oldPath = Path(version - 1);
        }
        return WriteMeta(target, state, std::move(changes));
    }

    const test::TempDir dir;
    const std::string folder = dir.GetPath();
    CMetaState state;
};

SMetaChanges OneMore(const std::string& name) {
    SMetaChanges changes;
    changes.Put(name, MakeLink(EEntryType::symlink, "somewhere"));
    return changes;
}

TEST_F(MetaSealing, ComesBackWithItsKey) {
    Write(1, SmallChanges(), KeyOf(1));
    const SMeta meta = ReadMeta(Path(1), CKeyRing({KeyOf(1)}));
    EXPECT_EQ(meta.state, state);
    EXPECT_EQ(meta.header.keySetId, KeyOf(1)->GetId());
    EXPECT_TRUE(IsIntact(Path(1), 1));  // for that no key is needed
}

TEST_F(MetaSealing, TellsNothingWithoutTheKey) {
    Write(1, SmallChanges(), KeyOf(1));
    const std::string bytes = ReadFileBytes(Path(1));
    for (const char* const name : {"docs", "link", "file"}) {
        EXPECT_EQ(bytes.find(name), std::string::npos) << name;
    }
    EXPECT_EQ(FailureOf([&] { static_cast<void>(ReadMeta(Path(1))); }),
              "Cannot read metadata file '" + Path(1) + "': it is encrypted with key " + KeyOf(1)->GetId().ToAStr() +
                  ", which is not among the keys of this client");
}

TEST_F(MetaSealing, AppendsUnderTheSameKey) {
    Write(1, SmallChanges(), KeyOf(1));
    const SMetaLayout layout = Write(2, OneMore("new"), KeyOf(1));
    EXPECT_FALSE(layout.isRewritten);
    ASSERT_EQ(layout.banks.size(), 2U);
    EXPECT_FALSE(layout.banks[0].isNew);
    EXPECT_EQ(ReadMeta(Path(2), CKeyRing({KeyOf(1)})).state, state);
}

TEST_F(MetaSealing, IsWrittenAnewUnderAnotherKey) {
    Write(1, SmallChanges(), KeyOf(1));
    EXPECT_TRUE(Write(2, OneMore("new"), KeyOf(2)).isRewritten);
    EXPECT_EQ(ReadMeta(Path(2), CKeyRing({KeyOf(2)})).state, state);
    EXPECT_EQ(ReadMeta(Path(2), CKeyRing({KeyOf(2)})).header.previousVersion, 1U);
    EXPECT_TRUE(Write(3, OneMore("newer"), nullptr).isRewritten);
    EXPECT_EQ(ReadMeta(Path(3)).state, state);
}

/// Moves the digest in the table and the header's own along, as one could who has no key.
void Forge(std::string& bytes) {
    SMetaHeader header = meta::ParseHeader(bytes.substr(0, meta::headerSize));
    for (auto& bank : header.banks) {
        bank.sha256 = digest::Sha256(std::string_view(bytes).substr(bank.offset, bank.storedSize));
    }
    bytes.replace(0, meta::headerSize, meta::SerializeHeader(header));
}

TEST_F(MetaSealing, NoticesBanksOfOthers) {
    Write(1, SmallChanges(), KeyOf(1));
    std::string bytes = ReadFileBytes(Path(1));
    bytes[meta::headerSize + 20] = static_cast<char>(bytes[meta::headerSize + 20] ^ 1);
    Forge(bytes);
    WriteFileBytes(Path(1), bytes);
    EXPECT_EQ(FailureOf([&] { static_cast<void>(ReadMeta(Path(1), CKeyRing({KeyOf(1)}))); }),
              "Cannot read metadata file '" + Path(1) + "': bank 0: it is not what was sealed with this key");
}

TEST_F(MetaSealing, NoticesBanksThatChangedPlaces) {
    Write(1, OneMore(""), KeyOf(1));  // the root, as a link
    state = {};
    SMetaChanges twin;
    twin.Put("", MakeFolder());
    Write(1, std::move(twin), KeyOf(1));
    Write(2, OneMore("aaaaaaaa"), KeyOf(1));
    Write(3, OneMore("bbbbbbbb"), KeyOf(1));
    std::string bytes = ReadFileBytes(Path(3));
    const auto banks = meta::ParseHeader(bytes.substr(0, meta::headerSize)).banks;
    ASSERT_EQ(banks.size(), 3U);
    ASSERT_EQ(banks[1].storedSize, banks[2].storedSize);
    const std::string one = bytes.substr(banks[1].offset, banks[1].storedSize);
    bytes.replace(banks[1].offset, one.size(), bytes.substr(banks[2].offset, one.size()));
    bytes.replace(banks[2].offset, one.size(), one);
    Forge(bytes);
    WriteFileBytes(Path(3), bytes);
    EXPECT_EQ(FailureOf([&] { static_cast<void>(ReadMeta(Path(3), CKeyRing({KeyOf(1)}))); }),
              "Cannot read metadata file '" + Path(3) + "': bank 1: it is not what was sealed with this key");
}

TEST_F(MetaSealing, NoticesBanksOfAnotherStorage) {
    Write(1, SmallChanges(), KeyOf(1));
    std::string bytes = ReadFileBytes(Path(1));
    SMetaHeader header = meta::ParseHeader(bytes.substr(0, meta::headerSize));
    header.storageId = guid::guid_t::CreateNew();
    bytes.replace(0, meta::headerSize, meta::SerializeHeader(header));
    WriteFileBytes(Path(1), bytes);
    EXPECT_EQ(FailureOf([&] { static_cast<void>(ReadMeta(Path(1), CKeyRing({KeyOf(1)}))); }),
              "Cannot read metadata file '" + Path(1) + "': bank 0: it is not what was sealed with this key");
}

TEST_F(MetaSealing, RefusesAKindThatDoesNotFitItsKey) {
    Write(1, SmallChanges(), KeyOf(1));
    std::string bytes = ReadFileBytes(Path(1));
    const auto failureWith = [&](char kind) {
        std::string changed = bytes;
        changed[20] = kind;
        const auto sha = digest::Sha256(std::string_view(changed).substr(0, meta::headerSize - 32)).bytes;
        std::copy(sha.begin(), sha.end(), changed.begin() + meta::headerSize - 32);
        return FailureOf([&] { static_cast<void>(meta::ParseHeader(changed.substr(0, meta::headerSize))); });
    };
    EXPECT_EQ(failureWith(0), "encryption kind 0 and key '" + KeyOf(1)->GetId().ToAStr() + "' do not go together");
    EXPECT_EQ(failureWith(2), "encryption kind 2 is not supported");
}

}  // namespace
}  // namespace agent
