#include "clients/azure/AzureClient.h"

#include "clients/azure/AzureCopy.h"
#include "clients/azure/AzureFailure.h"
#include "clients/azure/AzureObjects.h"
#include "cloudclientlib/CloudExc.h"

namespace clients {

using azure::SPlace;
using cloudclientlib::CCloudExc;
using cloudclientlib::EArchiveRetrievalStatus;
using cloudclientlib::EFailure;
using cloudclientlib::EStorageTier;

namespace {

EStorageTier TierOf(const std::string& tier) {
    if (tier == "Archive") {
        return EStorageTier::archive;
    }
    return tier == "Cool" || tier == "Cold" ? EStorageTier::infrequentAccess : EStorageTier::standard;
}

EArchiveRetrievalStatus StatusOf(const azure::SObjectState& state) {
    if (TierOf(state.tier) != EStorageTier::archive) {
        return EArchiveRetrievalStatus::online;
    }
    return state.archiveStatus.empty() ? EArchiveRetrievalStatus::archived : EArchiveRetrievalStatus::inProgress;
}

cloudclientlib::SCloudObjectInfo InfoOf(const azure::SListedBlob& blob, std::size_t prefixSize) {
    cloudclientlib::SCloudObjectInfo info;
    info.name = blob.name.substr(prefixSize);
    info.size = blob.size;
    info.modified = blob.modified;
    info.md5 = blob.md5;
    info.tier = TierOf(blob.tier);
    return info;
}

bool IsMarker(const std::string& name) { return name.ends_with('/'); }

/// Adds up what is under a place; markers of folders are nobody's objects.
struct STotals {
    std::uint64_t objects = 0;
    std::uint64_t bytes = 0;
};

STotals TotalsOf(azure::CAzureConnection& connection, const SPlace& place) {
    STotals totals;
    azure::ListAll(connection, place, place.Prefix(), "", [&](const azure::SListing& page) {
        for (const auto& blob : page.blobs) {
            if (!IsMarker(blob.name)) {
                ++totals.objects;
                totals.bytes += blob.size;
            }
        }
    });
    return totals;
}

void DeleteFolder(azure::CAzureConnection& connection, const SPlace& place, progress::progress_base_t* progress) {
    std::uint64_t done = 0;
    azure::ListAll(connection, place, place.Prefix(), "", [&](const azure::SListing& page) {
        std::vector<std::string> names;
        std::uint64_t objects = 0;
        for (const auto& blob : page.blobs) {
            names.push_back(blob.name);
            objects += IsMarker(blob.name) ? 0U : 1U;
        }
        azure::DeleteNames(connection, place, names);
        done += objects;
        if (progress != nullptr && objects != 0) {
            progress->SetProgress(done, done);
        }
    });
}

void AddEntries(const azure::SListing& page, const std::string& prefix,
                std::vector<cloudclientlib::SCloudObjectInfo>& entries) {
    for (const auto& blob : page.blobs) {
        if (blob.name.size() > prefix.size() && blob.name.starts_with(prefix)) {
            entries.push_back(InfoOf(blob, prefix.size()));
        }
    }
    for (const auto& folder : page.prefixes) {
        if (folder.size() > prefix.size() + 1 && folder.starts_with(prefix)) {
            entries.emplace_back();
            entries.back().name = folder.substr(prefix.size(), folder.size() - prefix.size() - 1);
            entries.back().isFolder = true;
        }
    }
}

}  // namespace

CAzureClient::CAzureClient(SAzureClientOptions options, azure::SAccount account)
    : options_(std::make_shared<const SAzureClientOptions>(std::move(options))),
      connection_(std::make_shared<azure::CAzureConnection>(std::move(account), options_->container, options_->http,
                                                            options_->clock)),
      workers_(std::make_shared<task::CWorkerPool>(options_->http.connections)) {}

CAzureClient::~CAzureClient() = default;

SPlace CAzureClient::Place(const char* operation, const std::string& path) const {
    return {operation, path, options_->prefix};
}

SPlace CAzureClient::TargetPlace(const char* operation, const std::string& path) const {
    SPlace place = Place(operation, path);
    if (place.isRoot) {
        throw CCloudExc({EFailure::conflict, false, operation, path, "the root is a folder"});
    }
    return place;
}

bool CAzureClient::IsCool(const std::string& path) const {
    return options_->isInfrequentlyAccessed && options_->isInfrequentlyAccessed(path);
}

azure::headers_t CAzureClient::UploadHeaders(const std::string& path) const {
    return IsCool(path) ? azure::headers_t{{"x-ms-access-tier", "Cool"}} : azure::headers_t{};
}

task::task_ptr CAzureClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer) {
    return workers_->Submit([connection = connection_, place = Place("DownloadFile", path), buffer](std::size_t) {
        azure::ReadWhole(*connection, place, buffer);
    });
}

task::task_ptr CAzureClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer, unsigned long offset,
                                               unsigned long size) {
    return workers_->Submit([connection = connection_, place = Place("DownloadFile", path), buffer, offset,
                             size](std::size_t) { azure::ReadRange(*connection, place, offset, size, buffer, ""); });
}

