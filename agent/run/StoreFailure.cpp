#include "agent/run/StoreFailure.h"

#include "cloudclientlib/CloudExc.h"
#include "common/exc.h"

namespace agent {

void RethrowUnlessDamage(const std::exception& failure) {
    using cloudclientlib::EFailure;
    const auto cloud = exc::FindCause<cloudclientlib::CCloudExc>(failure);
    if (cloud && cloud->GetKind() != EFailure::notFound && cloud->GetKind() != EFailure::corrupt) {
        throw;
    }
}

}  // namespace agent
