#pragma once

#include <cstdint>
#include <string_view>

namespace agent {

/// "500", "500K", "2M", "1G", "1T": powers of 1,024. Throws exc::CRuntimeExc for anything else.
[[nodiscard]] std::uint64_t ParseByteCount(std::string_view text);

}  // namespace agent
