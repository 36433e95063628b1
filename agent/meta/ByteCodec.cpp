#include "agent/meta/ByteCodec.h"

namespace agent::meta {

void PutVarint(std::string& out, std::uint64_t value) {
    for (; value >= 0x80U; value >>= 7U) {
        out += static_cast<char>(static_cast<unsigned char>(value | 0x80U));
    }
    out += static_cast<char>(static_cast<unsigned char>(value));
}

void PutSigned(std::string& out, std::int64_t value) {
    const std::uint64_t sign = value < 0 ? ~std::uint64_t{0} : 0;
    PutVarint(out, (static_cast<std::uint64_t>(value) << 1U) ^ sign);
}

void PutCounted(std::string& out, std::string_view bytes) {
    PutVarint(out, bytes.size());
    out += bytes;
}

std::uint64_t CByteCursor::Varint() {
    std::uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
        const std::uint64_t byte = Byte();
        if (shift == 63 && byte > 1) {
            break;
        }
        value |= (byte & 0x7FU) << shift;
        if (byte < 0x80U) {
            if (byte == 0 && shift != 0) {
                throw exc::CRuntimeExc("a number is not in its shortest form");
            }
            return value;
        }
    }
    throw exc::CRuntimeExc("a number has more than 64 bits");
}

std::int64_t CByteCursor::Signed() {
    const std::uint64_t coded = Varint();
    const std::uint64_t sign = (coded & 1U) != 0 ? ~std::uint64_t{0} : 0;
    return static_cast<std::int64_t>((coded >> 1U) ^ sign);
}

std::string_view CByteCursor::Bytes(std::uint64_t size) {
    if (size > left_.size()) {
        throw exc::CRuntimeExc("%1 bytes are expected where %2 are left", size, left_.size());
    }
    const std::string_view bytes = left_.substr(0, size);
    left_.remove_prefix(size);
    return bytes;
}

}  // namespace agent::meta
