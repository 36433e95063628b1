#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

/// The bounds of the metadata format, version 1. What is beyond them is neither written nor read.
namespace agent::meta {

constexpr std::uint64_t headerSize = 8192;
constexpr std::uint64_t maxBanks = 120;

/// The most plain bytes of one bank, and so of one record.
constexpr std::uint64_t maxBankPlainSize = std::uint64_t{1} << 30;
/// A bank unpacks to no more than this many times its stored size, plus the allowance: what a file can make its reader
/// allocate grows with the bytes that are really there.
constexpr std::uint64_t maxExpansion = 64;
constexpr std::uint64_t expansionAllowance = std::uint64_t{64} << 10;

constexpr std::uint64_t maxPathLength = 65535;
/// Of files and of the content stream; what an off_t holds.
constexpr std::uint64_t maxOffset = std::numeric_limits<std::int64_t>::max();

/// Where the writer closes a bank: 16 MiB of plain records, doubled with every 16 banks that are in the table, so that
/// huge trees fit a table of fixed size.
constexpr std::uint64_t BankLimit(std::uint64_t index) {
    constexpr std::uint64_t first = std::uint64_t{16} << 20;
    return std::min(first << std::min<std::uint64_t>(index / 16, 16), maxBankPlainSize);
}

/// Whether `size` bytes at `offset` lie within `end` bytes, without overflow.
constexpr bool IsWithin(std::uint64_t offset, std::uint64_t size, std::uint64_t end) {
    return size <= end && offset <= end - size;
}

}  // namespace agent::meta
