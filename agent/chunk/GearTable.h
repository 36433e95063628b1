#pragma once

#include <array>
#include <cstdint>

namespace agent::gear {

/// SplitMix64 (Steele, Lea, Flood, "Fast splittable pseudorandom number generators", 2014): the next number, `state`
/// being moved on.
constexpr std::uint64_t NextSplitMix64(std::uint64_t& state) {
    state += 0x9E3779B97F4A7C15ULL;
    std::uint64_t z = state;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31U);
}

/// One number for each byte value: the first 256 that SplitMix64 gives from the state 0. Part of the stored format in
/// so far as another table would cut the same content elsewhere, and find none of the chunks stored before.
constexpr std::array<std::uint64_t, 256> MakeTable() {
    std::array<std::uint64_t, 256> numbers{};
    std::uint64_t state = 0;
    for (auto& number : numbers) {
        number = NextSplitMix64(state);
    }
    return numbers;
}

inline constexpr std::array<std::uint64_t, 256> table = MakeTable();

/// The hash remembers so many bytes: each one is shifted out by the 64 behind it.
inline constexpr std::uint32_t window = 64;

}  // namespace agent::gear
