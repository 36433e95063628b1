#include <cstdint>
#include <cstdlib>

#include "common/crypto/key_set.h"
#include "common/exc.h"

// Bytes that are read as a key set are exactly the bytes that this key set is written as.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const crypto::sec_bytes_t bytes(data, data + size);
    try {
        const auto keySet = crypto::CKeySet::Unserial(bytes);
        io::mem_stream_tt<crypto::sec_allocator_t<char>> stream;
        keySet->Serial(stream);
        (void)keySet->ToLogStr();
        if (stream.GetBuffer() != bytes) {
            std::abort();
        }
    } catch (const exc::CRuntimeExc&) {
        return 0;
    }
    return 0;
}
