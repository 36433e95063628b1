#include <map>
#include <mutex>
#include <set>

#include "cloudclientlib/CloudExc.h"
#include "tests/conformance/HookedClient.h"

namespace cloudclientlib::conformance {

namespace {

void Overlay(ICloudClient& client, text_t path, bytes_t bytes) {
    if (client.IsFileExist(path)) {
        const bytes_t old = Fetch(client, path);
        if (old.size() > bytes.size()) {
            bytes.insert(bytes.end(), old.begin() + static_cast<std::ptrdiff_t>(bytes.size()), old.end());
        }
    }
    Put(client, path, bytes);
}

SHooks KeepsTheTailOfLongerOldObject() {
    SHooks hooks;
    hooks.upload = [](ICloudClient& client, text_t path, const buffer_ptr& data) { Overlay(client, path, *data); };
    hooks.copy = [](ICloudClient& client, text_t source, text_t target) {
        Overlay(client, target, Fetch(client, source));
    };
    hooks.startUpload = [](const client_ptr& client, text_t path, unsigned long) {
        const auto bytes = std::make_shared<bytes_t>();
        return std::make_shared<CFunctionUpload>(
            [bytes](std::span<const char> data) { bytes->insert(bytes->end(), data.begin(), data.end()); },
            [client, path, bytes] { Overlay(*client, path, *bytes); });
    };
    return hooks;
}

SHooks FlipsLastByte() {
    SHooks hooks;
    hooks.download = [](ICloudClient& client, text_t path, bytes_t& buffer) {
        buffer = Fetch(client, path);
        if (!buffer.empty()) {
            buffer.back() = static_cast<char>(buffer.back() ^ 1);
        }
    };
    return hooks;
}

SHooks TurnsLineEnds() {
    SHooks hooks;
    hooks.download = [](ICloudClient& client, text_t path, bytes_t& buffer) {
        buffer = Fetch(client, path);
        std::erase(buffer, '\r');
    };
    return hooks;
}

SHooks DropsEmptyObjects() {
    SHooks hooks;
    hooks.upload = [](ICloudClient& client, text_t path, const buffer_ptr& data) {
        if (!data->empty()) {
            Put(client, path, *data);
        }
    };
    return hooks;
}

SHooks AppendsToBuffer() {
    SHooks hooks;
    hooks.download = [](ICloudClient& client, text_t path, bytes_t& buffer) {
        const bytes_t bytes = Fetch(client, path);
        buffer.insert(buffer.end(), bytes.begin(), bytes.end());
    };
    hooks.range = [](ICloudClient& client, text_t path, bytes_t& buffer, unsigned long offset, unsigned long size) {
        const auto part = std::make_shared<bytes_t>();
        client.DownloadFileAsync(path, part, offset, size)->Wait();
        buffer.insert(buffer.end(), part->begin(), part->end());
    };
    return hooks;
}

SHooks EmptiesUploadedBuffer() {
    SHooks hooks;
    hooks.upload = [](ICloudClient& client, text_t path, const buffer_ptr& data) {
        Put(client, path, *data);
        data->clear();
    };
    return hooks;
}

SHooks StoresTheBufferItself() {
    SHooks hooks;
    const auto buffers = std::make_shared<std::map<std::string, buffer_ptr>>();
    hooks.upload = [buffers](ICloudClient& client, text_t path, const buffer_ptr& data) {
        Put(client, path, *data);
        (*buffers)[path] = data;
    };
    hooks.download = [buffers](ICloudClient&, text_t path, bytes_t& buffer) { buffer = *buffers->at(path); };
    return hooks;
}

void RequireParent(ICloudClient& client, text_t path) {
    const std::string plain = Plain(path);
    const auto slash = plain.rfind('/');
    if (slash != std::string::npos && !client.IsFolderExist(plain.substr(0, slash))) {
        Fail("UploadFile", path);
    }
}

SHooks WantsParentsFirst() {
    SHooks hooks;
    hooks.upload = [](ICloudClient& client, text_t path, const buffer_ptr& data) {
        RequireParent(client, path);
        Put(client, path, *data);
    };
    hooks.copy = [](ICloudClient& client, text_t source, text_t target) {
        RequireParent(client, target);
        client.CopyFileAsync(source, target)->Wait();
    };
    hooks.createFolder = [](ICloudClient& client, text_t path) {
        RequireParent(client, path);
        client.CreateFolderAsync(path)->Wait();
    };
    hooks.startUpload = [](const client_ptr& client, text_t path, unsigned long size) {
        RequireParent(*client, path);
        return client->StartUpload(path, size);
    };
    return hooks;
}

SHooks DeletesNothing() {
    SHooks hooks;
    hooks.deleteFile = [](ICloudClient&, text_t) {};
    return hooks;
}

SHooks RemembersDeletions() {
    SHooks hooks;
    const auto deleted = std::make_shared<std::set<std::string>>();
    hooks.deleteFile = [deleted](ICloudClient& client, text_t path) {
        client.DeleteFileAsync(path)->Wait();
        deleted->insert(Plain(path));
    };
    hooks.deleteFolder = [deleted](ICloudClient& client, text_t path, const auto& progress) {
        client.DeleteFolderAsync(path, progress)->Wait();
        deleted->insert(Plain(path));
    };
    hooks.upload = [deleted](ICloudClient& client, text_t path, const buffer_ptr& data) {
        const std::string plain = Plain(path);
        if (deleted->contains(plain) || deleted->contains(plain.substr(0, plain.rfind('/')))) {
            Fail("UploadFile", path);
        }
        Put(client, path, *data);
    };
    return hooks;
}

SHooks FailsToDeleteMissing() {
    SHooks hooks;
    const auto mutex = std::make_shared<std::mutex>();
    hooks.deleteFile = [mutex](ICloudClient& client, text_t path) {
        const std::lock_guard lock(*mutex);  // of two deletions one must fail
        if (!client.IsFileExist(path)) {
            throw CObjectNotFoundExc("DeleteFile", path);
        }
        client.DeleteFileAsync(path)->Wait();
    };
    return hooks;
}

SHooks DeletesEitherKind() {
    SHooks hooks;
    hooks.deleteFile = [](ICloudClient& client, text_t path) {
        client.DeleteFileAsync(path)->Wait();
        client.DeleteFolderAsync(path, nullptr)->Wait();
    };
    hooks.deleteFolder = [](ICloudClient& client, text_t path, const auto& progress) {
        client.DeleteFolderAsync(path, progress)->Wait();
        client.DeleteFileAsync(path)->Wait();
    };
    return hooks;
}

/// Each object's first download is kept for ever.
SHooks CachesDownloads() {
    SHooks hooks;
    const auto cache = std::make_shared<std::map<std::string, bytes_t>>();
    const auto mutex = std::make_shared<std::mutex>();
    hooks.download = [cache, mutex](ICloudClient& client, text_t path, bytes_t& buffer) {
        const std::lock_guard lock(*mutex);
        if (!cache->contains(path)) {
            cache->emplace(path, Fetch(client, path));
        }
        buffer = cache->at(path);
    };
    return hooks;
}

SHooks ShowsAStrayFolder() {
    SHooks hooks;
    hooks.list = [](ICloudClient& client, text_t path) {
        auto entries = client.QueryFolder(path);
        if (Plain(path).empty()) {
            entries.push_back({.name = "lost+found", .isFolder = true, .size = 0, .modified = {}, .md5 = {}});
        }
        return entries;
    };
    return hooks;
}

SHooks CopiesByReference() {
    SHooks hooks;
    const auto links = std::make_shared<std::map<std::string, std::string>>();
    hooks.copy = [links](ICloudClient& client, text_t source, text_t target) {
        client.CopyFileAsync(source, target)->Wait();
        (*links)[target] = source;
    };
    hooks.download = [links](ICloudClient& client, text_t path, bytes_t& buffer) {
        buffer = Fetch(client, links->contains(path) ? links->at(path) : path);
    };
    return hooks;
}

SHooks TruncatesCopyTargetFirst() {
    SHooks hooks;
    hooks.copy = [](ICloudClient& client, text_t source, text_t target) {
        Put(client, target, {});
        client.CopyFileAsync(source, target)->Wait();
    };
    return hooks;
}

SHooks CopyKeepsExistingTarget() {
    SHooks hooks;
    hooks.copy = [](ICloudClient& client, text_t source, text_t target) {
        if (!client.IsFileExist(target)) {
            client.CopyFileAsync(source, target)->Wait();
        }
    };
    return hooks;
}

SHooks Sound() { return {}; }

}  // namespace

std::vector<SBroken> BrokenInObjects() {
    return {
        {"KeepsTheTailOfLongerOldObject",
         KeepsTheTailOfLongerOldObject,
         {"UploadReplacesObject", "StreamedUploadReplaces", "CopyReplacesTarget", "RangeOfReplacedObject",
          "EntryFollowsObject"}},
        {"FlipsLastByte",
         FlipsLastByte,
         {"UploadedObjectIsRead", "CopyHasTheBytes", "ObjectOf5MiB", "ObjectOf64MiB", "SuccessAtEveryWait"}},
        {"TurnsLineEnds", TurnsLineEnds, {"EveryByteIsKept"}},
        {"DropsEmptyObjects", DropsEmptyObjects, {"EmptyObjectIsAnObject"}},
        {"AppendsToBuffer", AppendsToBuffer, {"DownloadSetsBufferExactly", "RangeSetsBufferExactly"}},
        {"EmptiesUploadedBuffer", EmptiesUploadedBuffer, {"UploadLeavesBufferAlone"}},
        {"StoresTheBufferItself", StoresTheBufferItself, {"StoredObjectIsNotTheBuffer"}},
        {"WantsParentsFirst",
         WantsParentsFirst,
         {"UploadCreatesMissingParents", "CopyCreatesMissingParents", "StreamedUploadCreatesParents",
          "CreateFolderCreatesParents", "ParentsAreCreatedAtOnce"}},
        {"DeletesNothing",
         DeletesNothing,
         {"DeletedObjectIsGone", "ListingShowsWritesAtOnce", "ListingWhileDeletingWhatIsListed",
          "DeletedObjectIsWholeOrGone"}},
        {"RemembersDeletions", RemembersDeletions, {"DeletedObjectCanBeWrittenAgain", "DeletedFolderCanBeFilledAgain"}},
        {"FailsToDeleteMissing", FailsToDeleteMissing, {"DeleteOfMissingSucceeds", "DeletionsAtOnce"}},
        {"DeletesEitherKind", DeletesEitherKind, {"DeleteOfObjectSparesFolder", "DeletionOfFolderSparesObject"}},
        {"CachesDownloads", CachesDownloads, {"SecondClientSeesWrites", "UploadReplacesObject"}},
        {"ShowsAStrayFolder", ShowsAStrayFolder, {"FreshPlaceIsEmpty"}},
        {"CopiesByReference", CopiesByReference, {"CopyIsIndependent"}},
        {"TruncatesCopyTargetFirst",
         TruncatesCopyTargetFirst,
         {"CopyOntoItselfChangesNothing", "CopyOfMissingLeavesTarget"}},
        {"CopyKeepsExistingTarget", CopyKeepsExistingTarget, {"CopyReplacesTarget"}},
        {.name = "ForgetsWhenClosed",
         .hooks = Sound,
         .caughtBy = {"ObjectsSurviveReopening", "TasksLetGoAreDone", "SecondClientSeesWrites"},
         .isForgetful = true},
    };
}

}  // namespace cloudclientlib::conformance
