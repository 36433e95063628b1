#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

namespace cloudclientlib::conformance {

namespace {

void Create(CContext& context, const std::string& path) { context.Client().CreateFolderAsync(path)->Wait(); }
void Delete(CContext& context, const std::string& path) { context.Client().DeleteFolderAsync(path, nullptr)->Wait(); }

void ExpectFolder(CContext& context, const std::string& path, bool exists) {
    ExpectEqual(context.Client().IsFolderExist(path), exists, exc::Format("'%1' exists as a folder", path));
    Expect(!context.Client().IsFileExist(path), exc::Format("'%1' does not exist as an object", path));
}

void CreatedFolderExists(CContext& context) {
    Create(context, "folder");
    ExpectFolder(context, "folder", true);
    ExpectList(context.Client(), "", {"folder/"});
    ExpectList(context.Client(), "folder", {});
    context.Reopen();
    ExpectFolder(context, "folder", true);
}

void CreateFolderCreatesParents(CContext& context) {
    Create(context, "a/b/c");
    ExpectFolder(context, "a", true);
    ExpectFolder(context, "a/b", true);
    ExpectFolder(context, "a/b/c", true);
    ExpectList(context.Client(), "a", {"b/"});
}

void CreateFolderAgainSucceeds(CContext& context) {
    Upload(context.Client(), "folder/object", MakeBytes(1, 10));
    Create(context, "folder");
    Create(context, "folder");
    Create(context, "");
    ExpectObject(context.Client(), "folder/object", MakeBytes(1, 10));
    ExpectList(context.Client(), "folder", {"object"});
}

void FolderExistsWhileObjectsLieInIt(CContext& context) {
    ExpectFolder(context, "folder", false);
    Upload(context.Client(), "folder/sub/object", {});
    ExpectFolder(context, "folder", true);
    ExpectFolder(context, "folder/sub", true);
    Expect(!context.Client().IsFolderExist("folder/sub/object"), "an object is no folder");
    ExpectFolder(context, "fold", false);
    ExpectFolder(context, "folder2", false);
    ExpectFolder(context, "sub", false);
}

void RootIsAFolder(CContext& context) {
    Upload(context.Client(), "object", MakeBytes(1, 10));
    for (const char* root : {"", "/", "//"}) {
        ExpectFolder(context, root, true);
        ExpectList(context.Client(), root, {"object"});
        ExpectEqual(context.Client().GetFolderSize(root), 10U, "the size of the root");
    }
}

/// Objects in a folder, below it, and in places whose names only begin like the folder's.
void UploadFamily(CContext& context) {
    for (const char* path : {"folder/one", "folder/two", "folder/sub/three", "folder/sub/deep/er/four", "folder2/five",
                             "folder.x/six", "folder six", "fold/seven", "folder!/eight", "other/folder/nine"}) {
        Upload(context.Client(), path, MakeBytes(1, 10));
    }
}

void DeletedFolderIsGone(CContext& context) {
    UploadFamily(context);
    Delete(context, "folder");
    ExpectFolder(context, "folder", false);
    ExpectList(context.Client(), "folder", {});
    for (const char* path : {"folder/one", "folder/two", "folder/sub/three", "folder/sub/deep/er/four"}) {
        ExpectNoObject(context.Client(), path);
    }
    ExpectEqual(context.Client().GetFolderSize("folder"), 0U, "the size of the deleted folder");
}

void DeletionSparesNeighbours(CContext& context) {
    UploadFamily(context);
    Delete(context, "folder");
    ExpectList(context.Client(), "", {"folder2/", "folder.x/", "folder six", "fold/", "folder!/", "other/"});
    for (const char* path :
         {"folder2/five", "folder.x/six", "folder six", "fold/seven", "folder!/eight", "other/folder/nine"}) {
        ExpectObject(context.Client(), path, MakeBytes(1, 10));
    }
}

void DeletionTellsProgress(CContext& context) {
    UploadFamily(context);
    const auto progress = std::make_shared<CRecordedProgress>();
    context.Client().DeleteFolderAsync("folder", progress)->Wait();
    progress->ExpectAll(4);
}

void DeletionOfMissingFolderSucceeds(CContext& context) {
    Delete(context, "missing");
    Delete(context, "missing/folder");
    const auto progress = std::make_shared<CRecordedProgress>();
    context.Client().DeleteFolderAsync("missing", progress)->Wait();
    progress->ExpectAll(0);
    Upload(context.Client(), "folder/object", {});
    Delete(context, "folder");
    Delete(context, "folder");
}

void DeletionOfEmptyFolders(CContext& context) {
    Create(context, "folder/sub/deep");
    Create(context, "folder/empty");
    Delete(context, "folder");
    ExpectFolder(context, "folder", false);
    ExpectFolder(context, "folder/sub", false);
    ExpectFolder(context, "folder/sub/deep", false);
    ExpectList(context.Client(), "", {});
}

void DeletionOfFolderSparesObject(CContext& context) {
    Upload(context.Client(), "object", MakeBytes(1, 10));
    Delete(context, "object");
    ExpectObject(context.Client(), "object", MakeBytes(1, 10));
    Delete(context, "object/below");
    ExpectObject(context.Client(), "object", MakeBytes(1, 10));
}

void DeletedFolderCanBeFilledAgain(CContext& context) {
    Upload(context.Client(), "folder/old", MakeBytes(1, 10));
    Delete(context, "folder");
    Upload(context.Client(), "folder/new", MakeBytes(2, 20));
    ExpectList(context.Client(), "folder", {"new"});
    ExpectNoObject(context.Client(), "folder/old");
}

void DeletionOfRootEmptiesIt(CContext& context) {
    UploadFamily(context);
    Delete(context, "");
    ExpectList(context.Client(), "", {});
    ExpectEqual(context.Client().GetFolderSize(""), 0U, "the size of the emptied root");
    Upload(context.Client(), "folder/new", MakeBytes(2, 20));
    ExpectObject(context.Client(), "folder/new", MakeBytes(2, 20));
    ExpectList(context.Client(), "", {"folder/"});
}

void FolderSizeIsOfAllObjectsUnderIt(CContext& context) {
    ExpectEqual(context.Client().GetFolderSize("folder"), 0U, "the size of a missing folder");
    UploadFamily(context);
    ExpectEqual(context.Client().GetFolderSize("folder"), 40U, "the size of the folder");
    ExpectEqual(context.Client().GetFolderSize("folder/sub"), 20U, "the size of the sub-folder");
    Upload(context.Client(), "folder/one", MakeBytes(1, 1000));
    ExpectEqual(context.Client().GetFolderSize("folder"), 1030U, "the size after an object was replaced");
    context.Client().DeleteFileAsync("folder/one")->Wait();
    ExpectEqual(context.Client().GetFolderSize("folder"), 30U, "the size after an object was deleted");
    ExpectEqual(context.Client().GetFolderSize("fo"), 0U, "the size of what only begins like a folder");
}

void ObjectCountIsOfAllObjectsUnderPath(CContext& context) {
    ExpectEqual(context.Client().GetObjectCount("folder"), 0U, "the objects of a missing folder");
    UploadFamily(context);
    Create(context, "folder/empty");
    ExpectEqual(context.Client().GetObjectCount("folder"), 4U, "the objects under the folder");
    ExpectEqual(context.Client().GetObjectCount("/folder//sub/"), 2U, "the objects under the sub-folder");
    ExpectEqual(context.Client().GetObjectCount(""), 10U, "the objects under the root");
    ExpectEqual(context.Client().GetObjectCount("fo"), 0U, "the objects of what only begins like a folder");
    ExpectEqual(context.Client().GetObjectCount("folder/one"), 0U, "the objects under an object");
    Delete(context, "folder");
    ExpectEqual(context.Client().GetObjectCount("folder"), 0U, "the objects of the deleted folder");
}

}  // namespace

void AddFolderChecks(checks_t& checks) {
    checks.insert(checks.end(),
                  {
                      {"CreatedFolderExists", CreatedFolderExists, &SDeviations::emptyFoldersDoNotExist},
                      {"CreateFolderCreatesParents", CreateFolderCreatesParents, &SDeviations::emptyFoldersDoNotExist},
                      {"CreateFolderAgainSucceeds", CreateFolderAgainSucceeds},
                      {"FolderExistsWhileObjectsLieInIt", FolderExistsWhileObjectsLieInIt},
                      {"RootIsAFolder", RootIsAFolder},
                      {"DeletedFolderIsGone", DeletedFolderIsGone},
                      {"DeletionSparesNeighbours", DeletionSparesNeighbours},
                      {"DeletionTellsProgress", DeletionTellsProgress},
                      {"DeletionOfMissingFolderSucceeds", DeletionOfMissingFolderSucceeds},
                      {"DeletionOfEmptyFolders", DeletionOfEmptyFolders},
                      {"DeletionOfFolderSparesObject", DeletionOfFolderSparesObject},
                      {"DeletedFolderCanBeFilledAgain", DeletedFolderCanBeFilledAgain},
                      {"DeletionOfRootEmptiesIt", DeletionOfRootEmptiesIt},
                      {"FolderSizeIsOfAllObjectsUnderIt", FolderSizeIsOfAllObjectsUnderIt},
                      {"ObjectCountIsOfAllObjectsUnderPath", ObjectCountIsOfAllObjectsUnderPath,
                       &SDeviations::objectCountIsNotConfined},
                  });
}

}  // namespace cloudclientlib::conformance
