#include <condition_variable>
#include <map>
#include <mutex>

#include "cloudclientlib/CloudExc.h"
#include "tests/conformance/HookedClient.h"

namespace cloudclientlib::conformance {

namespace {

/// The moment in which a store is not as it should be. Opened once: it stays until another thread has looked, so that
/// no luck is needed to see it. Safe from any thread.
class CWindow {
public:
    /// Blocks until a look that began in the window has ended; only the first time, and then returns true.
    bool Open() {
        std::unique_lock lock(mutex_);
        if (isUsed_) {
            return false;
        }
        isUsed_ = true;
        isOpen_ = true;
        looked_.wait(lock, [this] { return !isOpen_; });
        return true;
    }
    /// Does what sees the window, if it is open.
    template <class Action>
    auto Look(const Action& look) {
        const bool isInside = IsOpen();
        const auto end = [&](void*) {
            if (isInside) {
                Close();
            }
        };
        const std::unique_ptr<void, decltype(end)> atEnd(this, end);
        return look();
    }

private:
    bool IsOpen() {
        const std::lock_guard lock(mutex_);
        return isOpen_;
    }
    void Close() {
        const std::lock_guard lock(mutex_);
        isOpen_ = false;
        looked_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable looked_;
    bool isUsed_ = false;  // guarded by mutex_
    bool isOpen_ = false;  // guarded by mutex_
};

/// One window, and writers that take turns, lest one repairs what another broke before it was seen.
struct SStage {
    CWindow window;
    std::mutex writing;
};

/// The reads look into the window.
SHooks WatchedReads(const std::shared_ptr<SStage>& stage) {
    SHooks hooks;
    hooks.download = [stage](ICloudClient& client, text_t path, bytes_t& buffer) {
        buffer = stage->window.Look([&] { return Fetch(client, path); });
    };
    hooks.range = [stage](ICloudClient& client, text_t path, bytes_t& buffer, unsigned long, unsigned long) {
        buffer = stage->window.Look([&] { return Fetch(client, path); });
    };
    hooks.fileExists = [stage](ICloudClient& client, text_t path) {
        return stage->window.Look([&] { return client.IsFileExist(path); });
    };
    hooks.fileSize = [stage](ICloudClient& client, text_t path) {
        return stage->window.Look([&] { return client.GetFileSize(path); });
    };
    hooks.list = [stage](ICloudClient& client, text_t path) {
        return stage->window.Look([&] { return client.QueryFolder(path); });
    };
    return hooks;
}

/// Half of the bytes are there before the rest.
void PutInHalves(SStage& stage, ICloudClient& client, text_t path, const bytes_t& bytes, bool isWatched) {
    const std::lock_guard lock(stage.writing);
    if (isWatched) {
        Put(client, path, bytes_t(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2)));
        stage.window.Open();
    }
    Put(client, path, bytes);
}

/// `isCreationWatched` also for objects that are new.
SHooks UploadsInHalves(bool isCreationWatched) {
    const auto stage = std::make_shared<SStage>();
    SHooks hooks = WatchedReads(stage);
    hooks.upload = [=](ICloudClient& client, text_t path, const buffer_ptr& data) {
        PutInHalves(*stage, client, path, *data, isCreationWatched || client.IsFileExist(path));
    };
    return hooks;
}

SHooks ReplacesInHalves() { return UploadsInHalves(false); }
SHooks CreatesInHalves() { return UploadsInHalves(true); }

SHooks CopiesInHalves() {
    const auto stage = std::make_shared<SStage>();
    SHooks hooks = WatchedReads(stage);
    hooks.copy = [stage](ICloudClient& client, text_t source, text_t target) {
        PutInHalves(*stage, client, target, Fetch(client, source), true);
    };
    return hooks;
}

SHooks DeletesBeforeReplacing() {
    const auto stage = std::make_shared<SStage>();
    SHooks hooks = WatchedReads(stage);
    hooks.upload = [stage](ICloudClient& client, text_t path, const buffer_ptr& data) {
        const std::lock_guard lock(stage->writing);
        if (client.IsFileExist(path)) {
            client.DeleteFileAsync(path)->Wait();
            stage->window.Open();
        }
        Put(client, path, *data);
    };
    return hooks;
}

SHooks StreamsInHalves() {
    const auto stage = std::make_shared<SStage>();
    SHooks hooks = WatchedReads(stage);
    hooks.startUpload = [stage](const client_ptr& client, text_t path, unsigned long) {
        const auto bytes = std::make_shared<bytes_t>();
        return std::make_shared<CFunctionUpload>(
            [bytes](std::span<const char> data) { bytes->insert(bytes->end(), data.begin(), data.end()); },
            [=] { PutInHalves(*stage, *client, path, *bytes, true); });
    };
    return hooks;
}

/// As if the object were replaced after a stream's first piece.
SHooks StreamGoesOnWithAnotherVersion() {
    SHooks hooks;
    hooks.startDownload = [](const client_ptr& client, text_t path) {
        const auto isStarted = std::make_shared<bool>(false);
        return std::make_shared<CFunctionDownload>(
            [isStarted, inner = client->StartDownload(path)](std::span<char> buffer) {
                const std::size_t count = inner->Read(buffer);
                for (char& c : buffer.first(*isStarted ? count : 0)) {
                    c = static_cast<char>(c ^ 1);
                }
                *isStarted = true;
                return count;
            });
    };
    return hooks;
}

/// What passes by hides what stays.
SHooks ListingLosesEntriesWhileOthersCome() {
    const auto stage = std::make_shared<SStage>();
    SHooks hooks;
    hooks.upload = [stage](ICloudClient& client, text_t path, const buffer_ptr& data) {
        Put(client, path, *data);
        if (path.find("passing") != std::string::npos) {
            stage->window.Open();
        }
    };
    hooks.list = [stage](ICloudClient& client, text_t path) {
        return stage->window.Look([&] {
            auto entries = client.QueryFolder(path);
            if (!entries.empty() && entries.front().name.starts_with("passing")) {
                entries.pop_back();
            }
            return entries;
        });
    };
    return hooks;
}

/// What another thread uploads meanwhile gets into the buffer of the first.
SHooks ThreadsShareABuffer() {
    const auto stage = std::make_shared<SStage>();
    const auto shared = std::make_shared<bytes_t>();
    SHooks hooks;
    hooks.upload = [=](ICloudClient& client, text_t path, const buffer_ptr& data) {
        stage->window.Look([&] {
            const std::lock_guard lock(stage->writing);
            *shared = *data;
        });
        const bool isFirst = stage->window.Open();
        const std::lock_guard lock(stage->writing);
        Put(client, path, isFirst ? *shared : *data);
    };
    return hooks;
}

/// Each client reads an object once and keeps it.
SHooks EachClientCaches() {
    SHooks hooks;
    const auto mutex = std::make_shared<std::mutex>();
    const auto cache = std::make_shared<std::map<ICloudClient*, bytes_t>>();
    hooks.download = [=](ICloudClient& client, text_t path, bytes_t& buffer) {
        const std::lock_guard lock(*mutex);
        const auto found = cache->try_emplace(&client, Fetch(client, path)).first;
        buffer = found->second;
    };
    hooks.upload = [=](ICloudClient& client, text_t path, const buffer_ptr& data) {
        const std::lock_guard lock(*mutex);
        (*cache)[&client] = *data;
        Put(client, path, *data);
    };
    return hooks;
}

}  // namespace

std::vector<SBroken> BrokenUnderConcurrency() {
    return {
        {"ReplacesInHalves", ReplacesInHalves, {"UploadIsSeenWhole", "UploadIsSeenWholeByRanges"}},
        {"CreatesInHalves", CreatesInHalves, {"DeletedObjectIsWholeOrGone"}},
        {"CopiesInHalves", CopiesInHalves, {"CopyIsSeenWhole"}},
        {"DeletesBeforeReplacing", DeletesBeforeReplacing, {"ReplacedObjectIsAlwaysThere", "UploadIsSeenWhole"}},
        {"StreamsInHalves", StreamsInHalves, {"StreamedUploadIsSeenWhole"}},
        {"StreamGoesOnWithAnotherVersion", StreamGoesOnWithAnotherVersion, {"StreamSeesOneVersion"}},
        {"ListingLosesEntriesWhileOthersCome", ListingLosesEntriesWhileOthersCome, {"ListingWhileOthersWrite"}},
        {"ThreadsShareABuffer", ThreadsShareABuffer, {"ThreadsDoNotDisturbEachOther"}},
        {"EachClientCaches", EachClientCaches, {"WritersOfTwoClients"}},
    };
}

}  // namespace cloudclientlib::conformance
