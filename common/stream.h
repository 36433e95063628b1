#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstring>
#include <span>
#include <utility>

#include "common/cnt.h"
#include "common/exc.h"
#include "common/export.h"

namespace io {

/// A stream of bytes with integers of fixed width in it (little-endian). For one thread.
class CB_EXPORT binary_stream_tt {
public:
    virtual ~binary_stream_tt() = default;
    /// Writes up to `size` bytes; returns how many were written.
    virtual std::size_t Write(const void* data, std::size_t size) = 0;
    /// Reads up to `size` bytes; returns how many were read, fewer at the end of the stream.
    virtual std::size_t Read(void* data, std::size_t size) = 0;

    /// Writes an integer; returns how many bytes were written.
    template <std::unsigned_integral T>
    std::size_t Serial(T value) {
        std::array<unsigned char, sizeof(T)> bytes;
        for (std::size_t i = 0; i < sizeof(T); ++i) {
            bytes[i] = static_cast<unsigned char>(value >> (8 * i));
        }
        return Write(bytes.data(), bytes.size());
    }

    /// Reads an integer; returns how many bytes were read. `value` is set only when all were.
    template <std::unsigned_integral T>
    std::size_t Unserial(T& value) {
        std::array<unsigned char, sizeof(T)> bytes;
        const std::size_t received = Read(bytes.data(), bytes.size());
        if (received == bytes.size()) {
            T result = 0;
            for (std::size_t i = 0; i < sizeof(T); ++i) {
                result = static_cast<T>(result | static_cast<T>(static_cast<T>(bytes[i]) << (8 * i)));
            }
            value = result;
        }
        return received;
    }
};

/// Fails unless a write to a stream wrote all it should.
inline void CheckWritten(std::size_t written, std::size_t expected) {
    if (written != expected) {
        throw exc::CRuntimeExc(
            "Failed to write value to the binary stream: written less bytes (%1) than expected (%2).", written,
            expected);
    }
}

/// Fails unless a read from a stream brought all it should.
inline void CheckReceived(std::size_t received, std::size_t expected) {
    if (received != expected) {
        throw exc::CRuntimeExc(
            "Failed to retrieve value from the binary stream: received less bytes (%1) than expected (%2).", received,
            expected);
    }
}

/// Writes an integer whole, or throws exc::CRuntimeExc.
template <std::unsigned_integral T>
void SerialExc(binary_stream_tt& stream, T value) {
    CheckWritten(stream.Serial(value), sizeof(T));
}

/// Reads an integer whole, or throws exc::CRuntimeExc.
template <std::unsigned_integral T>
[[nodiscard]] T UnserialExc(binary_stream_tt& stream) {
    T value = 0;
    CheckReceived(stream.Unserial(value), sizeof(T));
    return value;
}

/// A stream in memory: writes append, reads go on from where the last ended. With crypto::sec_allocator_t the bytes
/// are erased when they are let go.
template <class A = std::allocator<char>>
class mem_stream_tt : public binary_stream_tt {
public:
    using buffer_t = cnt::array_t<char, A>;

    mem_stream_tt() = default;
    explicit mem_stream_tt(buffer_t buffer) : buffer_(std::move(buffer)) {}

    std::size_t Write(const void* data, std::size_t size) override {
        const auto* bytes = static_cast<const char*>(data);
        buffer_.insert(buffer_.end(), bytes, bytes + size);
        return size;
    }

    std::size_t Read(void* data, std::size_t size) override {
        const std::size_t received = std::min(size, GetRemaining());
        if (received != 0) {
            std::memcpy(data, buffer_.data() + position_, received);
        }
        position_ += received;
        return received;
    }

    [[nodiscard]] const buffer_t& GetBuffer() const { return buffer_; }
    /// How many bytes are left to read.
    [[nodiscard]] std::size_t GetRemaining() const { return buffer_.size() - position_; }

private:
    buffer_t buffer_;
    std::size_t position_ = 0;
};

}  // namespace io
