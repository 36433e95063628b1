#pragma once

#include "common/exc.h"

namespace digest {

/// Of an OpenSSL call, which returns 1 when it is done.
inline void CheckDigestCall(int result, const char* operation) {
    if (result != 1) {
        throw exc::CRuntimeExc("Digest operation '%1' failed", operation);
    }
}

}  // namespace digest
