#include "agent/run/ClientKeys.h"

#include "cloudbackuplib/CloudExternalRepository.h"
#include "tests/faults/FaultSweep.h"
#include "tests/support/TempDir.h"

namespace agent {

namespace {

namespace backup = cloudbackuplib::backup;

const guid::guid_t client = guid::guid_t::FromStr("01234567-89ab-cdef-0123-456789abcdef");
const backup::SCloudRepositoryInfo info{"repository", backup::SCloudRepositoryClientInfo{client, "test", "host"}};

SKeyOptions Options(std::string password, std::string next = "next") {
    SKeyOptions options;
    options.cost = {8, 1};
    options.password = [password = std::move(password), next = std::move(next)](EPasswordUse use) {
        const std::string& text = use == EPasswordUse::next ? next : password;
        return crypto::sec_bytes_t(text.begin(), text.end());
    };
    return options;
}

/// A place without memory: every use is a first one.
CKeyRing With(const std::shared_ptr<cloudclientlib::ICloudClient>& store, const SKeyOptions& options,
              const std::function<CKeyRing(const CClientKeys&)>& use) {
    const auto repository = backup::CCloudExternalRepository::OpenExisting(store, info);
    const std::string memory = testing::TempDir() + "key-memory-" + guid::guid_t::CreateNew().ToAStr();
    const CClientKeys keys(*repository, client, options, memory);
    const auto result = use(keys);
    std::remove(memory.c_str());
    std::remove((memory + ".lock").c_str());
    return result;
}

CKeyRing Load(const test::store_ptr& store, const SKeyOptions& options) {
    return With(store, options, [](const CClientKeys& keys) { return keys.Load(); });
}

CKeyRing Replace(const std::shared_ptr<cloudclientlib::ICloudClient>& store, const SKeyOptions& options) {
    return With(store, options, [](const CClientKeys& keys) { return keys.Replace(EPasswordUse::next, L"hint"); });
}

test::store_ptr NewStore() {
    auto store = std::make_shared<clients::CMemoryClient>();
    static_cast<void>(backup::CCloudExternalRepository::CreateNew(store, info));
    static_cast<void>(With(store, Options("first"), [](const CClientKeys& keys) { return keys.LoadOrMake(); }));
    return store;
}

bool Opens(const test::store_ptr& store, const std::string& password, const crypto::SRawKeySetId& id) {
    try {
        const CKeyRing keys = Load(store, Options(password));
        EXPECT_TRUE(keys.GetLost().empty());
        return keys.FindExc(id) != nullptr;
    } catch (const CWrongPasswordExc&) {
        return false;
    }
}

TEST(ClientKeys, AreMadeOnce) {
    const auto store = NewStore();
    const auto id = Load(store, Options("first")).GetCurrent()->GetId();
    const CKeyRing again = With(store, Options("first"), [](const CClientKeys& keys) { return keys.LoadOrMake(); });
    EXPECT_EQ(again.GetCurrent()->GetId(), id);
}

TEST(ClientKeys, WantTheRightPassword) { EXPECT_THROW(Load(NewStore(), Options("other")), CWrongPasswordExc); }

TEST(ClientKeys, AChangeOfKeysSurvivesAnyFailure) {
    const auto base = NewStore();
    static_cast<void>(Replace(base, Options("first", "second")));
    const auto current = Load(base, Options("second")).GetCurrent()->GetId();
    test::SSweep sweep;
    sweep.prepare = [](const test::faults_ptr& faults) {
        return [faults] { static_cast<void>(Replace(faults, Options("second", "third"))); };
    };
    // Whatever happened, one of the two passwords opens everything there is.
    sweep.check = [&](const test::store_ptr& store) {
        EXPECT_TRUE(Opens(store, "second", current) || Opens(store, "third", current));
    };
    sweep.retry = [&](const test::store_ptr& store) {
        if (Opens(store, "second", current)) {
            static_cast<void>(Replace(store, Options("second", "third")));
        }
    };
    sweep.checkDone = [&](const test::store_ptr& store) {
        EXPECT_TRUE(Opens(store, "third", current));
        EXPECT_EQ(Load(store, Options("third")).GetKeys().size(), 3U);
        EXPECT_FALSE(Opens(store, "second", current));
    };
    sweep.step = test::longSweepStep;  // an Argon2id at every step
    const auto result = test::RunSweep(base, sweep);
    EXPECT_GT(result.calls, 2U);
    EXPECT_GT(result.reported, 2U);
}

/// What another command does while this one waits for a new password.
SKeyOptions OptionsWith(const std::string& password, EPasswordUse use, const std::function<void()>& meanwhile) {
    SKeyOptions options = Options(password);
    options.password = [inner = options.password, use, meanwhile](EPasswordUse asked) {
        if (asked == use) {
            meanwhile();
        }
        return inner(asked);
    };
    return options;
}

TEST(ClientKeys, AKeyThatCameWhileThePasswordWasAskedForIsNotLost) {
    const auto store = NewStore();
    const auto first = Load(store, Options("first")).GetCurrent()->GetId();
    const auto meanwhile = [&] { static_cast<void>(Replace(store, Options("first", "other"))); };
    try {
        static_cast<void>(Replace(store, OptionsWith("first", EPasswordUse::next, meanwhile)));
        FAIL() << "no exception";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_EQ(failure.GetMessage(), "Client " + client.ToAStr() +
                                            " has been given another key meanwhile: nothing was changed here. Do it "
                                            "again if you still want to, with the password that counts now");
    }
    EXPECT_TRUE(Opens(store, "other", first));
    EXPECT_EQ(Load(store, Options("other")).GetKeys().size(), 2U);
}

TEST(ClientKeys, AFirstKeyThatCameWhileThePasswordWasAskedForIsNotLost) {
    const auto store = std::make_shared<clients::CMemoryClient>();
    static_cast<void>(backup::CCloudExternalRepository::CreateNew(store, info));
    const auto make = [](const CClientKeys& keys) { return keys.LoadOrMake(); };
    const auto meanwhile = [&] { static_cast<void>(With(store, Options("other"), make)); };
    EXPECT_THROW(static_cast<void>(With(store, OptionsWith("first", EPasswordUse::first, meanwhile), make)),
                 exc::CRuntimeExc);
    EXPECT_NO_THROW(static_cast<void>(Load(store, Options("other"))));
}

TEST(ClientKeys, TwoCommandsOfOneMachineDoNotChangeThemAtOnce) {
    const auto store = NewStore();
    const test::TempDir dir;
    const auto replace = [&](const SKeyOptions& options) {
        const auto repository = backup::CCloudExternalRepository::OpenExisting(store, info);
        return CClientKeys(*repository, client, options, dir / "memory").Replace(EPasswordUse::next, L"hint");
    };
    std::string told;
    static_cast<void>(replace(OptionsWith("first", EPasswordUse::next, [&] {
        try {
            static_cast<void>(replace(Options("first", "other")));
        } catch (const exc::CRuntimeExc& failure) {
            told = failure.GetMessage();
        }
    })));
    EXPECT_EQ(told, "Another command on this machine is giving client " + client.ToAStr() + " a key");
    EXPECT_NO_THROW(static_cast<void>(Load(store, Options("next"))));
}

TEST(ClientKeys, TheRecoveredFirstKeyOfALongChain) {
    const auto store = NewStore();
    const auto first = Load(store, Options("first")).GetCurrent()->GetId();
    std::string password = "first";
    for (int i = 0; i < 10; ++i) {
        const std::string next = "password " + std::to_string(i);
        static_cast<void>(Replace(store, Options(password, next)));
        password = next;
    }
    EXPECT_TRUE(Opens(store, password, first));
    EXPECT_EQ(Load(store, Options(password)).GetKeys().size(), 11U);
}

}  // namespace
}  // namespace agent
