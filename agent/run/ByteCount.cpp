#include "agent/run/ByteCount.h"

#include "common/exc.h"
#include "common/util.h"

namespace agent {

std::uint64_t ParseByteCount(std::string_view text) {
    static constexpr std::string_view units = "KMGT";
    const auto unit = text.empty() ? std::string_view::npos : units.find(text.back());
    const unsigned shift = unit == std::string_view::npos ? 0 : 10 * (static_cast<unsigned>(unit) + 1);
    const std::uint64_t count = util::str_to_uint64(shift == 0 ? text : text.substr(0, text.size() - 1));
    if (count > (~std::uint64_t{0} >> shift)) {
        throw exc::CRuntimeExc("the size is beyond all bounds");
    }
    return count << shift;
}

}  // namespace agent
