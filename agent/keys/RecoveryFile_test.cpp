#include "agent/keys/RecoveryFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "common/posix.h"
#include "tests/support/TempDir.h"
#include "tests/support/Thrown.h"

namespace agent {

namespace {

SRecoveryKeys SomeKeys() {
    return {guid::guid_t::CreateNew(), guid::guid_t::CreateNew(),
            CKeyRing({CDataKey::CreateNew(), CDataKey::CreateNew()})};
}

class RecoveryFile : public testing::Test {
protected:
    const test::TempDir dir;
    const std::string folder = dir.GetPath();
};

TEST_F(RecoveryFile, GivesBackWhatWasWritten) {
    const SRecoveryKeys keys = SomeKeys();
    WriteRecoveryFile(folder + "/keys", keys);
    const SRecoveryKeys back = ReadRecoveryFile(folder + "/keys");
    EXPECT_EQ(back.repositoryId, keys.repositoryId);
    EXPECT_EQ(back.clientId, keys.clientId);
    EXPECT_EQ(back.keys.GetCurrent()->GetMaterial(), keys.keys.GetCurrent()->GetMaterial());
    EXPECT_EQ(back.keys.GetKeys().size(), 2U);
}

TEST_F(RecoveryFile, IsForTheUserAlone) {
    WriteRecoveryFile(folder + "/keys", SomeKeys());
    struct stat info {};
    ASSERT_EQ(::stat((folder + "/keys").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0600U);
}

TEST_F(RecoveryFile, ReplacesNoFile) {
    WriteRecoveryFile(folder + "/keys", SomeKeys());
    EXPECT_THROW(WriteRecoveryFile(folder + "/keys", SomeKeys()), posix::CPosixExc);
}

TEST_F(RecoveryFile, TellsNothingOfAFileThatIsNone) {
    const auto failureOf = [](std::string_view text) {
        return test::ThrownBy([&] { static_cast<void>(SRecoveryKeys::FromText(text)); });
    };
    const char* const none = "It is no file of recovery keys";
    EXPECT_EQ(failureOf("my secret diary"), none);
    EXPECT_EQ(failureOf("{}"), none);
    EXPECT_EQ(failureOf(""), none);
    EXPECT_EQ(failureOf(R"({"what": "cloudbackup recovery keys", "version": 2})"), "it is of another kind or version");
}

TEST_F(RecoveryFile, NoticesAChangedKey) {
    const SRecoveryKeys keys = SomeKeys();
    auto text = keys.ToText();
    const std::string id = keys.keys.GetCurrent()->GetId().ToAStr();
    const auto at = std::search(text.begin(), text.end(), id.begin(), id.end());
    ASSERT_NE(at, text.end());
    *at = *at == '0' ? '1' : '0';
    EXPECT_EQ(test::ThrownBy([&] { static_cast<void>(SRecoveryKeys::FromText(text)); }),
              "a key does not have the id that stands beside it");
}

}  // namespace
}  // namespace agent
