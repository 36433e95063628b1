#pragma once

#include <functional>
#include <optional>
#include <string>

#include "agent/keys/KeyRing.h"
#include "agent/keys/PasswordKey.h"
#include "cloudbackuplib/ICloudRepository.h"
#include "common/posix.h"

namespace agent {

enum class EPasswordUse {
    existing,  ///< to open what is there
    first,     ///< to begin with; better asked for twice
    next,      ///< to replace the one there is
};

/// Gives a password; may ask for it. Throws when there is none.
using password_source_t = std::function<crypto::sec_bytes_t(EPasswordUse use)>;

/// How a client's keys are had.
struct SKeyOptions {
    password_source_t password;
    /// A file of recovery keys instead of password and key records, to read with; empty for none.
    std::string recoveryFile;
    /// To begin with: keep everything as it is, for everyone who can read the store.
    bool noEncryption = false;
    /// Of new keys.
    SPasswordCost cost;
};

/// Throws exc::CRuntimeExc when there is no source.
[[nodiscard]] crypto::sec_bytes_t AskPassword(const SKeyOptions& options, EPasswordUse use);

/// The password gives another key than the one that the client's key record names.
class CWrongPasswordExc : public exc::CRuntimeExc {
public:
    using CRuntimeExc::CRuntimeExc;
};

/// The keys of one client of a repository, from its key records. For one thread.
///
/// The record names the current key by its id, which is made of the key: so a wrong password is told at once. A record
/// with the id of no key says that the client does without encryption, and that somebody wanted it so; without a record
/// nobody has said anything yet. What this machine has seen of a client once, it remembers (`memoryFile`): a store
/// that takes the record away makes no one write without encryption, and one that shows an old record makes no one go
/// back to a key that was replaced. That a client does without encryption it writes by only where somebody has said so
/// on this machine. Failures are exceptions.
class CClientKeys {
public:
    CClientKeys(cloudbackuplib::backup::ICloudRepository& repository, const guid::guid_t& clientId,
                const SKeyOptions& options, std::string memoryFile);

    /// To read with. Without a record: no keys.
    [[nodiscard]] CKeyRing Load() const;
    /// Whether anybody has said how the client stores, with a key or without.
    [[nodiscard]] bool HasRecord() const;
    /// Why there are no keys, as the rest of a sentence on the client: "does not encrypt what it stores" or the like.
    [[nodiscard]] std::string DescribeNoKey() const;
    /// To write with: without a record one is made first, as the options have it.
    [[nodiscard]] CKeyRing LoadOrMake() const;
    /// Puts a new key, of the password given, in place of the current one, which goes into the history: everything
    /// stays readable, and nothing is encrypted anew. The former password opens nothing any more, but for who kept a
    /// copy of the records from before. Returns the keys; may be repeated after any failure. Throws, with nothing
    /// changed, when the key has been replaced while the password was asked for: what that one encrypts is not lost.
    CKeyRing Replace(EPasswordUse password, const std::wstring& hint) const;

private:
    using key_info_t = cloudbackuplib::backup::SCloudRepoEncryptionKeyInfo;

    [[nodiscard]] CKeyRing Open(const key_info_t& info) const;
    [[nodiscard]] CKeyRing OpenWithRecoveryFile() const;
    void MakeFirst() const;
    [[nodiscard]] posix::posix_file_t Lock() const;
    void CheckIsStill(const std::optional<key_info_t>& before) const;
    void CheckMemory(const std::string& found) const;
    void CheckIsWanted() const;
    void CheckIsNotOlder(const CKeyRing& keys) const;
    void Remember(const std::string& found) const;

    cloudbackuplib::backup::ICloudRepository& repository_;
    const guid::guid_t clientId_;
    const SKeyOptions& options_;
    const std::string memoryFile_;
};

}  // namespace agent
