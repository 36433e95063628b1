#include <cstdint>

#include "common/alglib/zlib.h"
#include "common/exc.h"
#include "fuzz/Readers.h"

// Compressed content from the cloud is refused or read within its limit; what is read can be packed and read anew.

using fuzz::Require;

namespace {

using alglib::compress::CZlibUtil;

constexpr std::size_t limit = std::size_t{1} << 20U;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::shared_ptr<cnt::array_t<char>> plain;
    try {
        plain = CZlibUtil::Decompress({reinterpret_cast<const char*>(data), size}, limit);
    } catch (const exc::CRuntimeExc&) {
        return 0;
    }
    Require(plain->size() <= limit);
    Require(*CZlibUtil::Decompress(*CZlibUtil::CompressBest(*plain), limit) == *plain);
    return 0;
}
