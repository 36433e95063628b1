#include "agent/run/ClientKeys.h"

#include "cloudbackuplib/CloudExternalRepository.h"
#include "tests/faults/FaultSweep.h"

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
    const auto result = test::RunSweep(base, sweep);
    EXPECT_GT(result.calls, 2U);
    EXPECT_GT(result.reported, 2U);
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
