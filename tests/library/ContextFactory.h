#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cloudbackuplib/CloudRepositoryFactory.h"

/// Stands in for the factory in programs that compile the context with it: returns the repository it was given.
namespace test {

struct SFactoryStandIn {
    std::shared_ptr<cloudbackuplib::backup::ICloudRepository> repository;
    /// What it was asked for: service and specification.
    std::vector<std::pair<cloudbackuplib::backup::ECloudService::type, std::string>> calls;
};

[[nodiscard]] SFactoryStandIn& FactoryStandIn();

}  // namespace test
