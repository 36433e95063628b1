#include <span>

#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

namespace cloudclientlib::conformance {

namespace {

void RoundTrip(CContext& context, std::size_t size, std::size_t piece) {
    const bytes_t bytes = MakeBytes(context.Settings().seed + size, size);
    StreamUp(context.Client(), "folder/streamed", bytes, piece);
    ExpectObject(context.Client(), "folder/streamed", bytes);
}

void StreamedUploadIsRead(CContext& context) {
    RoundTrip(context, 0, 1);
    RoundTrip(context, 1, 1);
    RoundTrip(context, 1000, 7);
    RoundTrip(context, 100'000, 100'000);
    RoundTrip(context, 100'000, 4097);
    RoundTrip(context, mebibyte + 1, 65536);
}

void StreamedUploadReplaces(CContext& context) {
    Upload(context.Client(), "folder/streamed", MakeBytes(1, 50'000));
    RoundTrip(context, 10, 3);
    RoundTrip(context, 0, 1);
}

void StreamedUploadCreatesParents(CContext& context) {
    StreamUp(context.Client(), "a/b/c/object", MakeBytes(1, 10), 4);
    ExpectObject(context.Client(), "a/b/c/object", MakeBytes(1, 10));
    ExpectList(context.Client(), "a/b", {"c/"});
}

void WriteOfNothingIsNothing(CContext& context) {
    const bytes_t bytes = MakeBytes(1, 10);
    const auto stream = context.Client().StartUpload("object", bytes.size());
    stream->Write({});
    stream->Write(bytes);
    stream->Write({});
    stream->Finish();
    ExpectObject(context.Client(), "object", bytes);
}

/// Nothing of an unfinished upload can be seen: the folder holds what it held before.
void ExpectUnseen(CContext& context, const std::string& folder) {
    ExpectNoObject(context.Client(), folder + "/object");
    for (const auto& name : List(context.Client(), folder)) {
        Expect(name == "other", "an unfinished upload shows as '" + name + "' in a listing");
    }
    ExpectEqual(context.Client().GetFolderSize(folder), context.Client().IsFileExist(folder + "/other") ? 20U : 0U,
                "the size of a folder with an unfinished upload in it");
}

void UnfinishedUploadIsUnseen(CContext& context) {
    const bytes_t bytes = MakeBytes(1, 100'000);
    Upload(context.Client(), "folder/other", MakeBytes(2, 20));
    const auto stream = context.Client().StartUpload("folder/object", bytes.size());
    ExpectUnseen(context, "folder");
    stream->Write(std::span(bytes).first(50'000));
    ExpectUnseen(context, "folder");
    stream->Write(std::span(bytes).subspan(50'000));
    ExpectUnseen(context, "folder");
    stream->Finish();
    ExpectObject(context.Client(), "folder/object", bytes);
    ExpectList(context.Client(), "folder", {"object", "other"});
}

void OldObjectStaysUntilFinish(CContext& context) {
    const bytes_t old = MakeBytes(1, 1000);
    const bytes_t bytes = MakeBytes(2, 500);
    Upload(context.Client(), "object", old);
    const auto stream = context.Client().StartUpload("object", bytes.size());
    ExpectObject(context.Client(), "object", old);
    stream->Write(bytes);
    ExpectObject(context.Client(), "object", old);
    stream->Finish();
    ExpectObject(context.Client(), "object", bytes);
}

/// Lets an upload of 1000 bytes go after so many were written.
void Abandon(CContext& context, const std::string& path, std::size_t written) {
    const auto stream = context.Client().StartUpload(path, 1000);
    if (written != 0) {
        stream->Write(MakeBytes(9, written));
    }
}

void AbandonedUploadLeavesNothing(CContext& context) {
    for (const std::size_t written : {0UL, 1UL, 999UL, 1000UL}) {
        Abandon(context, "folder/object", written);
        ExpectUnseen(context, "folder");
    }
    context.Reopen();
    ExpectUnseen(context, "folder");
}

void AbandonedUploadLeavesOldObject(CContext& context) {
    const bytes_t old = MakeBytes(1, 500);
    Upload(context.Client(), "folder/object", old);
    for (const std::size_t written : {0UL, 1UL, 999UL, 1000UL}) {
        Abandon(context, "folder/object", written);
        ExpectObject(context.Client(), "folder/object", old);
        ExpectList(context.Client(), "folder", {"object"});
    }
}

void TooManyBytesAreRefused(CContext& context) {
    const bytes_t bytes = MakeBytes(1, 11);
    {
        const auto stream = context.Client().StartUpload("folder/object", 10);
        static_cast<void>(FailureOf("a write of 11 bytes where 10 were announced", [&] { stream->Write(bytes); }));
    }
    ExpectUnseen(context, "folder");
    {
        const auto stream = context.Client().StartUpload("folder/object", 10);
        stream->Write(std::span(bytes).first(10));
        static_cast<void>(FailureOf("a write of one byte past the announced size",
                                    [&] { stream->Write(std::span(bytes).subspan(10)); }));
    }
    ExpectUnseen(context, "folder");
    {
        const auto stream = context.Client().StartUpload("folder/object", 0);
        static_cast<void>(FailureOf("a write where no bytes were announced", [&] { stream->Write(bytes); }));
    }
    ExpectUnseen(context, "folder");
}

void TooFewBytesAreRefused(CContext& context) {
    Upload(context.Client(), "object", MakeBytes(1, 100));
    for (const std::size_t written : {0UL, 1UL, 9UL}) {
        const auto stream = context.Client().StartUpload("object", 10);
        stream->Write(MakeBytes(2, written));
        static_cast<void>(
            FailureOf(exc::Format("the end of an upload after %1 of 10 bytes", written), [&] { stream->Finish(); }));
        ExpectObject(context.Client(), "object", MakeBytes(1, 100));
    }
    ExpectList(context.Client(), "", {"object"});
}

void UploadsSideBySide(CContext& context) {
    const bytes_t first = MakeBytes(1, 1000);
    const bytes_t second = MakeBytes(2, 1000);
    const auto a = context.Client().StartUpload("a", 1000);
    const auto b = context.Client().StartUpload("b", 1000);
    for (std::size_t i = 0; i < 1000; i += 100) {
        a->Write(std::span(first).subspan(i, 100));
        b->Write(std::span(second).subspan(i, 100));
    }
    b->Finish();
    a->Finish();
    ExpectObject(context.Client(), "a", first);
    ExpectObject(context.Client(), "b", second);
}

void LastFinishedUploadWins(CContext& context) {
    const auto first = context.Client().StartUpload("object", 100);
    const auto second = context.Client().StartUpload("object", 200);
    first->Write(MakeBytes(1, 100));
    second->Write(MakeBytes(2, 200));
    second->Finish();
    ExpectObject(context.Client(), "object", MakeBytes(2, 200));
    first->Finish();
    ExpectObject(context.Client(), "object", MakeBytes(1, 100));
    ExpectList(context.Client(), "", {"object"});
}

}  // namespace

void AddUploadStreamChecks(checks_t& checks) {
    checks.insert(checks.end(),
                  {
                      {"StreamedUploadIsRead", StreamedUploadIsRead},
                      {"StreamedUploadReplaces", StreamedUploadReplaces},
                      {"StreamedUploadCreatesParents", StreamedUploadCreatesParents},
                      {"WriteOfNothingIsNothing", WriteOfNothingIsNothing},
                      {"UnfinishedUploadIsUnseen", UnfinishedUploadIsUnseen},
                      {"OldObjectStaysUntilFinish", OldObjectStaysUntilFinish},
                      {"AbandonedUploadLeavesNothing", AbandonedUploadLeavesNothing},
                      {"AbandonedUploadLeavesOldObject", AbandonedUploadLeavesOldObject},
                      {"TooManyBytesAreRefused", TooManyBytesAreRefused},
                      {"TooFewBytesAreRefused", TooFewBytesAreRefused},
                      {"UploadsSideBySide", UploadsSideBySide},
                      {"LastFinishedUploadWins", LastFinishedUploadWins},
                      {"StreamedUploadOf5MiB", [](CContext& context) { RoundTrip(context, 5 * mebibyte, 100'003); }},
                      {.name = "StreamedUploadOf64MiB",
                       .run = [](CContext& context) { RoundTrip(context, 64 * mebibyte, mebibyte); },
                       .large = true},
                  });
}

}  // namespace cloudclientlib::conformance
