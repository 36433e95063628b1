#include <algorithm>
#include <deque>

#include "cloudbackuplib/CloudBackup.h"
#include "cloudbackuplib/CloudPaths.h"
#include "cloudbackuplib/backup/TaskGroup.h"
#include "cloudclientlib/CloudExc.h"
#include "common/logging.h"
#include "common/util.h"
#include "common/xml.h"

namespace cloudbackuplib::backup {

namespace {

using checkpoint::CCloudCheckpoint;
using checkpoint::DxrContentFeature;

constexpr const char* documentElement = "Checkpoint";

std::string PathOf(const std::string& backupId, unsigned long id, DxrContentFeature feature) {
    return feature == DxrContentFeature::longTerm ? paths::GetCheckpointLongTermPath(backupId, id)
                                                  : paths::GetCheckpointPath(backupId, id);
}

std::string ToText(const CCloudCheckpoint& checkpoint, DxrContentFeature feature) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t root = xml::TiXmlCreateChild(document, documentElement);
    checkpoint.Serialize(root, feature);
    return xml::TiXmlToStr(document);
}

CCloudBackup::checkpoint_ptr FromText(std::string_view text, DxrContentFeature feature) {
    return CCloudCheckpoint::Deserialize(xml::TiXmlGetChildExc(xml::TiXmlParseExc(text), documentElement), feature);
}

/// A checkpoint is written once and may be all that is left of the data: what would not read back is not written.
void CheckReadsBack(const std::string& text, DxrContentFeature feature) {
    if (ToText(*FromText(text, feature), feature) != text) {
        throw exc::CRuntimeExc("Checkpoint document does not read back as it was written");
    }
}

/// A checkpoint document on its way.
struct SDownload {
    cloudclientlib::ICloudClient::buffer_ptr buffer;
    task::task_ptr task;
};

SDownload StartDownload(const CCloudBackup& backup, unsigned long id, DxrContentFeature feature) {
    auto buffer = std::make_shared<cnt::array_t<char>>();
    try {
        const std::string path = PathOf(backup.GetBackupId(), id, feature);
        return {buffer, backup.GetBackupClient()->DownloadFileAsync(path, buffer)};
    } catch (...) {
        return {std::move(buffer), FailedWithCurrentException()};
    }
}

CCloudBackup::checkpoint_ptr Receive(const CCloudBackup& backup, unsigned long id, DxrContentFeature feature,
                                     const SDownload& download) {
    download.task->Wait();
    auto checkpoint = FromText(std::string_view(download.buffer->data(), download.buffer->size()), feature);
    if (checkpoint->GetId() != id) {
        throw exc::CRuntimeExc("Invalid checkpoint id: '%1', expected: '%2'", checkpoint->GetId(), id);
    }
    LogCheckpoint("Loaded " + ToString(feature), checkpoint, backup.GetBackupId());
    return checkpoint;
}

CCloudBackup::checkpoint_ptr ReceiveOrFallBack(const CCloudBackup& backup, unsigned long id, DxrContentFeature feature,
                                               const SDownload& download) {
    try {
        return Receive(backup, id, feature, download);
    } catch (const cloudclientlib::CObjectNotFoundExc&) {
        if (feature == DxrContentFeature::longTerm) {
            throw;
        }
        logging::Library().Info("Loading long-term checkoint. Backup id: '%1', Checkpoint: '%2'", backup.GetBackupId(),
                                id);
        return backup.LoadCheckpointImpl(id, DxrContentFeature::longTerm);
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Failed to load checkpoint '%1' for cloud backup '%2'", id, backup.GetBackupId());
    }
}

// Id 0 stands for the empty checkpoint, which lies in no cloud.

SDownload StartLoading(const CCloudBackup& backup, unsigned long id) {
    return id == 0 ? SDownload{nullptr, task::RunNow([] {})} : StartDownload(backup, id, DxrContentFeature::compatible);
}

CCloudBackup::checkpoint_ptr FinishLoading(const CCloudBackup& backup, unsigned long id, const SDownload& download) {
    return id == 0 ? CCloudCheckpoint::CreateEmpty()
                   : ReceiveOrFallBack(backup, id, DxrContentFeature::compatible, download);
}

void InsertIds(std::set<unsigned long>& ids, const std::string& folder, cloudclientlib::ICloudClient& client) {
    for (const auto& entry : client.QueryFolder(folder)) {
        ids.insert(util::str_to_uint64(entry.name));
    }
}

bool Has(CheckpointFilter filter, CheckpointFilter kind) { return filter == kind || filter == CheckpointFilter::all; }

}  // namespace

