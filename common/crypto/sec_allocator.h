#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "common/cnt.h"
#include "common/util.h"

namespace crypto {

/// An allocator that erases what it frees: for key material, salts, passwords.
template <class T>
class sec_allocator_t {
public:
    using value_type = T;

    sec_allocator_t() = default;
    template <class U>
    sec_allocator_t(const sec_allocator_t<U>&) noexcept {}  // NOLINT: allocators convert

    [[nodiscard]] T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T* data, std::size_t count) noexcept {
        util::SecureErase(data, count * sizeof(T));
        std::allocator<T>().deallocate(data, count);
    }

    template <class U>
    bool operator==(const sec_allocator_t<U>&) const noexcept {
        return true;
    }
};

/// Bytes that are erased when they are let go.
using sec_bytes_t = cnt::array_t<char, sec_allocator_t<char>>;

/// Erases a text when it is let go itself: for secrets that others give as plain strings. The text outlives it, and is
/// neither moved nor made longer meanwhile.
class erase_at_end_t {
public:
    explicit erase_at_end_t(std::string& text) : text_(text) {}
    erase_at_end_t(const erase_at_end_t&) = delete;
    erase_at_end_t& operator=(const erase_at_end_t&) = delete;
    ~erase_at_end_t() { util::SecureErase(text_.data(), text_.size()); }

private:
    std::string& text_;
};

}  // namespace crypto
