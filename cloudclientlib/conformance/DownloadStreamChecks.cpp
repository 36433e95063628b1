#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

namespace cloudclientlib::conformance {

namespace {

void RoundTrip(CContext& context, std::size_t size, std::size_t piece) {
    const bytes_t bytes = MakeBytes(context.Settings().seed + size, size);
    Upload(context.Client(), "object", bytes);
    ExpectBytes(StreamDown(context.Client(), "object", piece), bytes,
                exc::Format("a stream of %1 bytes read in pieces of %2", size, piece));
}

void StreamHasTheBytes(CContext& context) {
    RoundTrip(context, 0, 100);
    RoundTrip(context, 1, 1);
    RoundTrip(context, 1, 100);
    RoundTrip(context, 300, 1);
    RoundTrip(context, 1000, 7);
    RoundTrip(context, 1000, 1000);
    RoundTrip(context, 100'000, 4096);
    RoundTrip(context, mebibyte + 1, 65536);
    RoundTrip(context, 100'000, mebibyte);
}

void EndOfStreamStays(CContext& context) {
    Upload(context.Client(), "object", MakeBytes(1, 100));
    const auto stream = context.Client().StartDownload("object");
    ExpectBytes(ReadAll(*stream, 30), MakeBytes(1, 100), "the stream");
    bytes_t buffer(30);
    ExpectEqual(stream->Read(buffer), 0U, "bytes read at the end");
    ExpectEqual(stream->Read(buffer), 0U, "bytes read at the end once more");
}

void StreamsReadSideBySide(CContext& context) {
    const bytes_t bytes = MakeBytes(1, 100'000);
    Upload(context.Client(), "object", bytes);
    const auto first = context.Client().StartDownload("object");
    bytes_t head(1000);
    const std::size_t count = first->Read(head);
    Expect(count > 0, "the first read of a stream brings bytes");
    head.resize(count);
    ExpectBytes(StreamDown(context.Client(), "object", 3000), bytes, "a second stream of the object");
    const bytes_t tail = ReadAll(*first, 5000);
    head.insert(head.end(), tail.begin(), tail.end());
    ExpectBytes(head, bytes, "the first stream, read on after the second");
}

void StreamMayBeLetGo(CContext& context) {
    const bytes_t bytes = MakeBytes(1, 5 * mebibyte);
    Upload(context.Client(), "object", bytes);
    for (int round = 0; round < 10; ++round) {
        bytes_t buffer(1000);
        Expect(context.Client().StartDownload("object")->Read(buffer) > 0, "the first read of a stream brings bytes");
        static_cast<void>(context.Client().StartDownload("object"));
    }
    ExpectObject(context.Client(), "object", bytes);
}

/// A stream that was begun before the object changes: the old version whole, a new one whole, or a failure.
void ReadWhileChanging(CContext& context, bool isStarted, const action_t& change, const bytes_t& after) {
    const bytes_t before = MakeBytes(1, mebibyte);
    Upload(context.Client(), "object", before);
    const auto stream = context.Client().StartDownload("object");
    bytes_t bytes(isStarted ? 1000 : 0);
    if (isStarted) {
        bytes.resize(stream->Read(bytes));
    }
    change();
    try {
        const bytes_t rest = ReadAll(*stream, 10'000);
        bytes.insert(bytes.end(), rest.begin(), rest.end());
    } catch (const CCloudExc&) {
        return;
    }
    Expect(bytes == before || (!isStarted && bytes == after), "a stream reads one version of an object, whole");
}

void StreamOfReplacedObject(CContext& context) {
    for (const std::size_t size : {0UL, 5000UL, mebibyte, 2 * mebibyte}) {
        const bytes_t after = MakeBytes(2, size);
        for (const bool isStarted : {false, true}) {
            ReadWhileChanging(
                context, isStarted, [&] { Upload(context.Client(), "object", after); }, after);
        }
    }
}

void StreamOfDeletedObject(CContext& context) {
    for (const bool isStarted : {false, true}) {
        ReadWhileChanging(
            context, isStarted, [&] { context.Client().DeleteFileAsync("object")->Wait(); }, MakeBytes(1, mebibyte));
        ExpectNoObject(context.Client(), "object");
    }
}

}  // namespace

void AddDownloadStreamChecks(checks_t& checks) {
    checks.insert(checks.end(),
                  {
                      {"StreamHasTheBytes", StreamHasTheBytes},
                      {"EndOfStreamStays", EndOfStreamStays},
                      {"StreamsReadSideBySide", StreamsReadSideBySide},
                      {"StreamMayBeLetGo", StreamMayBeLetGo},
                      {"StreamOfReplacedObject", StreamOfReplacedObject},
                      {"StreamOfDeletedObject", StreamOfDeletedObject},
                      {"StreamOf5MiB", [](CContext& context) { RoundTrip(context, 5 * mebibyte, 100'003); }},
                      {.name = "StreamOf64MiB",
                       .run = [](CContext& context) { RoundTrip(context, 64 * mebibyte, mebibyte); },
                       .large = true},
                  });
}

}  // namespace cloudclientlib::conformance
