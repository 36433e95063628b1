#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

namespace cloudclientlib::conformance {

namespace {

void UploadedObjectIsRead(CContext& context) {
    for (const std::size_t size : {1UL, 2UL, 1000UL, 65536UL, 65537UL, mebibyte + 1}) {
        const std::string path = "folder/object" + std::to_string(size);
        const bytes_t bytes = MakeBytes(context.Settings().seed, size);
        Upload(context.Client(), path, bytes);
        ExpectObject(context.Client(), path, bytes);
    }
}

void EmptyObjectIsAnObject(CContext& context) {
    Upload(context.Client(), "folder/empty", {});
    ExpectObject(context.Client(), "folder/empty", {});
    ExpectList(context.Client(), "folder", {"empty"});
}

void EveryByteIsKept(CContext& context) {
    bytes_t bytes;
    for (int round = 0; round < 3; ++round) {
        for (int value = 0; value < 256; ++value) {
            bytes.push_back(static_cast<char>(value));
        }
        bytes.insert(bytes.end(), {'\r', '\n', '\n', '\r', '\0', '\0', '\x1a'});
    }
    Upload(context.Client(), "bytes", bytes);
    ExpectObject(context.Client(), "bytes", bytes);
}

void UploadReplacesObject(CContext& context) {
    for (const std::size_t size : {1000UL, 10UL, 0UL, 70000UL, 70000UL}) {
        const bytes_t bytes = MakeBytes(size + context.Settings().seed, size);
        Upload(context.Client(), "object", bytes);
        ExpectObject(context.Client(), "object", bytes);
    }
    ExpectList(context.Client(), "", {"object"});
}

void DownloadSetsBufferExactly(CContext& context) {
    const bytes_t bytes = MakeBytes(1, 1000);
    Upload(context.Client(), "object", bytes);
    for (const std::size_t before : {0UL, 10UL, 1000UL, 5000UL}) {
        const auto buffer = Share(bytes_t(before, 'x'));
        context.Client().DownloadFileAsync("object", buffer)->Wait();
        ExpectBytes(*buffer, bytes, exc::Format("a buffer that held %1 bytes before the download", before));
    }
}

void UploadLeavesBufferAlone(CContext& context) {
    const bytes_t bytes = MakeBytes(1, 1000);
    const auto buffer = Share(bytes);
    context.Client().UploadFileAsync("object", buffer)->Wait();
    ExpectBytes(*buffer, bytes, "the buffer after the upload");
}

void StoredObjectIsNotTheBuffer(CContext& context) {
    const bytes_t bytes = MakeBytes(1, 1000);
    const auto buffer = Share(bytes);
    context.Client().UploadFileAsync("object", buffer)->Wait();
    buffer->assign(500, 'x');
    ExpectObject(context.Client(), "object", bytes);
    const auto received = Share({});
    context.Client().DownloadFileAsync("object", received)->Wait();
    received->assign(500, 'y');
    ExpectObject(context.Client(), "object", bytes);
}

void UploadCreatesMissingParents(CContext& context) {
    Upload(context.Client(), "a/b/c/object", MakeBytes(1, 10));
    for (const char* folder : {"a", "a/b", "a/b/c"}) {
        Expect(context.Client().IsFolderExist(folder), exc::Format("the parent '%1' exists as a folder", folder));
        Expect(!context.Client().IsFileExist(folder), exc::Format("the parent '%1' is no object", folder));
    }
    ExpectList(context.Client(), "a", {"b/"});
}

void DeletedObjectIsGone(CContext& context) {
    Upload(context.Client(), "folder/object", MakeBytes(1, 10));
    Upload(context.Client(), "folder/other", MakeBytes(2, 10));
    context.Client().DeleteFileAsync("folder/object")->Wait();
    ExpectNoObject(context.Client(), "folder/object");
    ExpectObject(context.Client(), "folder/other", MakeBytes(2, 10));
    ExpectList(context.Client(), "folder", {"other"});
}

void DeletedObjectCanBeWrittenAgain(CContext& context) {
    Upload(context.Client(), "folder/object", MakeBytes(1, 10));
    context.Client().DeleteFileAsync("folder/object")->Wait();
    Upload(context.Client(), "folder/object", MakeBytes(2, 20));
    ExpectObject(context.Client(), "folder/object", MakeBytes(2, 20));
}

void DeleteOfMissingSucceeds(CContext& context) {
    context.Client().DeleteFileAsync("missing")->Wait();
    context.Client().DeleteFileAsync("missing/object")->Wait();
    Upload(context.Client(), "folder/object", {});
    context.Client().DeleteFileAsync("folder/missing")->Wait();
    context.Client().DeleteFileAsync("folder/object")->Wait();
    context.Client().DeleteFileAsync("folder/object")->Wait();
    context.Client().DeleteFileAsync("folder/object/below")->Wait();
}

void DeleteOfObjectSparesFolder(CContext& context) {
    Upload(context.Client(), "folder/object", MakeBytes(1, 10));
    context.Client().DeleteFileAsync("folder")->Wait();
    ExpectObject(context.Client(), "folder/object", MakeBytes(1, 10));
}

void ObjectsSurviveReopening(CContext& context) {
    Upload(context.Client(), "folder/one", MakeBytes(1, 1000));
    Upload(context.Client(), "folder/two", MakeBytes(2, 2000));
    context.Client().DeleteFileAsync("folder/one")->Wait();
    context.Reopen();
    ExpectNoObject(context.Client(), "folder/one");
    ExpectObject(context.Client(), "folder/two", MakeBytes(2, 2000));
    ExpectList(context.Client(), "folder", {"two"});
}

void SecondClientSeesWrites(CContext& context) {
    const auto second = context.OpenSecond();
    ExpectNoObject(*second, "folder/object");
    Upload(context.Client(), "folder/object", MakeBytes(1, 100));
    ExpectObject(*second, "folder/object", MakeBytes(1, 100));
    ExpectList(*second, "folder", {"object"});
    Upload(*second, "folder/object", MakeBytes(2, 200));
    ExpectObject(context.Client(), "folder/object", MakeBytes(2, 200));
    second->DeleteFileAsync("folder/object")->Wait();
    ExpectNoObject(context.Client(), "folder/object");
    ExpectList(context.Client(), "folder", {});
}

void FreshPlaceIsEmpty(CContext& context) { ExpectList(context.Client(), "", {}); }

void RoundTrip(CContext& context, std::size_t size) {
    const bytes_t bytes = MakeBytes(context.Settings().seed, size);
    Upload(context.Client(), "large", bytes);
    ExpectObject(context.Client(), "large", bytes);
    Upload(context.Client(), "large", MakeBytes(1, 10));
    ExpectObject(context.Client(), "large", MakeBytes(1, 10));
}

}  // namespace

void AddObjectChecks(checks_t& checks) {
    checks.insert(checks.end(), {
                                    {"FreshPlaceIsEmpty", FreshPlaceIsEmpty},
                                    {"UploadedObjectIsRead", UploadedObjectIsRead},
                                    {"EmptyObjectIsAnObject", EmptyObjectIsAnObject},
                                    {"EveryByteIsKept", EveryByteIsKept},
                                    {"UploadReplacesObject", UploadReplacesObject},
                                    {"DownloadSetsBufferExactly", DownloadSetsBufferExactly},
                                    {"UploadLeavesBufferAlone", UploadLeavesBufferAlone},
                                    {"StoredObjectIsNotTheBuffer", StoredObjectIsNotTheBuffer},
                                    {"UploadCreatesMissingParents", UploadCreatesMissingParents},
                                    {"DeletedObjectIsGone", DeletedObjectIsGone},
                                    {"DeletedObjectCanBeWrittenAgain", DeletedObjectCanBeWrittenAgain},
                                    {"DeleteOfMissingSucceeds", DeleteOfMissingSucceeds},
                                    {"DeleteOfObjectSparesFolder", DeleteOfObjectSparesFolder},
                                    {"ObjectsSurviveReopening", ObjectsSurviveReopening},
                                    {"SecondClientSeesWrites", SecondClientSeesWrites},
                                    {"ObjectOf5MiB", [](CContext& context) { RoundTrip(context, 5 * mebibyte); }},
                                    {.name = "ObjectOf64MiB",
                                     .run = [](CContext& context) { RoundTrip(context, 64 * mebibyte); },
                                     .large = true},
                                });
}

}  // namespace cloudclientlib::conformance
