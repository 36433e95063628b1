#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

namespace cloudclientlib::conformance {

namespace {

/// Every operation that takes a path, done and waited for.
struct SPathOperation {
    std::string name;
    /// The operation that a failure names.
    std::string failureName;
    std::function<void(ICloudClient&, const std::string&)> run;
};

std::vector<SPathOperation> ReadingOperations() {
    return {
        {"DownloadFile", "DownloadFile",
         [](ICloudClient& client, const std::string& path) { static_cast<void>(Download(client, path)); }},
        {"DownloadFileRange", "DownloadFile",
         [](ICloudClient& client, const std::string& path) { static_cast<void>(DownloadRange(client, path, 0, 1)); }},
        {"CopyFileSource", "CopyFile",
         [](ICloudClient& client, const std::string& path) { client.CopyFileAsync(path, "copy")->Wait(); }},
        {"GetFileSize", "GetFileSize", [](ICloudClient& client, const std::string& path) { client.GetFileSize(path); }},
        {"IsFileExist", "IsFileExist", [](ICloudClient& client, const std::string& path) { client.IsFileExist(path); }},
        {"GetFolderSize", "GetFolderSize",
         [](ICloudClient& client, const std::string& path) { client.GetFolderSize(path); }},
        {"IsFolderExist", "IsFolderExist",
         [](ICloudClient& client, const std::string& path) { client.IsFolderExist(path); }},
        {"QueryFolder", "QueryFolder", [](ICloudClient& client, const std::string& path) { client.QueryFolder(path); }},
        {"GetObjectCount", "GetObjectCount",
         [](ICloudClient& client, const std::string& path) { client.GetObjectCount(path); }},
        {"StartDownload", "StartDownload",
         [](ICloudClient& client, const std::string& path) { client.StartDownload(path); }},
        {"GetArchiveRetrievalStatus", "GetArchiveRetrievalStatus",
         [](ICloudClient& client, const std::string& path) { client.GetArchiveRetrievalStatus(path); }},
    };
}

std::vector<SPathOperation> ChangingOperations() {
    return {
        {"UploadFile", "UploadFile", [](ICloudClient& client, const std::string& path) { Upload(client, path, {}); }},
        {"CopyFileTarget", "CopyFile",
         [](ICloudClient& client, const std::string& path) { client.CopyFileAsync("folder/object", path)->Wait(); }},
        {"DeleteFile", "DeleteFile",
         [](ICloudClient& client, const std::string& path) { client.DeleteFileAsync(path)->Wait(); }},
        {"CreateFolder", "CreateFolder",
         [](ICloudClient& client, const std::string& path) { client.CreateFolderAsync(path)->Wait(); }},
        {"DeleteFolder", "DeleteFolder",
         [](ICloudClient& client, const std::string& path) { client.DeleteFolderAsync(path, nullptr)->Wait(); }},
        {"StartUpload", "StartUpload",
         [](ICloudClient& client, const std::string& path) { client.StartUpload(path, 0); }},
        {"RetrieveArchive", "RetrieveArchive",
         [](ICloudClient& client, const std::string& path) { client.RetrieveArchive(path, {}); }},
    };
}

std::vector<std::string> InvalidPaths() {
    using namespace std::string_literals;
    return {"..",
            ".",
            "/..",
            "//./",
            "../object",
            "./folder/object",
            "folder/..",
            "folder/.",
            "folder/../..",
            "folder/./object",
            "a/../b",
            "folder/../folder/object",
            "object/..",
            "\0"s,
            "folder\0"s,
            "folder/\0"s,
            "folder/ob\0ject"s,
            "folder/object\0"s,
            "folder\0/../object"s};
}

/// An invalid path as text: NUL bytes shown.
std::string Shown(const std::string& path) {
    std::string text;
    for (const char c : path) {
        text += c == '\0' ? "\\0" : std::string(1, c);
    }
    return '\'' + text + '\'';
}

void InvalidPathsAreRefused(CContext& context, const SPathOperation& operation) {
    Upload(context.Client(), "folder/object", MakeBytes(1, 10));
    for (const std::string& path : InvalidPaths()) {
        const std::string what = operation.name + " of the invalid path " + Shown(path);
        const auto failure = FailureOf(what, [&] { operation.run(context.Client(), path); });
        ExpectEqual(ToStr(failure.GetKind()), ToStr(EFailure::other), what + ", the kind of the failure");
        ExpectEqual(failure.GetOperation(), operation.failureName, what + ", the operation of the failure");
    }
    ExpectList(context.Client(), "", {"folder/"});
    ExpectList(context.Client(), "folder", {"object"});
    ExpectObject(context.Client(), "folder/object", MakeBytes(1, 10));
}

const std::vector<std::string>& FormsOfObject() {
    static const std::vector<std::string> forms{"folder/object", "/folder/object", "folder/object/", "folder//object",
                                                "//folder///object//"};
    return forms;
}

void FormsReadTheSame(CContext& context) {
    for (const std::string& written : FormsOfObject()) {
        const bytes_t bytes = MakeBytes(written.size(), 100);
        Upload(context.Client(), written, bytes);
        for (const std::string& read : FormsOfObject()) {
            ExpectObject(context.Client(), read, bytes);
            ExpectBytes(DownloadRange(context.Client(), read, 0, 1000), bytes, "a range of '" + read + "'");
            ExpectBytes(StreamDown(context.Client(), read, 64), bytes, "a stream of '" + read + "'");
        }
        ExpectList(context.Client(), "", {"folder/"});
        ExpectList(context.Client(), "folder", {"object"});
    }
}

void FormsWriteTheSame(CContext& context) {
    Upload(context.Client(), "source", MakeBytes(3, 30));
    for (const std::string& form : FormsOfObject()) {
        StreamUp(context.Client(), form, MakeBytes(1, 100), 64);
        ExpectObject(context.Client(), "folder/object", MakeBytes(1, 100));
        context.Client().CopyFileAsync("//source/", form)->Wait();
        ExpectObject(context.Client(), "folder/object", MakeBytes(3, 30));
        context.Client().CopyFileAsync(form, "/copy")->Wait();
        ExpectObject(context.Client(), "copy", MakeBytes(3, 30));
        context.Client().DeleteFileAsync(form)->Wait();
        ExpectNoObject(context.Client(), "folder/object");
    }
}

void FormsOfFolderAreTheSame(CContext& context) {
    for (const char* form : {"top/folder", "/top/folder", "top/folder/", "top//folder", "//top///folder//"}) {
        Upload(context.Client(), "top/folder/object", MakeBytes(1, 10));
        context.Client().CreateFolderAsync(form)->Wait();
        Expect(context.Client().IsFolderExist(form), exc::Format("'%1' exists as a folder", form));
        ExpectList(context.Client(), form, {"object"});
        ExpectEqual(context.Client().GetFolderSize(form), 10U, exc::Format("the size of folder '%1'", form));
        context.Client().DeleteFolderAsync(form, nullptr)->Wait();
        ExpectNoObject(context.Client(), "top/folder/object");
        ExpectList(context.Client(), "top/folder", {});
    }
}

}  // namespace

void AddPathChecks(checks_t& checks) {
    auto operations = ReadingOperations();
    for (auto& operation : ChangingOperations()) {
        operations.push_back(std::move(operation));
    }
    for (const auto& operation : operations) {
        checks.push_back({"InvalidPathsAreRefusedBy" + operation.name,
                          [operation](CContext& context) { InvalidPathsAreRefused(context, operation); }});
    }
    checks.insert(checks.end(), {
                                    {"FormsReadTheSame", FormsReadTheSame},
                                    {"FormsWriteTheSame", FormsWriteTheSame},
                                    {"FormsOfFolderAreTheSame", FormsOfFolderAreTheSame},
                                });
}

}  // namespace cloudclientlib::conformance
