#include "agent/check/Finding.h"

#include "cloudclientlib/CloudExc.h"
#include "common/exc.h"

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

void RethrowUnlessDamage(const std::exception& failure) {
    using cloudclientlib::EFailure;
    const auto cloud = exc::FindCause<cloudclientlib::CCloudExc>(failure);
    if (cloud && cloud->GetKind() != EFailure::notFound && cloud->GetKind() != EFailure::corrupt) {
        throw;
    }
}

}  // namespace agent
