// A host with a cloud client of its own: shows that the client keeps its promises, then keeps a backup with it.
#include <iostream>

#include "OwnClient.h"
#include "cloudbackuplib/CloudExternalRepository.h"
#include "cloudclientlib/conformance/Conformance.h"

namespace backup = cloudbackuplib::backup;
namespace conformance = cloudclientlib::conformance;

namespace {

/// Runs the suite; what a flat store cannot do is declared, and nothing else is forgiven.
bool KeepsItsPromises() {
    conformance::SSettings settings;
    settings.deviations.objectAndFolderShareAPath = true;
    settings.deviations.emptyFoldersDoNotExist = true;
    settings.deviations.archiveIsRefused = true;
    const conformance::factory_t freshPlace = [] {
        return [client = std::make_shared<COwnClient>()] { return client; };
    };
    const auto report = [](const conformance::SCheck& check, const conformance::SResult& result) {
        if (result.outcome == conformance::EOutcome::failed) {
            std::cout << check.name << ": " << result.text << "\n";
        }
    };
    const auto summary = conformance::RunConformance(freshPlace, settings, report);
    std::cout << "promises kept: " << summary.passed << ", deviations declared: " << summary.deviated
              << ", broken: " << summary.failed << "\n";
    return summary.failed == 0;
}

}  // namespace

int main() {
    if (!KeepsItsPromises()) {
        return 1;
    }
    const auto client = std::make_shared<COwnClient>();
    const backup::SCloudRepositoryInfo info = {
        "example", backup::SCloudRepositoryClientInfo{guid::guid_t::CreateNew(), "example", "this machine"}};
    const auto repository = backup::CCloudExternalRepository::CreateNew(client, info);
    const auto documents = repository->CreateBackup({}, "documents");
    documents->CreateCheckpoint({.dxrContent = "a state without storages",
                                 .dxrContentLongTerm = {},
                                 .unchangedStorages = {},
                                 .changedStorages = {}});
    std::cout << "objects in the store after one checkpoint: " << client->GetObjectCount("") << "\n";
    return 0;
}
