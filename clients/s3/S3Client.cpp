#include "clients/s3/S3Client.h"

#include <algorithm>

#include "clients/s3/S3Copy.h"
#include "clients/s3/S3Failure.h"
#include "clients/s3/S3Objects.h"
#include "clients/s3/S3Streams.h"
#include "clients/s3/Signature.h"
#include "cloudclientlib/CloudExc.h"

namespace clients {

using cloudclientlib::CCloudExc;
using cloudclientlib::EArchiveRetrievalStatus;
using cloudclientlib::EFailure;
using cloudclientlib::EStorageTier;
using s3::SPlace;

namespace {

EStorageTier TierOf(const std::string& storageClass) {
    if (storageClass == "GLACIER" || storageClass == "DEEP_ARCHIVE") {
        return EStorageTier::archive;
    }
    return storageClass.ends_with("_IA") ? EStorageTier::infrequentAccess : EStorageTier::standard;
}

cloudclientlib::SCloudObjectInfo InfoOf(const s3::SListedObject& object, std::size_t prefixSize) {
    cloudclientlib::SCloudObjectInfo info;
    info.name = object.key.substr(prefixSize);
    info.size = object.size;
    info.modified = object.modified;
    info.md5 = s3::Md5OfTag(object.etag);
    info.tier = TierOf(object.storageClass);
    return info;
}

bool IsMarker(const std::string& key) { return !key.empty() && key.back() == '/'; }

/// Adds up what is under a place; markers of folders are nobody's objects.
struct STotals {
    std::uint64_t objects = 0;
    std::uint64_t bytes = 0;
};

STotals TotalsOf(s3::CS3Connection& connection, const SPlace& place) {
    STotals totals;
    s3::ListAll(connection, place, place.Prefix(), "", [&](const s3::SListing& page) {
        for (const auto& object : page.objects) {
            if (!IsMarker(object.key)) {
                ++totals.objects;
                totals.bytes += object.size;
            }
        }
    });
    return totals;
}

void DeleteFolder(s3::CS3Connection& connection, const SPlace& place, progress::progress_base_t* progress) {
    std::uint64_t done = 0;
    s3::ListAll(connection, place, place.Prefix(), "", [&](const s3::SListing& page) {
        std::vector<std::string> keys;
        std::uint64_t objects = 0;
        for (const auto& object : page.objects) {
            keys.push_back(object.key);
            objects += IsMarker(object.key) ? 0U : 1U;
        }
        s3::DeleteKeys(connection, place, keys);
        done += objects;
        if (progress != nullptr && objects != 0) {
            progress->SetProgress(done, done);
        }
    });
}

const char* TierName(cloudclientlib::SRetrieveArchiveOptions::ESpeed speed) {
    using ESpeed = cloudclientlib::SRetrieveArchiveOptions::ESpeed;
    return speed == ESpeed::bulk ? "Bulk" : speed == ESpeed::standard ? "Standard" : "Expedited";
}

}  // namespace

CS3Client::CS3Client(SS3ClientOptions options, std::shared_ptr<s3::ICredentials> credentials)
    : options_(std::make_shared<const SS3ClientOptions>(std::move(options))),
      connection_(std::make_shared<s3::CS3Connection>(options_->bucket, std::move(credentials), options_->http,
                                                      options_->clock)),
      workers_(std::make_shared<task::CWorkerPool>(options_->http.connections)) {}

CS3Client::~CS3Client() = default;

SPlace CS3Client::Place(const char* operation, const std::string& path) const {
    return {operation, path, options_->prefix};
}

SPlace CS3Client::ObjectPlace(const char* operation, const std::string& path) const {
    SPlace place = Place(operation, path);
    if (place.key == options_->prefix) {
        throw CCloudExc({EFailure::conflict, false, operation, path, "the root is a folder"});
    }
    return place;
}

s3::CMultipartUpload::headers_t CS3Client::UploadHeaders(const std::string& path) const {
    if (options_->isInfrequentlyAccessed && options_->isInfrequentlyAccessed(path)) {
        return {{"x-amz-storage-class", "STANDARD_IA"}};
    }
    return {};
}

task::task_ptr CS3Client::DownloadFileAsync(const std::string& path, buffer_ptr buffer) {
    return workers_->Submit(
        [connection = connection_, place = Place("DownloadFile", path), buffer, root = options_->prefix](std::size_t) {
            if (place.key == root) {
                throw cloudclientlib::CObjectNotFoundExc(place.operation, place.path);
            }
            s3::ReadWhole(*connection, place, buffer);
        });
}

task::task_ptr CS3Client::DownloadFileAsync(const std::string& path, buffer_ptr buffer, unsigned long offset,
                                            unsigned long size) {
    return workers_->Submit([connection = connection_, place = Place("DownloadFile", path), buffer, offset, size,
                             root = options_->prefix](std::size_t) {
        if (place.key == root) {
            throw cloudclientlib::CObjectNotFoundExc(place.operation, place.path);
        }
        s3::ReadRange(*connection, place, offset, size, buffer, "");
    });
}

task::task_ptr CS3Client::UploadFileAsync(const std::string& path, buffer_ptr data) {
    return workers_->Submit([connection = connection_, place = ObjectPlace("UploadFile", path), data,
                             headers = UploadHeaders(path), sizes = options_->sizes](std::size_t) {
        if (data->size() <= sizes.threshold) {
            s3::PutObject(*connection, place, data, headers);
            return;
        }
        s3::CS3Upload upload(connection, place, data->size(), sizes, headers);
        upload.Write(*data);
        upload.Finish();
    });
}

task::task_ptr CS3Client::CopyFileAsync(const std::string& sourcePath, const std::string& targetPath) {
    return workers_->Submit(
        [connection = connection_, source = Place("CopyFile", sourcePath), target = ObjectPlace("CopyFile", targetPath),
         headers = UploadHeaders(targetPath),
         sizes = options_->sizes](std::size_t) { s3::CopyObject(connection, source, target, sizes, headers); });
}

task::task_ptr CS3Client::DeleteFileAsync(const std::string& path) {
    return workers_->Submit(
        [connection = connection_, place = Place("DeleteFile", path), root = options_->prefix](std::size_t) {
            if (place.key != root) {
                s3::DeleteOne(*connection, place, place.key);
            }
        });
}

std::uint64_t CS3Client::GetFileSize(const std::string& path) {
    const SPlace place = Place("GetFileSize", path);
    if (place.key == options_->prefix) {
        throw cloudclientlib::CObjectNotFoundExc(place.operation, place.path);
    }
    return s3::HeadExc(*connection_, place).size;
}

bool CS3Client::IsFileExist(const std::string& path) {
    const SPlace place = Place("IsFileExist", path);
    return place.key != options_->prefix && s3::Head(*connection_, place).has_value();
}

task::task_ptr CS3Client::CreateFolderAsync(const std::string& path) {
    return workers_->Submit(
        [connection = connection_, place = Place("CreateFolder", path), root = options_->prefix](std::size_t) {
            if (place.key == root) {
                return;
            }
            SPlace marker = place;
            marker.key += "/";
            s3::PutObject(*connection, marker, std::make_shared<cnt::array_t<char>>(), {});
        });
}

task::task_ptr CS3Client::DeleteFolderAsync(const std::string& path,
                                            std::shared_ptr<progress::progress_base_t> progress) {
    return workers_->Submit([connection = connection_, place = Place("DeleteFolder", path), progress](std::size_t) {
        DeleteFolder(*connection, place, progress.get());
    });
}

std::uint64_t CS3Client::GetFolderSize(const std::string& path) {
    return TotalsOf(*connection_, Place("GetFolderSize", path)).bytes;
}

bool CS3Client::IsFolderExist(const std::string& path) {
    const SPlace place = Place("IsFolderExist", path);
    if (place.key == options_->prefix) {
        return true;
    }
    return s3::HasPrefix(*connection_, place, place.Prefix());
}

std::vector<cloudclientlib::SCloudObjectInfo> CS3Client::QueryFolder(const std::string& path) {
    const SPlace place = Place("QueryFolder", path);
    const std::string prefix = place.Prefix();
    std::vector<cloudclientlib::SCloudObjectInfo> entries;
    s3::ListAll(*connection_, place, prefix, "/", [&](const s3::SListing& page) {
        for (const auto& object : page.objects) {
            if (object.key.size() > prefix.size() && object.key.starts_with(prefix)) {
                entries.push_back(InfoOf(object, prefix.size()));
            }
        }
        for (const auto& folder : page.prefixes) {
            if (folder.size() > prefix.size() + 1 && folder.starts_with(prefix)) {
                entries.emplace_back();
                entries.back().name = folder.substr(prefix.size(), folder.size() - prefix.size() - 1);
                entries.back().isFolder = true;
            }
        }
    });
    return entries;
}

std::uint64_t CS3Client::GetObjectCount(const std::string& path) {
    return TotalsOf(*connection_, Place("GetObjectCount", path)).objects;
}

cloudclientlib::SStorageQuota CS3Client::GetStorageQuota() { return {}; }

std::size_t CS3Client::GetConcurrentTaskLimit() { return workers_->GetLimit(); }

std::shared_ptr<task::IAsyncTaskUtils> CS3Client::CreateAsyncTaskUtils() { return task::CreateTaskUtils(); }

std::shared_ptr<cloudclientlib::IDownloadStream> CS3Client::StartDownload(const std::string& path) {
    SPlace place = Place("StartDownload", path);
    if (place.key == options_->prefix) {
        throw cloudclientlib::CObjectNotFoundExc(place.operation, place.path);
    }
    return std::make_shared<s3::CS3Download>(connection_, workers_, std::move(place));
}

std::shared_ptr<cloudclientlib::IUploadStream> CS3Client::StartUpload(const std::string& path, unsigned long size) {
    return std::make_shared<s3::CS3Upload>(connection_, ObjectPlace("StartUpload", path), size, options_->sizes,
                                           UploadHeaders(path));
}

void CS3Client::RetrieveArchive(const std::string& path, const cloudclientlib::SRetrieveArchiveOptions& options) {
    const SPlace place = Place("RetrieveArchive", path);
    if (TierOf(s3::HeadExc(*connection_, place).storageClass) != EStorageTier::archive) {
        return;
    }
    const std::string text = s3::WriteRestoration(options.days, TierName(options.speed));
    s3::SRequest request;
    request.method = "POST";
    request.key = place.key;
    request.query = {{"restore", ""}};
    request.body = std::make_shared<cnt::array_t<char>>(text.begin(), text.end());
    request.headers = s3::BodyHeaders(request.body);
    const auto result = connection_->Run(request);
    const auto error = s3::ReadError(result.answer.body);
    if (!result.failure && error && error->code == "RestoreAlreadyInProgress") {
        return;
    }
    s3::CheckSuccess(place.operation, place.path, result);
}

EArchiveRetrievalStatus CS3Client::GetArchiveRetrievalStatus(const std::string& path) {
    const auto state = s3::HeadExc(*connection_, Place("GetArchiveRetrievalStatus", path));
    if (TierOf(state.storageClass) != EStorageTier::archive) {
        return EArchiveRetrievalStatus::online;
    }
    if (state.restore.empty()) {
        return EArchiveRetrievalStatus::archived;
    }
    return state.restore.find("ongoing-request=\"true\"") == std::string::npos ? EArchiveRetrievalStatus::retrieved
                                                                               : EArchiveRetrievalStatus::inProgress;
}

}  // namespace clients
