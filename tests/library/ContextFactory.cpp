#include "tests/library/ContextFactory.h"

#include "common/exc.h"

namespace test {

SFactoryStandIn& FactoryStandIn() {
    static SFactoryStandIn standIn;
    return standIn;
}

}  // namespace test

namespace cloudbackuplib::backup {

ICloudRepositoryPtr CCloudRepositoryFactory::OpenRepository(ECloudService::type service,
                                                            const std::string& connectionSpec) {
    test::FactoryStandIn().calls.emplace_back(service, connectionSpec);
    if (!test::FactoryStandIn().repository) {
        throw exc::CRuntimeExc("no repository today");
    }
    return test::FactoryStandIn().repository;
}

}  // namespace cloudbackuplib::backup
