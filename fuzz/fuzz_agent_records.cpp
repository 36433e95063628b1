#include <cstdint>
#include <span>
#include <string>

#include "agent/keys/PasswordKey.h"
#include "agent/keys/RecoveryFile.h"
#include "agent/run/SetDocument.h"
#include "fuzz/Readers.h"

// What the agent reads from a store before any key says that it is authentic, and from a recovery file: refused, or
// read such that it is written and read again as the same.

using fuzz::Require;
using fuzz::Try;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const char> bytes(reinterpret_cast<const char*>(data), size);
    Try([&] {
        const auto document = agent::SSetDocument::FromText({bytes.data(), bytes.size()});
        Require(agent::SSetDocument::FromText(document.ToText()) == document);
    });
    Try([&] {
        const auto salt = agent::SPasswordSalt::FromBytes(bytes);
        Require(agent::SPasswordSalt::FromBytes(salt.ToBytes()) == salt);
    });
    Try([&] {
        const auto keys = agent::SRecoveryKeys::FromText(bytes);
        const auto text = keys.ToText();
        Require(agent::SRecoveryKeys::FromText(text).ToText() == text);
    });
    return 0;
}
