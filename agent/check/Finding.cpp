#include "agent/check/Finding.h"

namespace agent {

const char* ToStr(EDamage damage) {
    switch (damage) {
        case EDamage::checkpoint:
            return "checkpoint";
        case EDamage::metadata:
            return "metadata";
        case EDamage::blockMissing:
            return "block-missing";
        case EDamage::blockSize:
            return "block-size";
        case EDamage::blockDigest:
            return "block-digest";
        default:
            return "block-data";
    }
}

}  // namespace agent
