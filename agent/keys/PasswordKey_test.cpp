#include "agent/keys/PasswordKey.h"

#include <gtest/gtest.h>

#include "common/exc.h"
#include "tests/support/RecordingSink.h"
#include "tests/support/Thrown.h"

namespace agent {

namespace {

constexpr SPasswordCost cheap{64, 1};

crypto::sec_bytes_t Password(std::string_view text) { return {text.begin(), text.end()}; }

/// Computed with the reference program (`printf password | argon2 somesaltsomesalt -id -t 2 -m 16 -p 1 -l 32 -r`).
TEST(PasswordKey, GivesTheReferencesKey) {
    SPasswordSalt salt;
    salt.cost = {65536, 2};
    std::ranges::copy(std::string_view("somesaltsomesalt"), salt.bytes.begin());
    const auto key = KeyOfPassword(Password("password"), salt);
    digest::sha256_digest_t bytes;
    std::ranges::copy(key->GetMaterial(), bytes.bytes.begin());
    EXPECT_EQ(bytes.ToAStr(), "fc33b78139231d34b71626bd6245c1d72efa190ad605c3d8166a72adcedfa2c2");
}

TEST(PasswordKey, DependsOnPasswordSaltAndCost) {
    const SPasswordSalt salt = SPasswordSalt::CreateNew(cheap);
    const auto id = KeyOfPassword(Password("one"), salt)->GetId();
    EXPECT_EQ(KeyOfPassword(Password("one"), salt)->GetId(), id);
    EXPECT_NE(KeyOfPassword(Password("two"), salt)->GetId(), id);
    EXPECT_NE(KeyOfPassword(Password("one"), SPasswordSalt::CreateNew(cheap))->GetId(), id);
    SPasswordSalt dearer = salt;
    dearer.cost.passes = 2;
    EXPECT_NE(KeyOfPassword(Password("one"), dearer)->GetId(), id);
}

TEST(PasswordSalt, ComesBackFromItsBytes) {
    const SPasswordSalt salt = SPasswordSalt::CreateNew({1234, 5});
    const auto bytes = salt.ToBytes();
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 9), std::string("\x01\xd2\x04\x00\x00\x05\x00\x00\x00", 9));
    EXPECT_EQ(SPasswordSalt::FromBytes(bytes), salt);
}

TEST(PasswordSalt, RefusesOtherBytes) {
    auto bytes = SPasswordSalt::CreateNew(cheap).ToBytes();
    EXPECT_EQ(test::ThrownBy([&] { static_cast<void>(SPasswordSalt::FromBytes(std::span(bytes).first(24))); }),
              "The key record's salt is none of this program's");
    bytes[0] = 2;
    EXPECT_EQ(test::ThrownBy([&] { static_cast<void>(SPasswordSalt::FromBytes(bytes)); }),
              "The key record's salt is none of this program's");
}

TEST(PasswordSalt, WarnsOfCostsThatNobodyHasByChance) {
    const auto warningsOf = [](const SPasswordCost& cost) {
        SPasswordSalt salt;
        salt.cost = cost;
        const test::RecordingSink sink;
        static_cast<void>(SPasswordSalt::FromBytes(salt.ToBytes()));
        return sink.GetTexts(logging::level_t::warn);
    };
    const std::vector<std::string> none;
    EXPECT_EQ(warningsOf({64U << 10U, 3}), none);
    EXPECT_EQ(warningsOf({1U << 20U, 16}), none);
    EXPECT_EQ(warningsOf({(1U << 20U) + 1, 1}).size(), 1U);
    EXPECT_EQ(warningsOf({1U << 20U, 17}).size(), 1U);
    EXPECT_EQ(warningsOf({4U << 20U, 100}),
              std::vector<std::string>{
                  "The key record asks for 4096 MiB of memory and 100 passes at each use of the password. If you have "
                  "not chosen that (--key-memory, --key-passes), somebody else has written the record"});
}

TEST(PasswordSalt, RefusesCostsThatARecordMustNotAsk) {
    for (const SPasswordCost cost :
         {SPasswordCost{7, 1}, SPasswordCost{(4U << 20U) + 1, 1}, SPasswordCost{64, 0}, SPasswordCost{64, 101}}) {
        SPasswordSalt salt;
        salt.cost = cost;
        const std::string expected = exc::Format(
            "A password cannot cost %1 KiB of memory and %2 passes: 8 to 4194304 KiB and 1 to 100 passes are possible",
            cost.memoryKib, cost.passes);
        EXPECT_EQ(test::ThrownBy([&] { static_cast<void>(SPasswordSalt::FromBytes(salt.ToBytes())); }), expected);
        EXPECT_EQ(test::ThrownBy([&] { static_cast<void>(SPasswordSalt::CreateNew(cost)); }), expected);
        EXPECT_EQ(test::ThrownBy([&] { static_cast<void>(KeyOfPassword(Password("x"), salt)); }), expected);
    }
}

}  // namespace
}  // namespace agent
