#pragma once

#include "agent/run/BlockUse.h"

namespace agent {

inline SBlockExternalId NumberedBlock(std::uint8_t number, std::uint32_t size) {
    SBlockExternalId block;
    block.id[0] = number;
    block.number32 = size;
    return block;
}

inline digest::md5_digest_t NumberedName(std::uint8_t number) { return {NumberedBlock(number, 0).id}; }

}  // namespace agent
