#include "tests/compatibility/GoldenFixture.h"

/// Keys as they were stored once: every byte of them comes back.
namespace test {
namespace {

using crypto::sec_bytes_t;

sec_bytes_t Bytes(std::string_view text) { return {text.begin(), text.end()}; }

using GoldenKeys = GoldenTest;

TEST_F(GoldenKeys, TheCurrentKeyIsRead) {
    Copy("keys");
    const auto info = Open()->GetEncryptionKeyInfo({});
    ASSERT_TRUE(info.IsSet());
    ASSERT_NE(info.Get().keySetId, nullptr);
    EXPECT_EQ(info.Get().keySetId->GetRaw().ToAStr(), "ce000000000000000000000000000004");
    EXPECT_EQ(info.Get().hint, L"name of the dog \U0001F415");
    EXPECT_EQ(*info.Get().salt, Bytes(std::string_view("\x00salt of the password\xFF", 22)));
}

TEST_F(GoldenKeys, TheHistoryIsReadNewestFirst) {
    Copy("keys");
    const auto keys = Open()->EnumHistoricalKeys({});
    ASSERT_EQ(keys.size(), 3U);
    EXPECT_EQ(keys[0]->ToLogStr(), "id: ce000000000000000000000000000003, hint: , keys: present, repair records: 0");
    EXPECT_EQ(keys[0]->GetKeys(), Bytes(std::string_view("\x00\x01 material of 3 \xFF", 18)));
    EXPECT_EQ(keys[1]->ToLogStr(),
              "id: ce000000000000000000000000000002, hint: der zweite Schlüssel, keys: absent, repair records: 2");
    EXPECT_EQ(keys[2]->ToLogStr(),
              "id: ce000000000000000000000000000001, hint: the first, keys: absent, repair records: 1");
}

TEST_F(GoldenKeys, RepairRecordsAreRead) {
    Copy("keys");
    const auto keys = Open()->EnumHistoricalKeys({});
    ASSERT_EQ(keys.size(), 3U);
    const auto& records = keys[1]->GetRepairRecords();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].masterKeyId.ToAStr(), "ce000000000000000000000000000009");
    EXPECT_EQ(records[0].wrappedKey, Bytes("by another"));
    EXPECT_EQ(records[1].masterKeyId, keys[0]->GetId().GetRaw());
    EXPECT_EQ(records[1].wrappedKey, Bytes("second, wrapped"));
    ASSERT_EQ(keys[2]->GetRepairRecords().size(), 1U);
    EXPECT_EQ(keys[2]->GetRepairRecords()[0].masterKeyId, keys[1]->GetId().GetRaw());
    EXPECT_EQ(keys[2]->GetRepairRecords()[0].wrappedKey, Bytes("first, wrapped"));
}

TEST_F(GoldenKeys, AKeyWithoutIdIsRead) {
    Copy("two_clients");
    const auto info = Open()->GetEncryptionKeyInfo(benId);
    ASSERT_TRUE(info.IsSet());
    EXPECT_EQ(info.Get().keySetId, nullptr);
    EXPECT_EQ(info.Get().hint, L"a hint");
    EXPECT_TRUE(info.Get().salt->empty());
    EXPECT_FALSE(Open()->GetEncryptionKeyInfo(annaId).IsSet());
    EXPECT_TRUE(Open()->EnumHistoricalKeys(annaId).empty());
}

TEST_F(GoldenKeys, TheChainGoesOn) {
    Copy("keys");
    const auto next = std::make_shared<crypto::CKeySet>(crypto::CKeySetId::CreateNew(), L"next", sec_bytes_t(),
                                                        std::vector<crypto::CRestoreKeyRepairRec>());
    Open()->AddHistoricalKey({}, next);
    const auto keys = Open()->EnumHistoricalKeys({});
    ASSERT_EQ(keys.size(), 4U);
    EXPECT_EQ(keys[0]->GetId(), next->GetId());
    EXPECT_EQ(keys[3]->GetRepairRecords()[0].wrappedKey, Bytes("first, wrapped"));
    const std::string failure = FailureOf([&] { Open()->AddHistoricalKey({}, keys[3]); });
    EXPECT_EQ(failure, "Invalid historical key chain (new key: " + keys[3]->ToLogStr() +
                           ", previous key: " + next->ToLogStr() + ")");
    Open()->SetEncryptionKey({}, keys[1], std::make_shared<sec_bytes_t>(Bytes("new salt")));
    EXPECT_EQ(*Open()->GetEncryptionKeyInfo({}).Get().salt, Bytes("new salt"));
}

}  // namespace
}  // namespace test
