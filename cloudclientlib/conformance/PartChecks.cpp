#include <algorithm>

#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

/// Objects that a client may move in several requests. Where a part ends is the client's affair; the sizes are those
/// that services and clients commonly take.
namespace cloudclientlib::conformance {

namespace {

bytes_t Part(const bytes_t& bytes, std::size_t offset, std::size_t size) {
    const std::size_t begin = std::min(offset, bytes.size());
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(begin);
    return {first, first + static_cast<std::ptrdiff_t>(std::min(size, bytes.size() - begin))};
}

void ExpectPart(ICloudClient& client, const bytes_t& bytes, std::size_t offset, std::size_t size) {
    ExpectBytes(DownloadRange(client, "object", offset, size), Part(bytes, offset, size),
                exc::Format("%1 bytes at %2 of an object of %3 bytes", size, offset, bytes.size()));
}

/// What begins right before a border, at it and behind it, and what ends there.
void ExpectPartsAround(ICloudClient& client, const bytes_t& bytes, std::size_t border) {
    ExpectPart(client, bytes, border - 1, 1);
    ExpectPart(client, bytes, border - 1, 2);
    ExpectPart(client, bytes, border, 1);
    ExpectPart(client, bytes, border - 1000, 3000);
}

/// One byte less than a border, just it, and one more; uploaded at once and by stream, read the other way.
void SizesAround(CContext& context, std::size_t border) {
    ICloudClient& client = context.Client();
    for (const std::size_t size : {border - 1, border, border + 1}) {
        const bytes_t whole = MakeBytes(context.Settings().seed + size, size);
        Upload(client, "object", whole);
        ExpectEqual(client.GetFileSize("object"), size, "the size of an object that was uploaded at once");
        ExpectBytes(StreamDown(client, "object", 1'000'003), whole, exc::Format("a stream of %1 bytes", size));
        ExpectPartsAround(client, whole, border);
        const bytes_t streamed = MakeBytes(context.Settings().seed + size + 1, size);
        StreamUp(client, "object", streamed, 1'000'003);
        ExpectObject(client, "object", streamed);
        ExpectPartsAround(client, streamed, border);
    }
    ExpectList(client, "", {"object"});
}

void RangesOverPartBorders(CContext& context) {
    ICloudClient& client = context.Client();
    const bytes_t bytes = MakeBytes(context.Settings().seed, 64 * mebibyte + 1);
    StreamUp(client, "object", bytes, 3 * mebibyte + 1);
    for (const std::size_t part : {5 * mebibyte, 8 * mebibyte, 16 * mebibyte}) {
        for (std::size_t border = part; border < bytes.size(); border += part) {
            ExpectPart(client, bytes, border - 2, 5);
        }
        ExpectPart(client, bytes, part - 1, part + 2);
    }
    const std::size_t end = bytes.size();
    ExpectPart(client, bytes, end - 1, 1);
    ExpectPart(client, bytes, end - 2, std::size_t{1} << 40U);
    ExpectPart(client, bytes, end, 1);
    ExpectPart(client, bytes, end + 1, std::size_t{1} << 40U);
    ExpectBytes(StreamDown(client, "object", 5 * mebibyte - 1), bytes, "a stream of an object of many parts");
}

void CopyOf64MiB(CContext& context) {
    ICloudClient& client = context.Client();
    const bytes_t bytes = MakeBytes(context.Settings().seed, 64 * mebibyte);
    Upload(client, "folder/source", bytes);
    client.CopyFileAsync("folder/source", "folder/target")->Wait();
    ExpectObject(client, "folder/target", bytes);
    client.CopyFileAsync("folder/target", "folder/target")->Wait();
    ExpectObject(client, "folder/target", bytes);
    client.DeleteFileAsync("folder/source")->Wait();
    ExpectBytes(DownloadRange(client, "folder/target", 33 * mebibyte - 7, 100), Part(bytes, 33 * mebibyte - 7, 100),
                "a range of the copy of an object that is gone");
    ExpectList(client, "folder", {"target"});
}

/// Writes in steps, so that the parts of two uploads come by turns.
void WriteByTurns(const std::vector<std::shared_ptr<IUploadStream>>& streams, const std::vector<bytes_t>& contents) {
    constexpr std::size_t step = 2 * mebibyte + 11;
    for (std::size_t begin = 0;; begin += step) {
        bool isLeft = false;
        for (std::size_t i = 0; i < streams.size(); ++i) {
            const bytes_t piece = Part(contents[i], begin, step);
            if (!piece.empty()) {
                streams[i]->Write(piece);
                isLeft = true;
            }
        }
        if (!isLeft) {
            return;
        }
    }
}

/// Two uploads of large objects that end at once. One may lose with a failure that says to try again, as some services
/// have it; the object is whole, and is one that was told to be written.
void LargeUploadsEndAtOnce(CContext& context) {
    ICloudClient& client = context.Client();
    const std::vector<bytes_t> contents{MakeBytes(1, 17 * mebibyte), MakeBytes(2, 20 * mebibyte)};
    const std::vector<std::shared_ptr<IUploadStream>> streams{client.StartUpload("object", contents[0].size()),
                                                              client.StartUpload("object", contents[1].size())};
    WriteByTurns(streams, contents);
    std::vector<char> isWritten{0, 0};  // no vector<bool>: each is another thread's
    const auto finish = [&](std::size_t i) {
        try {
            streams[i]->Finish();
            isWritten[i] = 1;
        } catch (const CCloudExc& failure) {
            Expect(failure.IsRetryable(),
                   std::string("an upload beside another may be tried again: ") + failure.what());
        }
    };
    RunTogether({[&] { finish(0); }, [&] { finish(1); }});
    const bytes_t bytes = Download(client, "object");
    Expect((isWritten[0] != 0 && bytes == contents[0]) || (isWritten[1] != 0 && bytes == contents[1]),
           exc::Format("of two uploads at once one stays, whole (%1 bytes)", bytes.size()));
    ExpectEqual(client.GetFileSize("object"), bytes.size(), "the size of the object that stays");
    ExpectList(client, "", {"object"});
}

}  // namespace

void AddPartChecks(checks_t& checks) {
    const auto around = [](std::size_t border) {
        return [border](CContext& context) { SizesAround(context, border); };
    };
    checks.insert(checks.end(), {
                                    {.name = "SizesAround5MiB", .run = around(5 * mebibyte), .large = true},
                                    {.name = "SizesAround8MiB", .run = around(8 * mebibyte), .large = true},
                                    {.name = "SizesAround16MiB", .run = around(16 * mebibyte), .large = true},
                                    {.name = "RangesOverPartBorders", .run = RangesOverPartBorders, .large = true},
                                    {.name = "CopyOf64MiB", .run = CopyOf64MiB, .large = true},
                                    {.name = "LargeUploadsEndAtOnce", .run = LargeUploadsEndAtOnce, .large = true},
                                });
}

}  // namespace cloudclientlib::conformance
