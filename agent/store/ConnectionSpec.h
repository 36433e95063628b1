#pragma once

#include <string>
#include <variant>

#include "cloudbackuplib/AzureConnectionSpec.h"
#include "cloudbackuplib/S3ConnectionSpec.h"

namespace agent {

using s3_spec_t = cloudbackuplib::backup::platform::s3::SS3ConnSpec;
using azure_spec_t = cloudbackuplib::backup::platform::azure::SAzureConnectionSpec;
using connection_spec_t = std::variant<s3_spec_t, azure_spec_t>;

/// Reads the document of a connection specification, of the kind that its root element tells. Throws exc::CRuntimeExc
/// that names what is missing or malformed; no secret stands in it.
[[nodiscard]] connection_spec_t ReadConnectionSpec(const std::string& text);
[[nodiscard]] std::string WriteConnectionSpec(const connection_spec_t& spec);

/// The same from a file, and to one that must not be there yet, for its owner's eyes alone. Failures name the file;
/// when it cannot be written there is none.
[[nodiscard]] connection_spec_t ReadConnectionSpecFile(const std::string& path);
void WriteConnectionSpecFile(const std::string& path, const connection_spec_t& spec);

/// What it says, without the secrets, a line for each setting: "Bucket: backups".
[[nodiscard]] std::string Describe(const connection_spec_t& spec);

}  // namespace agent
