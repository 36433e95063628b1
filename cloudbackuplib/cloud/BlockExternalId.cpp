#include "cloudbackuplib/BlockExternalId.h"

#include <tuple>

namespace cloudbackuplib::backup {

void SBlockExternalId::Serial(io::binary_stream_tt& stream) const {
    stream.Write(id.data(), id.size());
    keySetId.Serial(stream);
    io::SerialExc(stream, number32);
    io::SerialExc(stream, number64);
}

SBlockExternalId SBlockExternalId::Unserial(io::binary_stream_tt& stream, SBlockExternalId& id) {
    SBlockExternalId read;  // `id` changes only when all of it was there
    stream.Read(read.id.data(), read.id.size());
    crypto::SRawKeySetId::Unserial(stream, read.keySetId);
    read.number32 = io::UnserialExc<std::uint32_t>(stream);
    read.number64 = io::UnserialExc<std::uint64_t>(stream);
    id = read;
    return id;
}

bool operator<(const SBlockExternalId& a, const SBlockExternalId& b) {
    return std::tie(a.id, a.keySetId, a.number32, a.number64) < std::tie(b.id, b.keySetId, b.number32, b.number64);
}

}  // namespace cloudbackuplib::backup
