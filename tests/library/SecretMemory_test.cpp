// What key operations leave in memory that was given back.

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <string_view>

#include "clients/memory/MemoryClient.h"
#include "cloudbackuplib/CloudExternalRepository.h"

#include <gtest/gtest.h>

namespace {

/// Sixteen bytes of the secret that is looked for, and nothing else in the program has.
constexpr std::string_view secret =
    "\xC7\x1B\xE2\x94\x07\xFA\x33\x8D\x5E\xA1\x66\xD0\x2F\x99\xB4\x48"
    "and some more bytes, so that it has memory of its own";
constexpr std::string_view mark = secret.substr(0, 16);

bool g_watching = false;
unsigned g_found = 0;

void Look(void* memory) {
    if (g_watching && memory != nullptr) {
        const std::string_view bytes(static_cast<const char*>(memory), ::malloc_usable_size(memory));
        g_found += bytes.find(mark) != std::string_view::npos ? 1U : 0U;
    }
}

/// Looks at all memory that is freed while it lives.
class CWatch {
public:
    CWatch() {
        g_found = 0;
        g_watching = true;
    }
    CWatch(const CWatch&) = delete;
    CWatch& operator=(const CWatch&) = delete;
    ~CWatch() { g_watching = false; }

    [[nodiscard]] static unsigned GetFound() { return g_found; }
};

}  // namespace

// NOLINTBEGIN: a replacement of the global functions is made of malloc and free
void* operator new(std::size_t size) {
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    Look(memory);
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    Look(memory);
    std::free(memory);
}
// NOLINTEND

namespace {

using namespace cloudbackuplib::backup;  // NOLINT: the namespace under test

using bytes_ptr = std::shared_ptr<crypto::sec_bytes_t>;

bytes_ptr Secret() { return std::make_shared<crypto::sec_bytes_t>(secret.begin(), secret.end()); }

std::shared_ptr<crypto::CKeySet> Key(bool hasMaterial) {
    std::vector<crypto::CRestoreKeyRepairRec> records;
    records.push_back({crypto::CKeySetId::CreateNew().GetRaw(), *Secret()});
    return std::make_shared<crypto::CKeySet>(crypto::CKeySetId::CreateNew(), L"hint",
                                             hasMaterial ? *Secret() : crypto::sec_bytes_t(), records);
}

const SCloudRepositoryInfo info{"Team", SCloudRepositoryClientInfo{guid::guid_t::CreateNew(), "host", "Anna"}};

TEST(SecretMemory, TheWatchSeesWhatOrdinaryMemoryLeavesBehind) {
    const CWatch watch;
    auto plain = std::make_unique<cnt::array_t<char>>(secret.begin(), secret.end());
    asm volatile("" : : "r"(plain->data()) : "memory");
    plain.reset();
    EXPECT_EQ(CWatch::GetFound(), 1U);
}

TEST(SecretMemory, SettingAndReadingAKeyLeavesNothing) {
    const auto repository = CCloudExternalRepository::CreateNew(std::make_shared<clients::CMemoryClient>(), info);
    const CWatch watch;
    repository->SetEncryptionKey({}, Key(true), Secret());
    {
        const auto key = repository->GetEncryptionKeyInfo({}).Get();
        EXPECT_EQ(std::string_view(key.salt->data(), key.salt->size()), secret);
    }
    EXPECT_EQ(CWatch::GetFound(), 0U);
}

TEST(SecretMemory, TheKeyHistoryLeavesNothing) {
    const auto repository = CCloudExternalRepository::CreateNew(std::make_shared<clients::CMemoryClient>(), info);
    const CWatch watch;
    for (int i = 0; i < 10; ++i) {
        repository->AddHistoricalKey({}, Key(true));
    }
    repository->AddHistoricalKey({}, Key(false));
    EXPECT_THROW(repository->AddHistoricalKey({}, Key(true)), exc::CRuntimeExc) << "breaks the chain";
    {
        const auto keys = repository->EnumHistoricalKeys({});
        ASSERT_EQ(keys.size(), 11U);
        const auto& material = keys.back()->GetKeys();
        EXPECT_EQ(std::string_view(material.data(), material.size()), secret);
    }
    EXPECT_EQ(CWatch::GetFound(), 0U);
}

TEST(SecretMemory, DamagedDocumentsLeaveNothing) {
    const auto client = std::make_shared<clients::CMemoryClient>();
    const auto repository = CCloudExternalRepository::CreateNew(client, info);
    repository->AddHistoricalKey({}, Key(true));
    const std::string path =
        "/Draxo/Backup/Team/Clients/" + info.client.Get().clientId.ToAStr() + "/Config/ClientKeyHistory.xml";
    const auto whole = std::make_shared<cnt::array_t<char>>();
    client->DownloadFileAsync(path, whole)->Wait();
    const CWatch watch;
    unsigned refused = 0;
    for (std::size_t at = 0; at < whole->size(); ++at) {
        auto damaged = std::make_shared<cnt::array_t<char>>(*whole);
        (*damaged)[at] = 'A';
        client->UploadFileAsync(path, damaged)->Wait();
        try {
            (void)repository->EnumHistoricalKeys({});
        } catch (const exc::CRuntimeExc&) {
            ++refused;
        }
    }
    EXPECT_GT(refused, 20U);
    EXPECT_EQ(CWatch::GetFound(), 0U);
}

}  // namespace
