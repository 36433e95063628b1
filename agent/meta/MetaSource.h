#pragma once

#include <functional>
#include <span>

#include "agent/meta/MetaHeader.h"
#include "common/stg_extent.h"

/// Reading the pieces of a metadata file.
namespace agent::meta {

/// Fills `bytes` or throws exc::CRuntimeExc.
void ReadExactly(io::stg::IStgExtent& extent, std::uint64_t offset, std::span<char> bytes);
[[nodiscard]] SMetaHeader ReadHeader(io::stg::IStgExtent& extent);
/// The header, once the extent's size is what the header says.
[[nodiscard]] SMetaHeader ReadWholeHeader(io::stg::IStgExtent& extent);
/// Hands out a bank's stored bytes piece by piece; throws exc::CRuntimeExc at the end when their digest is another.
void ReadBankBytes(io::stg::IStgExtent& extent, const SMetaBank& bank,
                   const std::function<void(std::span<const char>)>& sink);

}  // namespace agent::meta
