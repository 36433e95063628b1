#include "agent/run/RepackDocuments.h"

#include <algorithm>
#include <vector>

#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"
#include "common/logging.h"
#include "common/xml.h"

namespace agent {

namespace backup = cloudbackuplib::backup;
using backup::checkpoint::CCloudCheckpoint;
using backup::checkpoint::CCloudDxrDescriptor;
using backup::checkpoint::CCloudStorageDescriptor;
using backup::checkpoint::DxrContentFeature;

namespace {

const logging::section_t logSection("agent.prune");

std::string ToText(const CCloudCheckpoint& checkpoint, DxrContentFeature feature) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t root = xml::TiXmlCreateChild(document, "Checkpoint");
    checkpoint.Serialize(root, feature);
    return xml::TiXmlToStr(document);
}

/// The library saves checkpoints that are new; this one stands for an old one of the same content.
void Replace(backup::CCloudBackup& cloudBackup, const CCloudCheckpoint& checkpoint, DxrContentFeature feature) {
    const std::string& backupId = cloudBackup.GetBackupId();
    const std::string path = feature == DxrContentFeature::longTerm
                                 ? backup::paths::GetCheckpointLongTermPath(backupId, checkpoint.GetId())
                                 : backup::paths::GetCheckpointPath(backupId, checkpoint.GetId());
    const std::string text = ToText(checkpoint, feature);
    const auto readBack =
        CCloudCheckpoint::Deserialize(xml::TiXmlGetChildExc(xml::TiXmlParseExc(text), "Checkpoint"), feature);
    if (ToText(*readBack, feature) != text) {
        throw exc::CRuntimeExc("The new document of checkpoint %1 does not read back as it was written",
                               checkpoint.GetId());
    }
    cloudBackup.GetBackupClient()
        ->UploadFileAsync(path, std::make_shared<cnt::array_t<char>>(text.begin(), text.end()))
        ->Wait();
    logSection.Info("Replaced the document '%1'", path);
}

CCloudCheckpoint LongTermCopyOf(const CCloudCheckpoint& regular) {
    return {regular.GetStorages(),
            regular.GetDxr(),
            regular.GetDxrLongTerm().IsEmpty() ? regular.GetDxr() : regular.GetDxrLongTerm(),
            regular.GetOwner(),
            regular.GetId(),
            regular.GetFormatVersion()};
}

std::vector<std::string> MetadataOf(const CCloudCheckpoint& checkpoint) {
    std::vector<std::string> names;
    for (const auto& storage : checkpoint.GetStorages()) {
        names.push_back(storage.GetFileName());
    }
    return names;
}

bool IsAligned(const backup::CCloudBackup& cloudBackup, const CCloudCheckpoint& regular) {
    try {
        const auto copy = cloudBackup.LoadCheckpointImpl(regular.GetId(), DxrContentFeature::longTerm);
        return MetadataOf(*copy) == MetadataOf(regular);
    } catch (const std::exception& failure) {
        logSection.Warn("The long-term copy of checkpoint %1 is written anew: %2", regular.GetId(), failure.what());
        return false;
    }
}

}  // namespace

bool ReplaceDocuments(CSetUpkeep& upkeep, const SCheckpointInfo& info, bool hasRegularCopy,
                      const written_versions_t& versions) {
    SSetDocument document = info.document;
    std::vector<CCloudStorageDescriptor> storages = info.checkpoint->GetStorages();
    bool isChanged = false;
    for (auto& storage : storages) {
        const auto found = versions.find(storage.GetFileName());
        if (found == versions.end()) {
            continue;
        }
        isChanged = true;
        storage = found->second.descriptor;
        for (auto& root : document.roots) {
            if (root.storageId == storage.GetStorageId()) {
                root.headerSha256 = found->second.headerSha256;
            }
        }
    }
    if (!isChanged) {
        return false;
    }
    const CCloudDxrDescriptor content(upkeep.GetRepository().StoreDocument(info.id, document));
    const auto& old = *info.checkpoint;
    const CCloudCheckpoint regular(storages, content, old.GetDxrLongTerm().IsEmpty() ? CCloudDxrDescriptor() : content,
                                   old.GetOwner(), info.id, old.GetFormatVersion());
    auto& cloudBackup = upkeep.GetBackup();
    if (hasRegularCopy) {
        Replace(cloudBackup, regular, DxrContentFeature::compatible);
    }
    if (info.isLongTerm) {
        Replace(cloudBackup, LongTermCopyOf(regular), DxrContentFeature::longTerm);
    }
    return true;
}

void AlignLongTermCopies(CSetUpkeep& upkeep) {
    auto& cloudBackup = upkeep.GetBackup();
    const auto regular = cloudBackup.EnumCheckpointsImpl(backup::CheckpointFilter::regular);
    for (const auto id : cloudBackup.EnumCheckpointsImpl(backup::CheckpointFilter::longTerm)) {
        if (!regular.contains(id)) {
            continue;
        }
        const auto checkpoint = cloudBackup.LoadCheckpointImpl(id, DxrContentFeature::compatible);
        if (!IsAligned(cloudBackup, *checkpoint)) {
            Replace(cloudBackup, LongTermCopyOf(*checkpoint), DxrContentFeature::longTerm);
        }
    }
}

}  // namespace agent
