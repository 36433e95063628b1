#include "agent/run/ClientKeys.h"

#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "agent/keys/RecoveryFile.h"
#include "agent/run/LocalState.h"
#include "cloudbackuplib/CloudExternalRepository.h"
#include "common/posix.h"
#include "common/util.h"

namespace agent {

namespace {

constexpr const char* withoutKey = "none";

crypto::SRawKeySetId IdOf(const cloudbackuplib::backup::SCloudRepoEncryptionKeyInfo& info) {
    return info.keySetId ? info.keySetId->GetRaw() : crypto::SRawKeySetId();
}

bool SaysNoEncryption(const cloudbackuplib::backup::SCloudRepoEncryptionKeyInfo& info) {
    return IdOf(info) == crypto::SRawKeySetId();
}

/// What the key record names the key by: nothing that is secret.
std::shared_ptr<crypto::CKeySet> RecordOf(const crypto::SRawKeySetId& id, const std::wstring& hint) {
    return std::make_shared<crypto::CKeySet>(crypto::CKeySetId(id), hint, crypto::sec_bytes_t(),
                                             std::vector<crypto::CRestoreKeyRepairRec>());
}

/// Puts a key in the history in place of the newest one.
void ReplaceNewest(cloudbackuplib::backup::ICloudRepository& repository, const guid::guid_t& clientId,
                   const key_set_ptr& keySet) {
    const auto keys = repository.EnumHistoricalKeys(clientId);
    const auto history = cloudbackuplib::backup::CCloudClientKeyHistory::CreateEmpty();
    std::for_each(keys.rbegin(), keys.rend() - 1, [&](const auto& key) { history->PushKey(key); });
    history->PushKey(keySet);
    // Only the external kind of repository has histories to replace, and there is no other.
    dynamic_cast<cloudbackuplib::backup::CCloudExternalRepository&>(repository)
        .UpdateClientKeyHistory(clientId, *history);
}

}  // namespace

crypto::sec_bytes_t AskPassword(const SKeyOptions& options, EPasswordUse use) {
    if (!options.password) {
        throw exc::CRuntimeExc("There is no password");
    }
    return options.password(use);
}

CClientKeys::CClientKeys(cloudbackuplib::backup::ICloudRepository& repository, const guid::guid_t& clientId,
                         const SKeyOptions& options, std::string memoryFile)
    : repository_(repository), clientId_(clientId), options_(options), memoryFile_(std::move(memoryFile)) {}

CKeyRing CClientKeys::Load() const {
    if (!options_.recoveryFile.empty()) {
        return OpenWithRecoveryFile();
    }
    const auto info = repository_.GetEncryptionKeyInfo(clientId_);
    if (!info.IsSet() || SaysNoEncryption(info.Get())) {
        CheckMemory(withoutKey);
        return {};
    }
    CKeyRing keys = Open(info.Get());
    CheckIsNotOlder(keys);
    Remember(keys.GetCurrent()->GetId().ToAStr());
    return keys;
}

bool CClientKeys::HasRecord() const { return repository_.GetEncryptionKeyInfo(clientId_).IsSet(); }

std::string CClientKeys::DescribeNoKey() const {
    if (HasRecord()) {
        return "does not encrypt what it stores";
    }
    return repository_.EnumBackups(clientId_).empty()
               ? "has no key yet: the first backup makes one"
               : "has backups, but no key record: either it never encrypted, or the record is lost";
}

CKeyRing CClientKeys::LoadOrMake() const {
    if (!options_.recoveryFile.empty()) {
        throw exc::CRuntimeExc("Recovery keys are for reading: to write, the password is needed");
    }
    const auto info = repository_.GetEncryptionKeyInfo(clientId_);
    if (!info.IsSet()) {
        CheckMemory(withoutKey);
        MakeFirst();
    } else if (options_.noEncryption) {
        if (!Load().IsEmpty()) {
            throw exc::CRuntimeExc("Client %1 encrypts what it stores, and cannot begin without any more", clientId_);
        }
        Remember(withoutKey);
    } else if (SaysNoEncryption(info.Get())) {
        CheckMemory(withoutKey);
        CheckIsWanted();
    }
    return Load();
}

void CClientKeys::MakeFirst() const {
    if (!options_.noEncryption && !repository_.EnumBackups(clientId_).empty()) {
        throw exc::CRuntimeExc(
            "Client %1 has backups, but no key record: either it never encrypted, then say --no-encryption to go on "
            "so, or "
            "the record is lost",
            clientId_);
    }
    const auto lock = Lock();
    if (options_.noEncryption) {
        CheckIsStill(std::nullopt);
        repository_.SetEncryptionKey(clientId_, RecordOf({}, L"not encrypted"),
                                     std::make_shared<crypto::sec_bytes_t>());
        Remember(withoutKey);
        return;
    }
    const auto salt = SPasswordSalt::CreateNew(options_.cost);
    const auto key = KeyOfPassword(AskPassword(options_, EPasswordUse::first), salt);
    CheckIsStill(std::nullopt);
    repository_.SetEncryptionKey(clientId_, RecordOf(key->GetId(), {}),
                                 std::make_shared<crypto::sec_bytes_t>(salt.ToBytes()));
    Remember(key->GetId().ToAStr());
}

CKeyRing CClientKeys::Open(const key_info_t& info) const {
    const auto salt = SPasswordSalt::FromBytes(*info.salt);
    auto key = KeyOfPassword(AskPassword(options_, EPasswordUse::existing), salt);
    if (key->GetId() != IdOf(info)) {
        throw CWrongPasswordExc("The password is wrong: it does not give key %1 of client %2", IdOf(info).ToAStr(),
                                clientId_);
    }
    return {std::move(key), repository_.EnumHistoricalKeys(clientId_)};
}

CKeyRing CClientKeys::OpenWithRecoveryFile() const {
    const SRecoveryKeys recovery = ReadRecoveryFile(options_.recoveryFile);
    if (recovery.repositoryId != repository_.GetId() || recovery.clientId != clientId_) {
        throw exc::CRuntimeExc(
            "The recovery keys in '%1' are those of client %2 in repository %3, not of client %4 in %5",
            options_.recoveryFile, recovery.clientId, recovery.repositoryId, clientId_, repository_.GetId());
    }
    return recovery.keys;
}

/// Held as long as the file is open: who asks for a password does not do so for two commands at once.
posix::posix_file_t CClientKeys::Lock() const {
    auto file = posix::posix_file_t::OpenOrCreate4Write(memoryFile_ + ".lock", false, 0);
    if (::flock(file.GetFd(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            throw exc::CRuntimeExc("Another command on this machine is giving client %1 a key", clientId_);
        }
        throw posix::CPosixExc("lock", file.GetPath(), errno);
    }
    return file;
}

/// A key record that came while a password was asked for is not written over: its key would be gone for ever, and with
/// it what others have encrypted by it. As late as possible before a record is written.
void CClientKeys::CheckIsStill(const std::optional<key_info_t>& before) const {
    const auto now = repository_.GetEncryptionKeyInfo(clientId_);
    const bool isSame = now.IsSet() == before.has_value() &&
                        (!before || (IdOf(now.Get()) == IdOf(*before) && *now.Get().salt == *before->salt));
    if (!isSame) {
        throw exc::CRuntimeExc(
            "Client %1 has been given another key meanwhile: nothing was changed here. Do it again if you still want "
            "to, with the password that counts now",
            clientId_);
    }
}

CKeyRing CClientKeys::Replace(EPasswordUse password, const std::wstring& hint) const {
    const auto lock = Lock();
    const auto info = repository_.GetEncryptionKeyInfo(clientId_);
    if (!info.IsSet() || SaysNoEncryption(info.Get())) {
        CheckMemory(withoutKey);
        throw exc::CRuntimeExc("There is no key to replace: client %1 %2", clientId_, DescribeNoKey());
    }
    const CKeyRing keys = Open(info.Get());
    CheckIsNotOlder(keys);
    const auto salt = SPasswordSalt::CreateNew(options_.cost);
    const auto next = KeyOfPassword(AskPassword(options_, password), salt);

    // The former key is in the history before the next one counts: at no moment is anything without its key. Where an
    // earlier try stopped between the two, the history has the current key already, wrapped under a key that never was.
    const auto former = RetireKey(*keys.GetCurrent(), info.Get().hint, *next);
    const auto history = repository_.EnumHistoricalKeys(clientId_);
    CheckIsStill(info.Get());
    const bool isRetried = !history.empty() && history.front()->GetId().GetRaw() == keys.GetCurrent()->GetId();
    if (isRetried) {
        ReplaceNewest(repository_, clientId_, former);
    } else {
        repository_.AddHistoricalKey(clientId_, former);
    }
    repository_.SetEncryptionKey(clientId_, RecordOf(next->GetId(), hint),
                                 std::make_shared<crypto::sec_bytes_t>(salt.ToBytes()));
    Remember(next->GetId().ToAStr());
    return {next, repository_.EnumHistoricalKeys(clientId_)};
}

void CClientKeys::CheckMemory(const std::string& found) const {
    if (::access(memoryFile_.c_str(), F_OK) != 0) {
        return;
    }
    const std::string known = ReadSmallFile(memoryFile_);
    if (known != withoutKey && found == withoutKey) {
        throw exc::CRuntimeExc(
            "Client %1 encrypts what it stores, with key %2 when this machine last saw it, but the repository has no "
            "key "
            "for it any more: its key record is lost, or somebody wants to see what you store. Nothing was written; "
            "recovery keys (--recovery-file) still read what is there",
            clientId_, known);
    }
}

/// The record alone is no reason to store what everyone can read: the store can write it.
void CClientKeys::CheckIsWanted() const {
    if (::access(memoryFile_.c_str(), F_OK) != 0 || ReadSmallFile(memoryFile_) != withoutKey) {
        throw exc::CRuntimeExc(
            "The repository says that client %1 does not encrypt what it stores, but nobody has said so on this "
            "machine: say --no-encryption if it is so; if not, somebody wants to see what you store. Nothing was "
            "written",
            clientId_);
    }
}

/// A key that follows the one this machine knows has it in its history, wrapped, which nobody else can make.
void CClientKeys::CheckIsNotOlder(const CKeyRing& keys) const {
    if (::access(memoryFile_.c_str(), F_OK) != 0) {
        return;
    }
    const std::string known = ReadSmallFile(memoryFile_);
    const bool follows = known == withoutKey || std::ranges::any_of(keys.GetKeys(), [&](const auto& k) {
                             return k->GetId().ToAStr() == known;
                         });
    if (!follows) {
        throw exc::CRuntimeExc(
            "Client %1 had key %2 when this machine last saw it, but the repository has key %3, which does not follow "
            "it: the repository shows an older state, or its key history is damaged. Nothing was written; when you "
            "know why, delete '%4'",
            clientId_, known, keys.GetCurrent()->GetId().ToAStr(), memoryFile_);
    }
}

void CClientKeys::Remember(const std::string& found) const {
    if (::access(memoryFile_.c_str(), F_OK) == 0 && ReadSmallFile(memoryFile_) == found) {
        return;
    }
    WriteSmallFile(memoryFile_, found);
}

}  // namespace agent
