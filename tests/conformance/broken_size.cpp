#include <algorithm>
#include <map>
#include <mutex>
#include <string>

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/conformance/Tools.h"
#include "tests/conformance/HookedClient.h"

/// Clients that are right for what is small and few.
namespace cloudclientlib::conformance {

namespace {

/// A last part of a single byte is lost.
bytes_t WithoutLastByteBehind(bytes_t bytes, std::size_t part) {
    if (bytes.size() > part && bytes.size() % part == 1) {
        bytes.pop_back();
    }
    return bytes;
}

SHooks LosesTheByteBehindParts() {
    SHooks hooks;
    hooks.upload = [](ICloudClient& client, text_t path, const buffer_ptr& data) {
        bytes_t bytes = *data;
        for (const std::size_t part : {5 * mebibyte, 8 * mebibyte}) {
            bytes = WithoutLastByteBehind(std::move(bytes), part);
        }
        Put(client, path, bytes);
    };
    return hooks;
}

SHooks StreamsRefuseWholeParts() {
    SHooks hooks;
    hooks.startUpload = [](const client_ptr& client, text_t path, unsigned long size) {
        if (size >= 16 * mebibyte && size % (16 * mebibyte) == 0) {
            Fail("StartUpload", path);
        }
        return client->StartUpload(path, size);
    };
    return hooks;
}

SHooks RangesEndWithTheirPart() {
    SHooks hooks;
    hooks.range = [](ICloudClient& client, text_t path, bytes_t& buffer, unsigned long offset, unsigned long size) {
        const unsigned long part = 8 * mebibyte;
        const auto bytes = std::make_shared<bytes_t>();
        client.DownloadFileAsync(path, bytes, offset, std::min(size, part - offset % part))->Wait();
        buffer = *bytes;
    };
    return hooks;
}

SHooks LargeCopiesEndEarly() {
    SHooks hooks;
    hooks.copy = [](ICloudClient& client, text_t source, text_t target) {
        bytes_t bytes = Fetch(client, source);
        bytes.resize(std::min(bytes.size(), 63 * mebibyte));
        Put(client, target, bytes);
    };
    return hooks;
}

SHooks LargeCopiesOntoThemselvesVanish() {
    SHooks hooks;
    hooks.copy = [](ICloudClient& client, text_t source, text_t target) {
        if (source == target && client.GetFileSize(source) > 16 * mebibyte) {
            client.DeleteFileAsync(target)->Wait();
        } else {
            client.CopyFileAsync(source, target)->Wait();
        }
    };
    return hooks;
}

/// The parts of an object's uploads are kept by their numbers, whosever they are: those of even numbers as they came
/// first, the others as they came last, so that no upload keeps all of its own, whichever ends last.
SHooks UploadsShareTheirParts() {
    using parts_t = std::map<std::size_t, bytes_t>;
    SHooks hooks;
    const auto uploads = std::make_shared<std::map<std::string, parts_t>>();
    const auto mutex = std::make_shared<std::mutex>();
    hooks.startUpload = [=](const client_ptr& client, text_t path, unsigned long) {
        const auto number = std::make_shared<std::size_t>(0);
        const auto write = [=](std::span<const char> data) {
            const std::lock_guard lock(*mutex);
            parts_t& parts = (*uploads)[path];
            bytes_t bytes(data.begin(), data.end());
            if (*number % 2 == 0) {
                parts.emplace(*number, std::move(bytes));
            } else {
                parts[*number] = std::move(bytes);
            }
            ++*number;
        };
        const auto finish = [=] {
            const std::lock_guard lock(*mutex);
            bytes_t bytes;
            for (std::size_t i = 0; i < *number; ++i) {
                const bytes_t& part = (*uploads)[path][i];
                bytes.insert(bytes.end(), part.begin(), part.end());
            }
            Put(*client, path, bytes);
        };
        return std::make_shared<CFunctionUpload>(write, finish);
    };
    return hooks;
}

/// A folder whose objects lie on both sides of a page's end is told by both pages.
SHooks FoldersAreListedByEachPage() {
    SHooks hooks;
    hooks.list = [](ICloudClient& client, text_t path) {
        auto entries = client.QueryFolder(path);
        const auto folder = std::find_if(entries.begin(), entries.end(), [](const auto& one) { return one.isFolder; });
        if (entries.size() > 1000 && folder != entries.end()) {
            entries.push_back(SCloudObjectInfo(*folder));
        }
        return entries;
    };
    return hooks;
}

SHooks DeletesOneBatch() {
    SHooks hooks;
    hooks.deleteFolder = [](ICloudClient& client, text_t path, const auto& progress) {
        const auto objects = ObjectsUnder(client, Plain(path));
        if (objects.size() <= 1000) {
            client.DeleteFolderAsync(path, progress)->Wait();
            return;
        }
        for (std::size_t i = 0; i < 1000; ++i) {
            client.DeleteFileAsync(objects[i])->Wait();
        }
        if (progress) {
            progress->SetProgress(1000, 1000);
        }
    };
    return hooks;
}

/// All are deleted, but each batch begins to count anew.
SHooks ProgressIsOfOneBatch() {
    SHooks hooks;
    hooks.deleteFolder = [](ICloudClient& client, text_t path, const auto& progress) {
        const std::size_t count = ObjectsUnder(client, Plain(path)).size();
        client.DeleteFolderAsync(path, nullptr)->Wait();
        for (std::size_t done = 0; progress && done < count; done += 1000) {
            const std::size_t batch = std::min<std::size_t>(1000, count - done);
            progress->SetProgress(batch, batch);
        }
    };
    return hooks;
}

}  // namespace

std::vector<SBroken> BrokenInSize() {
    return {
        {"LosesTheByteBehindParts", LosesTheByteBehindParts, {"SizesAround5MiB", "SizesAround8MiB"}},
        {"StreamsRefuseWholeParts", StreamsRefuseWholeParts, {"SizesAround16MiB"}},
        {"RangesEndWithTheirPart", RangesEndWithTheirPart, {"RangesOverPartBorders", "SizesAround8MiB"}},
        {"LargeCopiesEndEarly", LargeCopiesEndEarly, {"CopyOf64MiB"}},
        {"LargeCopiesOntoThemselvesVanish", LargeCopiesOntoThemselvesVanish, {"CopyOf64MiB"}},
        {"UploadsShareTheirParts", UploadsShareTheirParts, {"LargeUploadsEndAtOnce"}},
        {"FoldersAreListedByEachPage", FoldersAreListedByEachPage, {"ListingOf1200Folders"}},
        {"DeletesOneBatch", DeletesOneBatch, {"DeletionOf3000"}},
        {"ProgressIsOfOneBatch", ProgressIsOfOneBatch, {"DeletionOf3000"}},
    };
}

}  // namespace cloudclientlib::conformance
