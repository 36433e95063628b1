#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "common/exc.h"

/// The primitives of the metadata format. Numbers are varints (7 bits a byte, low ones first, the top bit set on all
/// bytes but the last, in their shortest form); signed ones zigzag; a counted string is its length and its bytes.
namespace agent::meta {

void PutVarint(std::string& out, std::uint64_t value);
void PutSigned(std::string& out, std::int64_t value);
void PutCounted(std::string& out, std::string_view bytes);

/// A number of fixed width, little-endian.
template <std::unsigned_integral T>
void PutFixed(std::string& out, T value) {
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        out += static_cast<char>(static_cast<unsigned char>(value >> (8 * i)));
    }
}

/// Reads bytes that nobody vouches for. Throws exc::CRuntimeExc for what is cut off or not well formed; what it returns
/// as a view points into the bytes it was given. For one thread.
class CByteCursor {
public:
    explicit CByteCursor(std::string_view bytes) : all_(bytes), left_(bytes) {}

    [[nodiscard]] bool IsAtEnd() const { return left_.empty(); }
    [[nodiscard]] std::size_t GetPosition() const { return all_.size() - left_.size(); }
    [[nodiscard]] std::size_t GetRemaining() const { return left_.size(); }

    std::uint8_t Byte() { return static_cast<std::uint8_t>(Bytes(1).front()); }
    std::uint64_t Varint();
    std::int64_t Signed();
    std::string_view Bytes(std::uint64_t size);
    std::string_view Counted() { return Bytes(Varint()); }

    /// A varint that fits the type.
    template <std::unsigned_integral T>
    T Number() {
        const std::uint64_t value = Varint();
        if (value > std::numeric_limits<T>::max()) {
            throw exc::CRuntimeExc("number %1 is too large", value);
        }
        return static_cast<T>(value);
    }

    template <std::unsigned_integral T>
    T Fixed() {
        const std::string_view bytes = Bytes(sizeof(T));
        T value = 0;
        for (std::size_t i = 0; i < sizeof(T); ++i) {
            value =
                static_cast<T>(value | static_cast<T>(static_cast<T>(static_cast<unsigned char>(bytes[i])) << (8 * i)));
        }
        return value;
    }

private:
    std::string_view all_;
    std::string_view left_;
};

}  // namespace agent::meta
