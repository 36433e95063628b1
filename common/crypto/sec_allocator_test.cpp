#include "common/crypto/sec_allocator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <string_view>

#include "common/crypto/key_set.h"
#include "common/exc.h"
#include "common/stream.h"

// This program replaces the global allocation functions, to look at a piece of memory at the moment when it is given
// back, while reading it is still allowed.

namespace {

/// What the piece of memory that is watched holds when it is freed.
class CFreedMemory {
public:
    explicit CFreedMemory(const void* address) {
        watched = address;
        found.clear();
        seen = false;
    }
    CFreedMemory(const CFreedMemory&) = delete;
    CFreedMemory& operator=(const CFreedMemory&) = delete;
    ~CFreedMemory() { watched = nullptr; }

    bool WasFreed() const { return seen; }
    bool Contains(std::string_view text) const { return found.find(text) != std::string::npos; }
    bool IsErased(std::size_t size) const {
        return seen && found.size() >= size &&
               std::all_of(found.begin(), found.begin() + static_cast<long>(size), [](char byte) { return byte == 0; });
    }

    static void Look(const void* address, std::size_t size) {
        if (address == watched && address != nullptr) {
            watched = nullptr;  // what follows allocates itself
            seen = true;
            found.assign(static_cast<const char*>(address), size);
        }
    }

private:
    static inline const void* watched = nullptr;
    static inline bool seen = false;
    static inline std::string found;
};

constexpr std::string_view secret = "correct horse battery staple, and then some more of it";

/// The largest piece of memory that was asked for since this was last set to 0.
std::size_t g_largest = 0;

/// Keeps the compiler from seeing that nobody reads the memory.
void Escape(const void* memory) { asm volatile("" : : "r"(memory) : "memory"); }

}  // namespace

// NOLINTBEGIN: a replacement of the global functions is made of malloc and free
void* operator new(std::size_t size) {
    g_largest = std::max(g_largest, size);
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t size) noexcept {
    CFreedMemory::Look(memory, size);
    std::free(memory);
}
// NOLINTEND

namespace {

TEST(SecAllocator, TheWatchSeesWhatAnOrdinaryVectorLeavesBehind) {
    auto plain = std::make_unique<cnt::array_t<char>>(secret.begin(), secret.end());
    Escape(plain->data());
    const CFreedMemory memory(plain->data());
    plain.reset();
    EXPECT_TRUE(memory.WasFreed());
    EXPECT_TRUE(memory.Contains(secret));
}

TEST(SecAllocator, ErasesWhatItFrees) {
    auto bytes = std::make_unique<crypto::sec_bytes_t>(secret.begin(), secret.end());
    Escape(bytes->data());
    const CFreedMemory memory(bytes->data());
    bytes.reset();
    EXPECT_TRUE(memory.IsErased(secret.size()));
}

TEST(SecAllocator, ErasesWhatABufferGrowsOutOf) {
    crypto::sec_bytes_t bytes(secret.begin(), secret.end());
    Escape(bytes.data());
    const CFreedMemory memory(bytes.data());
    bytes.reserve(bytes.capacity() + 1);
    EXPECT_TRUE(memory.IsErased(secret.size()));
    EXPECT_EQ(secret, std::string_view(bytes.data(), bytes.size()));
}

TEST(SecAllocator, ErasesTheWholeCapacity) {
    crypto::sec_bytes_t bytes(secret.begin(), secret.end());
    Escape(bytes.data());
    bytes.clear();
    const CFreedMemory memory(bytes.data());
    bytes.shrink_to_fit();
    EXPECT_TRUE(memory.IsErased(secret.size())) << "bytes that were cleared before are still there until freed";
}

TEST(SecAllocator, ErasesElementsOfAnySize) {
    using numbers_t = cnt::array_t<std::uint64_t, crypto::sec_allocator_t<std::uint64_t>>;
    auto numbers = std::make_unique<numbers_t>(10, ~std::uint64_t{0});
    Escape(numbers->data());
    const CFreedMemory memory(numbers->data());
    numbers.reset();
    EXPECT_TRUE(memory.IsErased(10 * sizeof(std::uint64_t)));
}

TEST(SecAllocator, AStreamOverItErasesToo) {
    auto stream = std::make_unique<io::mem_stream_tt<crypto::sec_allocator_t<char>>>();
    stream->Write(secret.data(), secret.size());
    const CFreedMemory memory(stream->GetBuffer().data());
    stream.reset();
    EXPECT_TRUE(memory.IsErased(secret.size()));
}

TEST(SecAllocator, AKeySetErasesItsMaterial) {
    const crypto::sec_bytes_t key(secret.begin(), secret.end());
    auto keySet = std::make_unique<crypto::CKeySet>(crypto::CKeySetId::CreateNew(), L"", key,
                                                    std::vector<crypto::CRestoreKeyRepairRec>());
    {
        const CFreedMemory memory(keySet->GetKeys().data());
        keySet.reset();
        EXPECT_TRUE(memory.IsErased(secret.size()));
    }
    keySet = std::make_unique<crypto::CKeySet>(
        crypto::CKeySetId::CreateNew(), L"", crypto::sec_bytes_t(),
        std::vector<crypto::CRestoreKeyRepairRec>{{crypto::CKeySetId::CreateNew().GetRaw(), key}});
    const CFreedMemory memory(keySet->GetRepairRecords()[0].wrappedKey.data());
    keySet.reset();
    EXPECT_TRUE(memory.IsErased(secret.size()));
}

TEST(KeySetMemory, AHugeLengthIsRefusedBeforeItIsAllocated) {
    io::mem_stream_tt<crypto::sec_allocator_t<char>> stream;
    crypto::CKeySet(crypto::CKeySetId::CreateNew(), L"", {}, {}).Serial(stream);
    for (const long lengthAt : {24L, 28L}) {  // of the hint, of the keys
        crypto::sec_bytes_t hostile = stream.GetBuffer();
        std::fill_n(hostile.begin() + lengthAt, 4, static_cast<char>(0x7F));
        g_largest = 0;
        EXPECT_THROW((void)crypto::CKeySet::Unserial(hostile), exc::CRuntimeExc);
        EXPECT_GT(100000U, g_largest);
    }
}

}  // namespace