void CCloudBackup::SaveCheckpoint(checkpoint_ptr checkpoint) {
    SaveCheckpointImpl(checkpoint, DxrContentFeature::compatible);
    if (!checkpoint->GetDxrLongTerm().IsEmpty()) {
        SaveCheckpointImpl(checkpoint, DxrContentFeature::longTerm);
    }
}

void CCloudBackup::SaveCheckpointImpl(checkpoint_ptr checkpoint, DxrContentFeature feature) {
    logging::Library().Tr("Saving cloud storage checkpoint '%1', part: %2", checkpoint->GetId(), ToString(feature));
    try {
        const std::string path = PathOf(backupId_, checkpoint->GetId(), feature);
        if (client_->IsFileExist(path)) {
            throw exc::CRuntimeExc("Checkpoint already exists");
        }
        const std::string text = ToText(*checkpoint, feature);
        CheckReadsBack(text, feature);
        client_->UploadFileAsync(path, std::make_shared<cnt::array_t<char>>(text.begin(), text.end()))->Wait();
        LogCheckpoint("Saved", checkpoint, backupId_);
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Failed to save checkpoint '%1' for cloud backup '%2'", checkpoint->GetId(), backupId_);
    }
}

CCloudBackup::checkpoint_ptr CCloudBackup::LoadCheckpoint(unsigned long id) const {
    return FinishLoading(*this, id, StartLoading(*this, id));
}

CCloudBackup::checkpoint_ptr CCloudBackup::LoadCheckpointImpl(unsigned long id, DxrContentFeature feature) const {
    return ReceiveOrFallBack(*this, id, feature, StartDownload(*this, id, feature));
}

void CCloudBackup::LoadCheckpoints(const std::vector<unsigned long>& ids, const load_handler_t& take) const {
    std::deque<SDownload> inFlight;  // in the order of the ids, as they are finished
    const auto start = [&](std::size_t index) {
        inFlight.push_back(StartLoading(*this, ids[index]));
        return IgnoringFailure(inFlight.back().task);
    };
    const auto finish = [&](std::size_t index) {
        const SDownload download = std::move(inFlight.front());
        inFlight.pop_front();
        checkpoint_ptr checkpoint;
        std::exception_ptr failure;
        try {
            checkpoint = FinishLoading(*this, ids[index], download);
        } catch (...) {
            failure = std::current_exception();
        }
        take(ids[index], checkpoint, failure);
    };
    task::RunWindow(ids.size(), client_->GetConcurrentTaskLimit(), start, finish);
}

std::set<unsigned long> CCloudBackup::EnumCheckpoints(const std::string& backupId, client_ptr client,
                                                      CheckpointFilter filter) {
    try {
        std::set<unsigned long> ids;
        if (Has(filter, CheckpointFilter::regular)) {
            InsertIds(ids, paths::GetCheckpointFolder(backupId), *client);
        }
        if (Has(filter, CheckpointFilter::longTerm)) {
            InsertIds(ids, paths::GetCheckpointLongTermFolder(backupId), *client);
        }
        return ids;
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Failed to enumerate checkpoints for cloud backup '%1'", backupId);
    }
}

std::set<unsigned long> CCloudBackup::EnumCheckpointsImpl(CheckpointFilter filter) const {
    return EnumCheckpoints(backupId_, client_, filter);
}

std::set<unsigned long> CCloudBackup::EnumCheckpoints() {
    std::set<unsigned long> regular = EnumCheckpointsImpl(CheckpointFilter::regular);
    const std::set<unsigned long> longTerm = EnumCheckpointsImpl(CheckpointFilter::longTerm);
    if (!std::includes(regular.begin(), regular.end(), longTerm.begin(), longTerm.end())) {
        // A checkpoint that another host saved between the two listings only looks orphaned: its regular copy, written
        // first, is there by now.
        regular = EnumCheckpointsImpl(CheckpointFilter::regular);
    }
    ClearOrphanedLongTermCheckpoints(regular, longTerm);
    return regular;
}

}  // namespace cloudbackuplib::backup
