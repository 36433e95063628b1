#include <algorithm>
#include <cstdint>

#include "cloudbackuplib/BlockExternalId.h"
#include "common/exc.h"
#include "fuzz/Readers.h"

// The id of a block is read from exactly its 44 bytes, whatever they are, and is written as the same.

using fuzz::Require;

namespace {

using cloudbackuplib::backup::SBlockExternalId;

constexpr std::size_t idSize = 44;

void UseId(const SBlockExternalId& id, const cnt::array_t<char>& bytes) {
    io::mem_stream_tt<> stream;
    id.Serial(stream);
    Require(stream.GetBuffer().size() == idSize);
    Require(std::equal(stream.GetBuffer().begin(), stream.GetBuffer().end(), bytes.begin()));
    const SBlockExternalId none;
    Require((id == none) == (!(id < none) && !(none < id)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const cnt::array_t<char> bytes(data, data + size);
    io::mem_stream_tt<> stream(bytes);
    SBlockExternalId id;
    try {
        SBlockExternalId::Unserial(stream, id);
    } catch (const exc::CRuntimeExc&) {
        Require(size < idSize && id == SBlockExternalId());
        return 0;
    }
    Require(stream.GetRemaining() == size - idSize);
    UseId(id, bytes);
    return 0;
}
