#pragma once

#include <string>

#include "agent/keys/KeyRing.h"

namespace agent {

/// The keys of one client, for a file that its owner keeps in a safe place: who has it reads all that the client has
/// stored so far, without password and without the repository's key records.
struct SRecoveryKeys {
    guid::guid_t repositoryId;
    guid::guid_t clientId;
    CKeyRing keys;

    /// JSON text; secret.
    [[nodiscard]] crypto::sec_bytes_t ToText() const;
    /// Throws exc::CRuntimeExc for a text that is no such file; the message tells nothing of what it holds.
    [[nodiscard]] static SRecoveryKeys FromText(std::span<const char> text);
};

/// Throws exc::CRuntimeExc that names the file.
[[nodiscard]] SRecoveryKeys ReadRecoveryFile(const std::string& path);
/// Makes the file, for the user alone; one that exists is an error. It is on the device when this returns; when it
/// throws there is none.
void WriteRecoveryFile(const std::string& path, const SRecoveryKeys& keys);

}  // namespace agent
