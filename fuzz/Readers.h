#pragma once

#include <cstdlib>
#include <functional>

#include "common/exc.h"

/// What fuzz targets ask of readers.
namespace fuzz {

inline void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// A reader may refuse with the system's own exceptions, nothing else.
inline void Try(const std::function<void()>& reader) {
    try {
        reader();
    } catch (const exc::CExc&) {
        return;
    }
}

}  // namespace fuzz
