#include "agent/keys/KeyRing.h"

#include <gtest/gtest.h>

#include "common/exc.h"

namespace agent {

namespace {

data_key_ptr SharedKeyOf(char byte) { return std::make_shared<const CDataKey>(crypto::sec_bytes_t(32, byte)); }

const data_key_ptr first = SharedKeyOf(1);
const data_key_ptr second = SharedKeyOf(2);
const data_key_ptr third = SharedKeyOf(3);

TEST(KeyRing, WithoutKeysOpensWhatIsNotSealed) {
    const CKeyRing ring;
    EXPECT_TRUE(ring.IsEmpty());
    EXPECT_EQ(ring.FindExc({}), nullptr);
    try {
        static_cast<void>(ring.FindExc(first->GetId()));
        FAIL();
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_EQ(failure.what(), "it is encrypted with key " + first->GetId().ToAStr() +
                                      ", which is not among the keys of this client");
    }
}

TEST(KeyRing, OpensTheWholeHistoryFromTheLastKey) {
    const CKeyRing ring(third, {RetireKey(*second, L"", *third), RetireKey(*first, L"", *second)});
    EXPECT_EQ(ring.GetCurrent(), third);
    ASSERT_EQ(ring.GetKeys().size(), 3U);
    EXPECT_EQ(ring.FindExc(first->GetId())->GetMaterial(), first->GetMaterial());
    EXPECT_EQ(ring.FindExc(second->GetId())->GetMaterial(), second->GetMaterial());
    EXPECT_TRUE(ring.GetLost().empty());
}

TEST(KeyRing, NotesWhatItCannotOpen) {
    // The second key's record is missing: nothing leads from the third key to the first.
    const CKeyRing ring(third, {RetireKey(*first, L"spring", *second)});
    ASSERT_EQ(ring.GetLost().size(), 1U);
    EXPECT_EQ(ring.GetLost().front().id, first->GetId());
    EXPECT_EQ(ring.GetLost().front().hint, L"spring");
    EXPECT_EQ(ring.GetKeys().size(), 1U);
}

TEST(KeyRing, PassesOverTheCurrentKeyInTheHistory) {
    // A change of keys that stopped between its two steps: the current key is retired already.
    const CKeyRing ring(second, {RetireKey(*second, L"", *third), RetireKey(*first, L"", *second)});
    EXPECT_TRUE(ring.GetLost().empty());
    EXPECT_EQ(ring.GetKeys().size(), 2U);
}

TEST(KeyRing, TakesNoOtherKeyForAFormerOne) {
    // A record that was sealed rightly, but for a key of another id.
    const auto honest = RetireKey(*first, L"", *third);
    const auto forged = std::make_shared<crypto::CKeySet>(crypto::CKeySetId(second->GetId()), L"",
                                                          crypto::sec_bytes_t(), honest->GetRepairRecords());
    const CKeyRing ring(third, {forged});
    ASSERT_EQ(ring.GetLost().size(), 1U);
    EXPECT_EQ(ring.GetLost().front().id, second->GetId());
}

TEST(KeyRing, RetiredKeysHaveNoMaterialAndNameTheirSuccessor) {
    const auto retired = RetireKey(*first, L"spring", *second);
    EXPECT_FALSE(retired->HasKeys());
    EXPECT_EQ(retired->GetHint(), L"spring");
    ASSERT_EQ(retired->GetRepairRecords().size(), 1U);
    EXPECT_EQ(retired->GetRepairRecords().front().masterKeyId, second->GetId());
    const auto& wrapped = retired->GetRepairRecords().front().wrappedKey;
    EXPECT_EQ(wrapped.size(), 32 + sealOverhead);
    EXPECT_EQ(std::search(wrapped.begin(), wrapped.end(), first->GetMaterial().begin(), first->GetMaterial().end()),
              wrapped.end());
}

}  // namespace
}  // namespace agent