task::task_ptr CAzureClient::UploadFileAsync(const std::string& path, buffer_ptr data) {
    return workers_->Submit([connection = connection_, place = TargetPlace("UploadFile", path), data,
                             headers = UploadHeaders(path), sizes = options_->sizes](std::size_t) {
        if (data->size() <= sizes.threshold) {
            azure::PutObject(*connection, place, data, headers);
            return;
        }
        azure::CAzureUpload upload(connection, place, data->size(), sizes, headers);
        upload.Write(*data);
        upload.Finish();
    });
}

task::task_ptr CAzureClient::CopyFileAsync(const std::string& sourcePath, const std::string& targetPath) {
    return workers_->Submit(
        [connection = connection_, source = Place("CopyFile", sourcePath), target = TargetPlace("CopyFile", targetPath),
         headers = UploadHeaders(targetPath),
         wait = options_->wait](std::size_t) { azure::CopyObject(*connection, source, target, headers, wait); });
}

task::task_ptr CAzureClient::DeleteFileAsync(const std::string& path) {
    return workers_->Submit([connection = connection_, place = Place("DeleteFile", path)](std::size_t) {
        azure::DeleteOne(*connection, place, "");
    });
}

std::uint64_t CAzureClient::GetFileSize(const std::string& path) {
    return azure::HeadExc(*connection_, Place("GetFileSize", path)).size;
}

bool CAzureClient::IsFileExist(const std::string& path) {
    return azure::Head(*connection_, Place("IsFileExist", path)).has_value();
}

task::task_ptr CAzureClient::CreateFolderAsync(const std::string& path) {
    SPlace marker = Place("CreateFolder", path);
    marker.name += "/";
    return workers_->Submit([connection = connection_, marker = std::move(marker)](std::size_t) {
        if (!marker.isRoot) {
            azure::PutObject(*connection, marker, std::make_shared<cnt::array_t<char>>(), {});
        }
    });
}

task::task_ptr CAzureClient::DeleteFolderAsync(const std::string& path,
                                               std::shared_ptr<progress::progress_base_t> progress) {
    return workers_->Submit([connection = connection_, place = Place("DeleteFolder", path), progress](std::size_t) {
        DeleteFolder(*connection, place, progress.get());
    });
}

std::uint64_t CAzureClient::GetFolderSize(const std::string& path) {
    return TotalsOf(*connection_, Place("GetFolderSize", path)).bytes;
}

bool CAzureClient::IsFolderExist(const std::string& path) {
    const SPlace place = Place("IsFolderExist", path);
    return place.isRoot || azure::HasPrefix(*connection_, place, place.Prefix());
}

std::vector<cloudclientlib::SCloudObjectInfo> CAzureClient::QueryFolder(const std::string& path) {
    const SPlace place = Place("QueryFolder", path);
    const std::string prefix = place.Prefix();
    std::vector<cloudclientlib::SCloudObjectInfo> entries;
    azure::ListAll(*connection_, place, prefix, "/",
                   [&](const azure::SListing& page) { AddEntries(page, prefix, entries); });
    return entries;
}

std::uint64_t CAzureClient::GetObjectCount(const std::string& path) {
    return TotalsOf(*connection_, Place("GetObjectCount", path)).objects;
}

cloudclientlib::SStorageQuota CAzureClient::GetStorageQuota() { return {}; }

std::size_t CAzureClient::GetConcurrentTaskLimit() { return workers_->GetLimit(); }

std::shared_ptr<task::IAsyncTaskUtils> CAzureClient::CreateAsyncTaskUtils() { return task::CreateTaskUtils(); }

std::shared_ptr<cloudclientlib::IDownloadStream> CAzureClient::StartDownload(const std::string& path) {
    return azure::StartDownload(connection_, workers_, Place("StartDownload", path), options_->wait);
}

std::shared_ptr<cloudclientlib::IUploadStream> CAzureClient::StartUpload(const std::string& path, unsigned long size) {
    return std::make_shared<azure::CAzureUpload>(connection_, TargetPlace("StartUpload", path), size, options_->sizes,
                                                 UploadHeaders(path));
}

void CAzureClient::RetrieveArchive(const std::string& path, const cloudclientlib::SRetrieveArchiveOptions& options) {
    const SPlace place = Place("RetrieveArchive", path);
    if (StatusOf(azure::HeadExc(*connection_, place)) != EArchiveRetrievalStatus::archived) {
        return;
    }
    using ESpeed = cloudclientlib::SRetrieveArchiveOptions::ESpeed;
    azure::SRequest request;
    request.method = "PUT";
    request.blob = place.name;
    request.query = {{"comp", "tier"}};
    request.headers = {{"x-ms-access-tier", IsCool(path) ? "Cool" : "Hot"},
                       {"x-ms-rehydrate-priority", options.speed == ESpeed::expedited ? "High" : "Standard"}};
    azure::CheckSuccess(place.operation, place.path, connection_->Run(request));
}

EArchiveRetrievalStatus CAzureClient::GetArchiveRetrievalStatus(const std::string& path) {
    return StatusOf(azure::HeadExc(*connection_, Place("GetArchiveRetrievalStatus", path)));
}

}  // namespace clients
