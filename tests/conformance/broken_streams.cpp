#include <map>
#include <utility>

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/conformance/Tools.h"
#include "tests/conformance/HookedClient.h"

namespace cloudclientlib::conformance {

namespace {

/// Uploads that gather what is written; `finish` stores it.
SHooks WithUpload(std::function<void(ICloudClient&, text_t path, unsigned long size, const bytes_t&)> finish) {
    SHooks hooks;
    hooks.startUpload = [finish = std::move(finish)](const client_ptr& client, text_t path, unsigned long size) {
        static_cast<void>(Plain(path));
        const auto bytes = std::make_shared<bytes_t>();
        return std::make_shared<CFunctionUpload>(
            [bytes](std::span<const char> data) { bytes->insert(bytes->end(), data.begin(), data.end()); },
            [finish, client, path, size, bytes] { finish(*client, path, size, *bytes); });
    };
    return hooks;
}

SHooks TakesAnyNumberOfBytes() {
    return WithUpload(
        [](ICloudClient& client, text_t path, unsigned long, const bytes_t& bytes) { Put(client, path, bytes); });
}

SHooks LosesBytesPast100000() {
    return WithUpload([](ICloudClient& client, text_t path, unsigned long, bytes_t bytes) {
        bytes.resize(std::min<std::size_t>(bytes.size(), 100'000));
        Put(client, path, bytes);
    });
}

SHooks WritesStraightToTheObject() {
    SHooks hooks;
    hooks.startUpload = [](const client_ptr& client, text_t path, unsigned long) {
        Put(*client, path, {});
        return std::make_shared<CFunctionUpload>(
            [client, path](std::span<const char> data) {
                bytes_t bytes = Fetch(*client, path);
                bytes.insert(bytes.end(), data.begin(), data.end());
                Put(*client, path, bytes);
            },
            [] {});
    };
    return hooks;
}

/// What is written waits in a file beside the object.
SHooks LeavesTemporaryObjects() {
    SHooks hooks;
    hooks.startUpload = [](const client_ptr& client, text_t path, unsigned long) {
        const std::string temporary = Plain(path) + ".part";
        Put(*client, temporary, {});
        const auto bytes = std::make_shared<bytes_t>();
        return std::make_shared<CFunctionUpload>(
            [=](std::span<const char> data) { bytes->insert(bytes->end(), data.begin(), data.end()); },
            [=] {
                Put(*client, path, *bytes);
                client->DeleteFileAsync(temporary)->Wait();
            });
    };
    return hooks;
}

SHooks RefusesWriteOfNothing() {
    SHooks hooks;
    hooks.startUpload = [](const client_ptr& client, text_t path, unsigned long size) {
        const auto inner = client->StartUpload(path, size);
        return std::make_shared<CFunctionUpload>(
            [inner, path](std::span<const char> data) {
                if (data.empty()) {
                    Fail("StartUpload", path);
                }
                inner->Write(data);
            },
            [inner] { inner->Finish(); });
    };
    return hooks;
}

/// All uploads of a client share one buffer.
SHooks UploadsShareABuffer() {
    SHooks hooks;
    const auto bytes = std::make_shared<bytes_t>();
    hooks.startUpload = [bytes](const client_ptr& client, text_t path, unsigned long) {
        return std::make_shared<CFunctionUpload>(
            [bytes](std::span<const char> data) { bytes->insert(bytes->end(), data.begin(), data.end()); },
            [=] { Put(*client, path, std::exchange(*bytes, {})); });
    };
    return hooks;
}

/// The version that was begun last wins, not the one that was finished last.
SHooks LastBegunUploadWins() {
    SHooks hooks;
    const auto begun = std::make_shared<std::map<std::string, int>>();
    hooks.startUpload = [begun](const client_ptr& client, text_t path, unsigned long size) {
        const int mine = ++(*begun)[path];
        const auto inner = client->StartUpload(path, size);
        return std::make_shared<CFunctionUpload>([inner](std::span<const char> data) { inner->Write(data); },
                                                 [=] {
                                                     if ((*begun)[path] == mine) {
                                                         inner->Finish();
                                                     }
                                                 });
    };
    return hooks;
}

/// A stream over an object that `read` reads: at a position, into a buffer.
using read_t = std::function<std::size_t(ICloudClient&, text_t path, std::size_t position, std::span<char>)>;
SHooks WithDownload(read_t read) {
    SHooks hooks;
    hooks.startDownload = [read = std::move(read)](const client_ptr& client, text_t path) {
        static_cast<void>(client->GetFileSize(path));
        const auto position = std::make_shared<std::size_t>(0);
        return std::make_shared<CFunctionDownload>([=](std::span<char> buffer) {
            const std::size_t count = read(*client, path, *position, buffer);
            *position += count;
            return count;
        });
    };
    return hooks;
}

std::size_t ReadRange(ICloudClient& client, text_t path, std::size_t position, std::span<char> buffer) {
    const auto part = std::make_shared<bytes_t>();
    client.DownloadFileAsync(path, part, position, buffer.size())->Wait();
    std::copy(part->begin(), part->end(), buffer.begin());
    return part->size();
}

/// Each piece is a download of its own, whatever has become of the object.
SHooks StreamsPieceByPiece() {
    return WithDownload([](ICloudClient& client, text_t path, std::size_t position, std::span<char> buffer) {
        try {
            return ReadRange(client, path, position, buffer);
        } catch (const CObjectNotFoundExc&) {
            return std::size_t{0};
        }
    });
}

SHooks StreamFlipsAByte() {
    return WithDownload([](ICloudClient& client, text_t path, std::size_t position, std::span<char> buffer) {
        const std::size_t count = ReadRange(client, path, position, buffer);
        if (count > 0) {
            buffer[count - 1] = static_cast<char>(buffer[count - 1] ^ 1);
        }
        return count;
    });
}

SHooks StreamEndsAt4MiB() {
    return WithDownload([](ICloudClient& client, text_t path, std::size_t position, std::span<char> buffer) {
        return position >= 4 * mebibyte ? 0 : ReadRange(client, path, position, buffer);
    });
}

SHooks StreamBeginsAnewAtItsEnd() {
    SHooks hooks;
    hooks.startDownload = [](const client_ptr& client, text_t path) {
        const auto position = std::make_shared<std::size_t>(0);
        return std::make_shared<CFunctionDownload>([=](std::span<char> buffer) {
            const std::size_t count = ReadRange(*client, path, *position, buffer);
            *position = count == 0 ? 0 : *position + count;
            return count;
        });
    };
    return hooks;
}

SHooks StreamsShareTheirPosition() {
    SHooks hooks;
    const auto positions = std::make_shared<std::map<std::string, std::size_t>>();
    hooks.startDownload = [positions](const client_ptr& client, text_t path) {
        (*positions)[path] = 0;
        return std::make_shared<CFunctionDownload>([=](std::span<char> buffer) {
            const std::size_t count = ReadRange(*client, path, (*positions)[path], buffer);
            (*positions)[path] += count;
            return count;
        });
    };
    return hooks;
}

/// A stream that was let go before its end keeps its connection; there are eight.
SHooks StreamsLetGoAreNotClosed() {
    SHooks hooks;
    const auto connections = std::make_shared<int>(8);
    hooks.startDownload = [connections](const client_ptr& client, text_t path) {
        if (--*connections < 0) {
            Fail("StartDownload", path);
        }
        const auto inner = client->StartDownload(path);
        return std::make_shared<CFunctionDownload>([=](std::span<char> buffer) {
            const std::size_t count = inner->Read(buffer);
            *connections += count == 0 ? 1 : 0;
            return count;
        });
    };
    return hooks;
}

}  // namespace

std::vector<SBroken> BrokenInStreams() {
    return {
        {"TakesAnyNumberOfBytes", TakesAnyNumberOfBytes, {"TooManyBytesAreRefused", "TooFewBytesAreRefused"}},
        {"LosesBytesPast100000",
         LosesBytesPast100000,
         {"StreamedUploadIsRead", "StreamedUploadOf5MiB", "StreamedUploadOf64MiB"}},
        {"WritesStraightToTheObject",
         WritesStraightToTheObject,
         {"UnfinishedUploadIsUnseen", "OldObjectStaysUntilFinish", "AbandonedUploadLeavesNothing",
          "AbandonedUploadLeavesOldObject"}},
        {"LeavesTemporaryObjects",
         LeavesTemporaryObjects,
         {"UnfinishedUploadIsUnseen", "AbandonedUploadLeavesNothing", "AbandonedUploadLeavesOldObject"}},
        {"RefusesWriteOfNothing", RefusesWriteOfNothing, {"WriteOfNothingIsNothing"}},
        {"UploadsShareABuffer", UploadsShareABuffer, {"UploadsSideBySide"}},
        {"LastBegunUploadWins", LastBegunUploadWins, {"LastFinishedUploadWins"}},
        {"StreamsPieceByPiece", StreamsPieceByPiece, {"StreamOfReplacedObject", "StreamOfDeletedObject"}},
        {"StreamFlipsAByte", StreamFlipsAByte, {"StreamHasTheBytes"}},
        {"StreamEndsAt4MiB", StreamEndsAt4MiB, {"StreamOf5MiB", "StreamOf64MiB"}},
        {"StreamBeginsAnewAtItsEnd", StreamBeginsAnewAtItsEnd, {"EndOfStreamStays"}},
        {"StreamsShareTheirPosition", StreamsShareTheirPosition, {"StreamsReadSideBySide"}},
        {"StreamsLetGoAreNotClosed", StreamsLetGoAreNotClosed, {"StreamMayBeLetGo"}},
    };
}

}  // namespace cloudclientlib::conformance
