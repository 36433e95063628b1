#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

namespace cloudclientlib::conformance {

namespace {

/// Reads the object in every way; each must say that it is not there.
void ExpectNothingToRead(ICloudClient& client, const std::string& path) {
    ExpectNoObject(client, path);
    ExpectNotFound("DownloadFile", [&] { static_cast<void>(DownloadRange(client, path, 0, 10)); });
    ExpectNotFound("CopyFile", [&] { client.CopyFileAsync(path, "copy")->Wait(); });
    ExpectNotFound("StartDownload", [&] { static_cast<void>(StreamDown(client, path, 100)); });
}

void MissingObjectIsNotFound(CContext& context) {
    ExpectNothingToRead(context.Client(), "missing");
    ExpectNothingToRead(context.Client(), "missing/folder/object");
    Upload(context.Client(), "folder/object", MakeBytes(1, 10));
    ExpectNothingToRead(context.Client(), "folder/missing");
    ExpectNothingToRead(context.Client(), "folder/obj");
    ExpectNothingToRead(context.Client(), "folder/object2");
}

void FolderIsNotFoundAsObject(CContext& context) {
    Upload(context.Client(), "folder/sub/object", MakeBytes(1, 10));
    ExpectNothingToRead(context.Client(), "folder");
    ExpectNothingToRead(context.Client(), "folder/sub");
    ExpectNothingToRead(context.Client(), "");
    context.Client().CreateFolderAsync("created")->Wait();
    ExpectNothingToRead(context.Client(), "created");
}

void NothingIsFoundUnderObject(CContext& context) {
    Upload(context.Client(), "object", MakeBytes(1, 10));
    ExpectNothingToRead(context.Client(), "object/below");
    ExpectNothingToRead(context.Client(), "object/far/below");
    ExpectList(context.Client(), "object", {});
    ExpectList(context.Client(), "object/below", {});
    Expect(!context.Client().IsFolderExist("object/below"), "there is no folder under an object");
    ExpectEqual(context.Client().GetFolderSize("object"), 0U, "the folder size of an object");
}

void FailureNamesPathAsGiven(CContext& context) {
    const std::string path = "/missing//object";
    const auto failure =
        FailureOf("a download of '" + path + "'", [&] { static_cast<void>(Download(context.Client(), path)); });
    ExpectEqual(failure.GetPath(), path, "the path of the failure");
    const auto copy =
        FailureOf("a copy of '" + path + "'", [&] { context.Client().CopyFileAsync(path, "target")->Wait(); });
    ExpectEqual(copy.GetPath(), path, "the path of a failed copy");
    const std::string invalid = "folder/../object";
    const auto refused =
        FailureOf("a download of '" + invalid + "'", [&] { static_cast<void>(Download(context.Client(), invalid)); });
    ExpectEqual(refused.GetPath(), invalid, "the path of a refusal");
}

void ExpectConflict(CContext& context, const std::string& what, const action_t& action) {
    ExpectFailure(EFailure::conflict, what, action);
    ExpectObject(context.Client(), "folder/object", MakeBytes(1, 10));
    ExpectList(context.Client(), "", {"folder/", "other"});
}

void ObjectCannotReplaceFolder(CContext& context) {
    ICloudClient& client = context.Client();
    Upload(client, "folder/object", MakeBytes(1, 10));
    Upload(client, "other", MakeBytes(2, 20));
    ExpectConflict(context, "an upload onto a folder", [&] { Upload(client, "folder", MakeBytes(3, 30)); });
    ExpectConflict(context, "a copy onto a folder", [&] { client.CopyFileAsync("other", "folder")->Wait(); });
    ExpectConflict(context, "a streamed upload onto a folder", [&] { StreamUp(client, "folder", {}, 10); });
}

void NothingIsWrittenUnderObject(CContext& context) {
    ICloudClient& client = context.Client();
    Upload(client, "folder/object", MakeBytes(1, 10));
    Upload(client, "other", MakeBytes(2, 20));
    ExpectConflict(context, "an upload under an object", [&] { Upload(client, "folder/object/x", {}); });
    ExpectConflict(context, "an upload deep under an object", [&] { Upload(client, "folder/object/x/y", {}); });
    ExpectConflict(context, "a copy under an object",
                   [&] { client.CopyFileAsync("other", "folder/object/x")->Wait(); });
    ExpectConflict(context, "a streamed upload under an object", [&] { StreamUp(client, "folder/object/x", {}, 10); });
    ExpectConflict(context, "a folder created under an object",
                   [&] { client.CreateFolderAsync("folder/object/x")->Wait(); });
    ExpectConflict(context, "a folder created onto an object",
                   [&] { client.CreateFolderAsync("folder/object")->Wait(); });
}

void RootCannotBeAnObject(CContext& context) {
    for (const char* root : {"", "/", "//"}) {
        static_cast<void>(FailureOf("an upload onto the root", [&] { Upload(context.Client(), root, {}); }));
        static_cast<void>(
            FailureOf("a streamed upload onto the root", [&] { StreamUp(context.Client(), root, {}, 10); }));
        Expect(!context.Client().IsFileExist(root), "the root is no object");
        context.Client().DeleteFileAsync(root)->Wait();
    }
}

}  // namespace

void AddFailureChecks(checks_t& checks) {
    checks.insert(
        checks.end(),
        {
            {"MissingObjectIsNotFound", MissingObjectIsNotFound},
            {"FolderIsNotFoundAsObject", FolderIsNotFoundAsObject},
            {"NothingIsFoundUnderObject", NothingIsFoundUnderObject},
            {"FailureNamesPathAsGiven", FailureNamesPathAsGiven, &SDeviations::failuresNameInnerPaths},
            {"ObjectCannotReplaceFolder", ObjectCannotReplaceFolder, &SDeviations::objectAndFolderShareAPath},
            {"NothingIsWrittenUnderObject", NothingIsWrittenUnderObject, &SDeviations::objectAndFolderShareAPath},
            {"RootCannotBeAnObject", RootCannotBeAnObject},
        });
}

}  // namespace cloudclientlib::conformance
