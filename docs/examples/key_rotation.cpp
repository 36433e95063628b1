// A client changes its encryption key and still reads what the old one encrypted.
#include <iostream>

#include "clients/memory/MemoryClient.h"
#include "cloudbackuplib/CloudExternalRepository.h"
#include "common/crypto/key_set.h"

namespace backup = cloudbackuplib::backup;

namespace {

crypto::sec_bytes_t Bytes(const std::string& text) { return {text.begin(), text.end()}; }

/// How the host wraps one key under another is its own business (the agent uses AES-256-GCM). This is no encryption.
crypto::sec_bytes_t WrapUnder(const crypto::CKeySet& master, crypto::sec_bytes_t key) {
    for (std::size_t i = 0; i != key.size(); ++i) {
        key[i] = static_cast<char>(key[i] ^ master.GetKeys()[i % master.GetKeys().size()]);
    }
    return key;
}

/// The old key as the history keeps it: no material of its own, but a repair record, so that who has the new key gets
/// the old one back.
std::shared_ptr<crypto::CKeySet> Retired(const crypto::CKeySet& old, const crypto::CKeySet& successor) {
    const crypto::CRestoreKeyRepairRec record{successor.GetId().GetRaw(), WrapUnder(successor, old.GetKeys())};
    return std::make_shared<crypto::CKeySet>(old.GetId(), old.GetHint(), crypto::sec_bytes_t(), std::vector{record});
}

}  // namespace

int main() {
    const auto client = std::make_shared<clients::CMemoryClient>();
    const backup::SCloudRepositoryInfo info = {
        "example", backup::SCloudRepositoryClientInfo{guid::guid_t::CreateNew(), "example", "this machine"}};
    const auto repository = backup::CCloudExternalRepository::CreateNew(client, info);
    const auto salt = std::make_shared<crypto::sec_bytes_t>(Bytes("salt of the password"));

    const auto first = std::make_shared<crypto::CKeySet>(crypto::CKeySetId::CreateNew(), L"spring", Bytes("old key"),
                                                         std::vector<crypto::CRestoreKeyRepairRec>());
    repository->SetEncryptionKey({}, first, salt);

    // Rotation: retire the old key before the new one counts, so that no moment leaves blocks without their key.
    const auto second = std::make_shared<crypto::CKeySet>(crypto::CKeySetId::CreateNew(), L"autumn", Bytes("new key"),
                                                          std::vector<crypto::CRestoreKeyRepairRec>());
    repository->AddHistoricalKey({}, Retired(*first, *second));
    repository->SetEncryptionKey({}, second, salt);

    const auto current = repository->GetEncryptionKeyInfo({}).Get();
    std::cout << "the new key is current: " << (current.keySetId->GetRaw() == second->GetId().GetRaw() ? "yes" : "no")
              << "\n";
    const auto retired = repository->EnumHistoricalKeys({}).front();
    const auto restored = WrapUnder(*second, retired->GetRepairRecords().front().wrappedKey);
    std::cout << "the old key came back: " << (restored == first->GetKeys() ? "yes" : "no") << "\n";
    return 0;
}
