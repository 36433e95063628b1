#include "tests/data/GoldenRepositories.h"

#include "cloudbackuplib/CloudPaths.h"
#include "tests/data/GoldenHost.h"
#include "tests/support/SingleFileOption.h"

namespace golden {

namespace {

using cloudbackuplib::backup::CCloudClientKeyInfo;
using cloudbackuplib::backup::SCloudRepositoryClientInfo;
using crypto::sec_bytes_t;

const SCloudRepositoryClientInfo anna{clientA, "host", "Anna's machine"};
const SCloudRepositoryClientInfo ben{clientB, "server", "Ben & sons <Übersee>"};

/// Whole metadata files, format version 1: of the second storage one version, of the first two.
void MakeSingleFile(const std::string& folder) {
    const test::SingleFileOption option(true);
    GoldenHost host(folder, anna);
    const auto backup = host.CreateBackup("documents");
    StorageScript first = host.NewStorage("first", firstStorage);
    StorageScript second = host.NewStorage("second", secondStorage);
    first.Write(2, {1, 2});
    second.Write(0, {});
    GoldenHost::Commit(backup, {&first, &second}, "content of 1");
    first.Write(3, {2, 3});
    GoldenHost::Commit(backup, {&first}, "content of 2");
}

/// Metadata in parts, format version 2, in a repository with an owner. Of the first storage, checkpoint 1 has all, 2 a
/// bank written anew, 3 one more, and 4 fewer banks, all written anew; the second changes in 4 only.
void MakeParts(const std::string& folder) {
    GoldenHost host(folder, anna);
    host.GetRepository().SetOwner(
        {guid::guid_t::FromStr("0e000000-0000-4000-8000-000000000001"), "department", "Accounting & \"Co\""});
    const auto backup = host.CreateBackup("documents");
    StorageScript first = host.NewStorage("first", firstStorage);
    StorageScript second = host.NewStorage("second", secondStorage);
    GoldenHost::PutBlock(backup, firstStorage, "block 1 of first\n");
    GoldenHost::PutBlock(backup, firstStorage, "block 2 of first\n");
    GoldenHost::PutBlock(backup, secondStorage, "block 1 of second\n");
    first.Write(3, {1, 2, 3});
    second.Write(0, {});
    GoldenHost::Commit(backup, {&first, &second}, "content of 1");
    first.Write(3, {2});
    GoldenHost::Commit(backup, {&first}, "content of 2");
    first.Write(4, {4});
    GoldenHost::Commit(backup, {&first}, "content of 3");
    first.Write(2, {1, 2});
    second.Write(1, {1});
    GoldenHost::Commit(backup, {&first, &second}, "");
}

/// Long-term copies: checkpoint 1 has only that one left, 2 has none, 3 has both, and in it a storage whose blocks use
/// the schema "blobs".
void MakeLongTerm(const std::string& folder) {
    GoldenHost host(folder, anna);
    const auto backup = host.CreateBackup("archive");
    StorageScript first = host.NewStorage("first", firstStorage);
    StorageScript second = host.NewStorage("second", secondStorage);
    first.Write(1, {1});
    second.Write(1, {1});
    GoldenHost::Commit(backup, {&first, &second}, "content of 1", "long-term content of 1");
    first.Write(2, {2});
    GoldenHost::Commit(backup, {&first}, "content of 2");
    second.Write(2, {2});
    GoldenHost::Commit(backup, {&second}, "content of 3", "long-term content of 3", {secondStorage});
    backup->GetBackupClient()->DeleteFileAsync(cloudbackuplib::backup::paths::GetCheckpointPath("archive", 1))->Wait();
}

crypto::SRawKeySetId KeyId(std::uint8_t last) {
    crypto::SRawKeySetId id;
    id.bytes[0] = 0xCE;
    id.bytes[15] = last;
    return id;
}

std::shared_ptr<crypto::CKeySet> Key(std::uint8_t last, const std::wstring& hint, std::string_view keys,
                                     std::vector<crypto::CRestoreKeyRepairRec> records = {}) {
    return std::make_shared<crypto::CKeySet>(crypto::CKeySetId(KeyId(last)), hint,
                                             sec_bytes_t(keys.begin(), keys.end()), std::move(records));
}

/// A record that says: who has the key of that number gets this one back.
crypto::CRestoreKeyRepairRec WrappedUnder(std::uint8_t master, std::string_view wrapped) {
    return {KeyId(master), sec_bytes_t(wrapped.begin(), wrapped.end())};
}

std::shared_ptr<sec_bytes_t> Salt(std::string_view bytes) {
    return std::make_shared<sec_bytes_t>(bytes.begin(), bytes.end());
}

/// A current key and three that were used before; of the two oldest the material is wrapped under the next one.
void MakeKeys(const std::string& folder) {
    GoldenHost host(folder, anna);
    auto& repository = host.GetRepository();
    repository.AddHistoricalKey({}, Key(1, L"the first", "", {WrappedUnder(2, "first, wrapped")}));
    repository.AddHistoricalKey({}, Key(2, L"der zweite Schl\u00FCssel", "",
                                        {WrappedUnder(9, "by another"), WrappedUnder(3, "second, wrapped")}));
    repository.AddHistoricalKey({}, Key(3, L"", std::string_view("\x00\x01 material of 3 \xFF", 18)));
    repository.SetEncryptionKey({}, Key(4, L"name of the dog \U0001F415", "material of 4"),
                                Salt(std::string_view("\x00salt of the password\xFF", 22)));
    const auto backup = host.CreateBackup("documents");
    StorageScript first = host.NewStorage("first", firstStorage);
    first.Write(1, {1});
    GoldenHost::Commit(backup, {&first}, "content of 1");
}

/// Two clients, with sets of one name, and a storage id that both use; Ben's key has no id.
void MakeTwoClients(const std::string& folder) {
    GoldenHost hostA(folder, anna);
    for (const std::string name : {"documents", "pictures"}) {
        StorageScript first = hostA.NewStorage("first of Anna's " + name, firstStorage);
        first.Write(1, {1});
        GoldenHost::Commit(hostA.CreateBackup(name), {&first}, "Anna's " + name);
    }
    GoldenHost hostB(folder, ben);
    CCloudClientKeyInfo keyInfo;
    keyInfo.SetEncryptionKey({nullptr, L"a hint", Salt("")});
    hostB.GetRepository().UpdateClientKeyInfo(clientB, keyInfo);
    const auto backup = hostB.CreateBackup("documents");
    StorageScript first = hostB.NewStorage("first of Ben's documents", firstStorage);
    first.Write(1, {1});
    GoldenHost::Commit(backup, {&first}, "Ben's documents");
    first.Write(1, {});
    GoldenHost::Commit(backup, {&first}, "Ben's documents again");
}

}  // namespace

const std::vector<SRecipe>& Recipes() {
    static const std::vector<SRecipe> recipes{{"single_file", MakeSingleFile},
                                              {"parts", MakeParts},
                                              {"long_term", MakeLongTerm},
                                              {"keys", MakeKeys},
                                              {"two_clients", MakeTwoClients}};
    return recipes;
}

}  // namespace golden
