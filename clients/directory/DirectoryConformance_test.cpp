#include <gtest/gtest.h>

#include <memory>

#include "clients/directory/DirectoryClient.h"
#include "clients/directory/TestRoot.h"
#include "cloudclientlib/conformance/GTest.h"
#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "cloudclientlib/wrappers/GateClient.h"

namespace clients::directory {
namespace {

using namespace cloudclientlib;

using wrap_t = std::shared_ptr<ICloudClient> (*)(std::shared_ptr<ICloudClient>);

/// Places in folders of their own.
conformance::factory_t Factory(wrap_t wrap) {
    return [wrap]() -> conformance::place_t {
        return [wrap, root = std::make_shared<CTestRoot>()] {
            return wrap(std::make_shared<CDirectoryClient>(root->GetPath()));
        };
    };
}

std::shared_ptr<ICloudClient> Plain(std::shared_ptr<ICloudClient> client) { return client; }

template <class TWrapper>
std::shared_ptr<ICloudClient> Wrapped(std::shared_ptr<ICloudClient> client) {
    return std::make_shared<TWrapper>(std::move(client));
}

conformance::SSettings Large() {
    conformance::SSettings settings;
    settings.large = true;
    return settings;
}

[[maybe_unused]] const bool registered =
    conformance::RegisterConformance("DirectoryConformance", Factory(&Plain), Large()) &&
    conformance::RegisterConformance("CountedDirectoryConformance", Factory(&Wrapped<CCountingClient>)) &&
    conformance::RegisterConformance("FaultyDirectoryConformance", Factory(&Wrapped<CFaultClient>)) &&
    conformance::RegisterConformance("GatedDirectoryConformance", Factory(&Wrapped<CGateClient>));

}  // namespace
}  // namespace clients::directory
