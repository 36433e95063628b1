#include "agent/keys/DataKey.h"

#include <gtest/gtest.h>

namespace agent {

namespace {

CDataKey DataKeyOf(char byte) { return CDataKey(crypto::sec_bytes_t(32, byte)); }

std::string Hex(const SSealKey& key) {
    digest::sha256_digest_t bytes;
    std::copy(key.bytes.begin(), key.bytes.end(), bytes.bytes.begin());
    return bytes.ToAStr();
}

const guid::guid_t storage = guid::guid_t::FromStr("01234567-89ab-cdef-0123-456789abcdef");

/// Computed with Python's hmac and hashlib: a repository made once must be readable for ever.
TEST(DataKey, DerivesWhatItAlwaysDid) {
    const CDataKey key = DataKeyOf(7);
    EXPECT_EQ(key.GetId().ToAStr(), "d8926d9d8caa9fac52af3f5a63e7ace3");
    EXPECT_EQ(Hex(key.ChunkKey(digest::Sha256(std::string_view("chunk of text")))),
              "645b99bdc0a8e8d71d289d62770bb73f1c87cab73e1dbc901ae19f640bfd1d21");
    EXPECT_EQ(Hex(key.BankKey(storage)), "9b7134b4568c7abbe2574333f5af19e8ebcf59670c9e4e84bbb15f54567bb4c1");
    EXPECT_EQ(Hex(key.DocumentKey()), "aaf73f96300af1214c3bc65693d7763dd9e2666261133103de723fe8974cdbf1");
    EXPECT_EQ(Hex(key.WrapKey()), "ed735a7dcd1ec3b2cc34f3595f1f0812d39ed5d415cf25716099bf0310be0526");
    EXPECT_EQ(key.NameOf("a name").ToAStr(), "2df950ab35a9fe9895efc140db80e0ec82b659a48658926b2164f10ddc45f86a");
}

TEST(DataKey, DiffersInEverythingFromAnother) {
    const CDataKey one = DataKeyOf(1);
    const CDataKey other = DataKeyOf(2);
    EXPECT_NE(one.GetId(), other.GetId());
    EXPECT_FALSE(one.ChunkKey({}) == other.ChunkKey({}));
    EXPECT_FALSE(one.BankKey(storage) == other.BankKey(storage));
    EXPECT_FALSE(one.DocumentKey() == other.DocumentKey());
    EXPECT_FALSE(one.WrapKey() == other.WrapKey());
    EXPECT_NE(one.NameOf("a"), other.NameOf("a"));
}

TEST(DataKey, IsMadeOfRandomBytes) { EXPECT_NE(CDataKey::CreateNew()->GetId(), CDataKey::CreateNew()->GetId()); }

TEST(DataKey, RefusesMaterialOfAnotherSize) {
    try {
        CDataKey(crypto::sec_bytes_t(31, 'x'));
        FAIL();
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_STREQ(failure.what(), "A key of 31 bytes is none of this program's, which have 32");
    }
}

}  // namespace
}  // namespace agent
