#include "common/guid.h"

#include <algorithm>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include "common/exc.h"

namespace guid {

namespace {

constexpr std::size_t textLength = 36;

bool IsGuidText(std::string_view text) {
    if (text.size() != textLength) {
        return false;
    }
    for (std::size_t i = 0; i < textLength; ++i) {
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        const char c = text[i];
        const bool hex = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
        if (dash ? c != '-' : !hex) {
            return false;
        }
    }
    return true;
}

}  // namespace

guid_t::guid_t(const std::array<std::uint8_t, 16>& bytes) { std::copy(bytes.begin(), bytes.end(), value_.begin()); }

guid_t guid_t::CreateNew() {
    guid_t created;
    created.value_ = boost::uuids::random_generator()();
    return created;
}

guid_t guid_t::FromStr(std::string_view text) {
    std::string_view digits = text;
    if (digits.size() == textLength + 2 && digits.front() == '{' && digits.back() == '}') {
        digits = digits.substr(1, textLength);
    }
    // Boost's own reader takes more forms than are ours (mixed braces, no dashes).
    if (!IsGuidText(digits)) {
        throw exc::CRuntimeExc("Invalid GUID: '%1'", text);
    }
    guid_t parsed;
    parsed.value_ = boost::uuids::string_generator()(digits.begin(), digits.end());
    return parsed;
}

std::string guid_t::ToAStr() const { return boost::uuids::to_string(value_); }
bool guid_t::IsEmpty() const { return value_.is_nil(); }

std::array<std::uint8_t, 16> guid_t::GetBytes() const {
    std::array<std::uint8_t, 16> bytes{};
    std::copy(value_.begin(), value_.end(), bytes.begin());
    return bytes;
}

}  // namespace guid
