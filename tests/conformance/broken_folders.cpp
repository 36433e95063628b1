#include "cloudclientlib/CloudExc.h"
#include "tests/conformance/HookedClient.h"

namespace cloudclientlib::conformance {

namespace {

using progress_ptr = std::shared_ptr<progress::progress_base_t>;

SHooks CreatesNoFolders() {
    SHooks hooks;
    hooks.createFolder = [](ICloudClient&, text_t) {};
    return hooks;
}

SHooks FailsToCreateExistingFolder() {
    SHooks hooks;
    hooks.createFolder = [](ICloudClient& client, text_t path) {
        if (client.IsFolderExist(path)) {
            Fail("CreateFolder", path);
        }
        client.CreateFolderAsync(path)->Wait();
    };
    return hooks;
}

SHooks FindsFoldersByTheirBeginning() {
    SHooks hooks;
    hooks.folderExists = [](ICloudClient& client, text_t path) {
        for (const auto& object : ObjectsUnder(client, "")) {
            if (object.starts_with(Plain(path))) {
                return true;
            }
        }
        return client.IsFolderExist(path);
    };
    return hooks;
}

SHooks RootDoesNotExist() {
    SHooks hooks;
    hooks.folderExists = [](ICloudClient& client, text_t path) {
        return !Plain(path).empty() && client.IsFolderExist(path);
    };
    return hooks;
}

SHooks DeletesDirectChildrenOnly() {
    SHooks hooks;
    hooks.deleteFolder = [](ICloudClient& client, text_t path, const progress_ptr&) {
        for (const auto& entry : client.QueryFolder(path)) {
            client.DeleteFileAsync(path + '/' + entry.name)->Wait();
        }
    };
    return hooks;
}

SHooks DeletesByBeginningOfName() {
    SHooks hooks;
    hooks.deleteFolder = [](ICloudClient& client, text_t path, const progress_ptr& progress) {
        client.DeleteFolderAsync(path, progress)->Wait();
        for (const auto& object : ObjectsUnder(client, "")) {
            if (object.starts_with(Plain(path))) {
                client.DeleteFileAsync(object)->Wait();
            }
        }
    };
    return hooks;
}

SHooks DeletesObjectsAndLeavesFolders() {
    SHooks hooks;
    hooks.deleteFolder = [](ICloudClient& client, text_t path, const progress_ptr&) {
        for (const auto& object : ObjectsUnder(client, Plain(path))) {
            client.DeleteFileAsync(object)->Wait();
        }
    };
    return hooks;
}

SHooks TellsNoProgress() {
    SHooks hooks;
    hooks.deleteFolder = [](ICloudClient& client, text_t path, const progress_ptr&) {
        client.DeleteFolderAsync(path, nullptr)->Wait();
    };
    return hooks;
}

SHooks FailsToDeleteMissingFolder() {
    SHooks hooks;
    hooks.deleteFolder = [](ICloudClient& client, text_t path, const progress_ptr& progress) {
        if (!client.IsFolderExist(path)) {
            throw CObjectNotFoundExc("DeleteFolder", path);
        }
        client.DeleteFolderAsync(path, progress)->Wait();
    };
    return hooks;
}

SHooks RefusesToDeleteRoot() {
    SHooks hooks;
    hooks.deleteFolder = [](ICloudClient& client, text_t path, const progress_ptr& progress) {
        if (Plain(path).empty()) {
            Fail("DeleteFolder", path);
        }
        client.DeleteFolderAsync(path, progress)->Wait();
    };
    return hooks;
}

SHooks MeasuresDirectChildrenOnly() {
    SHooks hooks;
    hooks.folderSize = [](ICloudClient& client, text_t path) {
        std::uint64_t size = 0;
        for (const auto& entry : client.QueryFolder(path)) {
            size += entry.size;
        }
        return size;
    };
    hooks.objectCount = [](ICloudClient& client, text_t path) { return client.QueryFolder(path).size(); };
    return hooks;
}

/// A write that should be refused is dropped without a word.
template <class Action>
void Forgive(const Action& action) {
    try {
        action();
    } catch (const CCloudExc& failure) {
        if (failure.GetKind() != EFailure::conflict) {
            throw;
        }
    }
}

SHooks DropsConflictingWrites() {
    SHooks hooks;
    hooks.upload = [](ICloudClient& client, text_t path, const buffer_ptr& data) {
        Forgive([&] { Put(client, path, *data); });
    };
    return hooks;
}

SHooks ConflictsAreOtherFailures() {
    SHooks hooks;
    hooks.upload = [](ICloudClient& client, text_t path, const buffer_ptr& data) {
        bool isDone = false;
        Forgive([&] {
            Put(client, path, *data);
            isDone = true;
        });
        if (!isDone) {
            Fail("UploadFile", path);
        }
    };
    return hooks;
}

}  // namespace

std::vector<SBroken> BrokenInFolders() {
    return {
        {"CreatesNoFolders", CreatesNoFolders, {"CreatedFolderExists", "CreateFolderCreatesParents"}},
        {"FailsToCreateExistingFolder", FailsToCreateExistingFolder, {"CreateFolderAgainSucceeds"}},
        {"FindsFoldersByTheirBeginning", FindsFoldersByTheirBeginning, {"FolderExistsWhileObjectsLieInIt"}},
        {"RootDoesNotExist", RootDoesNotExist, {"RootIsAFolder"}},
        {"DeletesDirectChildrenOnly", DeletesDirectChildrenOnly, {"DeletedFolderIsGone"}},
        {"DeletesByBeginningOfName", DeletesByBeginningOfName, {"DeletionSparesNeighbours"}},
        {"DeletesObjectsAndLeavesFolders",
         DeletesObjectsAndLeavesFolders,
         {"DeletedFolderIsGone", "DeletionOfEmptyFolders"}},
        {"TellsNoProgress", TellsNoProgress, {"DeletionTellsProgress"}},
        {"FailsToDeleteMissingFolder", FailsToDeleteMissingFolder, {"DeletionOfMissingFolderSucceeds"}},
        {"RefusesToDeleteRoot", RefusesToDeleteRoot, {"DeletionOfRootEmptiesIt"}},
        {"MeasuresDirectChildrenOnly",
         MeasuresDirectChildrenOnly,
         {"FolderSizeIsOfAllObjectsUnderIt", "ObjectCountIsOfAllObjectsUnderPath"}},
        {"DropsConflictingWrites",
         DropsConflictingWrites,
         {"ObjectCannotReplaceFolder", "NothingIsWrittenUnderObject", "RootCannotBeAnObject"}},
        {"ConflictsAreOtherFailures",
         ConflictsAreOtherFailures,
         {"ObjectCannotReplaceFolder", "NothingIsWrittenUnderObject"}},
    };
}

}  // namespace cloudclientlib::conformance
