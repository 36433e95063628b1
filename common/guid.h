#pragma once

#include <array>
#include <boost/uuid/uuid.hpp>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/export.h"

namespace guid {

/// A 128-bit identifier (RFC 4122). A plain value.
class CB_EXPORT guid_t {
public:
    /// The null id.
    constexpr guid_t() = default;
    explicit guid_t(const std::array<std::uint8_t, 16>& bytes);

    /// A new random id (version 4).
    [[nodiscard]] static guid_t CreateNew();
    /// Reads 8-4-4-4-12 hexadecimal digits in either letter case, with or without braces around them. Throws
    /// exc::CRuntimeExc for any other text.
    [[nodiscard]] static guid_t FromStr(std::string_view text);

    /// Lower case, without braces.
    [[nodiscard]] std::string ToAStr() const;
    [[nodiscard]] bool IsEmpty() const;
    [[nodiscard]] std::array<std::uint8_t, 16> GetBytes() const;

    friend bool operator==(const guid_t& a, const guid_t& b) { return a.value_ == b.value_; }
    friend bool operator<(const guid_t& a, const guid_t& b) { return a.value_ < b.value_; }

private:
    boost::uuids::uuid value_{};
};

}  // namespace guid
