#include "agent/chunk/Chunker.h"

#include <algorithm>
#include <bit>

#include "agent/chunk/GearTable.h"
#include "common/exc.h"

namespace agent {

namespace {

constexpr unsigned normalisation = 2;
constexpr std::uint32_t smallestAverage = 1024;

/// The highest bits: those that most bytes of the window have a part in.
constexpr std::uint64_t HighBits(unsigned count) { return ~std::uint64_t{0} << (64U - count); }

void CheckSizes(const SChunkSizes& sizes) {
    if (sizes.minimum < gear::window || sizes.average < smallestAverage || !std::has_single_bit(sizes.average) ||
        sizes.minimum > sizes.average || sizes.average > sizes.maximum) {
        throw exc::CRuntimeExc("Chunk sizes %1, %2, %3 cannot be used.", sizes.minimum, sizes.average, sizes.maximum);
    }
}

std::uint64_t Roll(std::uint64_t hash, char byte) {
    return (hash << 1U) + gear::table[static_cast<unsigned char>(byte)];
}

/// Behind the first byte at which the hash has none of the mask's bits; nullptr when there is none. Four bytes a turn,
/// written out: half as fast again as a loop over single ones.
const char* FindEnd(std::span<const char> data, std::uint64_t& hashInOut, std::uint64_t mask) {
    std::uint64_t hash = hashInOut;  // in a register
    const auto endsAt = [&hash, mask](const char* byte) {
        hash = Roll(hash, *byte);
        return (hash & mask) == 0;
    };
    const char* next = data.data();
    const char* const end = next + data.size();
    for (; end - next >= 4; next += 4) {
        if (endsAt(next)) {
            return next + 1;
        }
        if (endsAt(next + 1)) {
            return next + 2;
        }
        if (endsAt(next + 2)) {
            return next + 3;
        }
        if (endsAt(next + 3)) {
            return next + 4;
        }
    }
    for (; next != end; ++next) {
        if (endsAt(next)) {
            return next + 1;
        }
    }
    hashInOut = hash;
    return nullptr;
}

/// How many bytes may be taken until the chunk is `limit` long.
std::size_t Room(std::size_t available, std::uint32_t length, std::uint32_t limit) {
    return length < limit ? std::min<std::size_t>(available, limit - length) : 0;
}

}  // namespace

CChunker::CChunker(const SChunkSizes& sizes) : sizes_(sizes) {
    CheckSizes(sizes);
    const auto bits = static_cast<unsigned>(std::countr_zero(sizes.average));
    strictMask_ = HighBits(bits + normalisation);
    looseMask_ = HighBits(bits - normalisation);
}

CChunker::SCut CChunker::Next(std::span<const char> data) {
    std::size_t at = 0;
    Skip(data, at);
    Warm(data, at);
    const bool isEnd = Scan(data, at, sizes_.average, strictMask_) || Scan(data, at, sizes_.maximum, looseMask_) ||
                       length_ == sizes_.maximum;
    if (isEnd) {
        Restart();
    }
    return {at, isEnd};
}

void CChunker::Restart() {
    length_ = 0;
    hash_ = 0;
}

/// Bytes that neither may end a chunk nor are in the window when the first one may.
void CChunker::Skip(std::span<const char> data, std::size_t& at) {
    const std::size_t count = Room(data.size() - at, length_, sizes_.minimum - gear::window);
    at += count;
    length_ += static_cast<std::uint32_t>(count);
}

void CChunker::Warm(std::span<const char> data, std::size_t& at) {
    // The byte that reaches the minimum may be the last one: it is left to Scan.
    for (std::size_t left = Room(data.size() - at, length_, sizes_.minimum - 1); left > 0; --left) {
        hash_ = Roll(hash_, data[at++]);
        ++length_;
    }
}

bool CChunker::Scan(std::span<const char> data, std::size_t& at, std::uint32_t limit, std::uint64_t mask) {
    const std::size_t count = Room(data.size() - at, length_, limit);
    const std::span<const char> part = data.subspan(at, count);
    const char* const end = FindEnd(part, hash_, mask);
    const auto taken = static_cast<std::uint32_t>(end != nullptr ? end - part.data() : std::ssize(part));
    at += taken;
    length_ += taken;
    return end != nullptr;
}

}  // namespace agent
