#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

#include "cloudclientlib/CloudExc.h"
#include "tests/conformance/HookedClient.h"

namespace cloudclientlib::conformance {

namespace {

/// The moment in which a store is not as it should be. Opened once: it stays until another thread has looked, so that
/// no luck is needed to see it. Looks and the breaking exclude each other, so that every look is either before the
/// moment or in it. Safe from any thread.
class CWindow {
public:
    /// Breaks something and blocks until somebody has looked; only the first time, and then returns true.
    template <class Action>
    bool Open(const Action& breakIt) {
        std::unique_lock lock(mutex_);
        if (std::exchange(isUsed_, true)) {
            return false;
        }
        breakIt();
        isOpen_ = true;
        looked_.wait(lock, [this] { return !isOpen_; });
        return true;
    }
    /// Does what sees the window, if it is open; the window closes, also when the look fails.
    template <class Action>
    auto Look(const Action& look) {
        const std::lock_guard lock(mutex_);
        const auto close = [](CWindow* window) {
            window->isOpen_ = false;
            window->looked_.notify_all();
        };
        const std::unique_ptr<CWindow, decltype(close)> atEnd(this, close);
        return look();
    }
    /// Within a look: whether it sees the window.
    [[nodiscard]] bool IsOpen() const { return isOpen_; }

private:
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
        stage.window.Open([&] {
            Put(client, path, bytes_t(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2)));
        });
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
            stage->window.Open([&] { client.DeleteFileAsync(path)->Wait(); });
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

/// Its second page begins at a place by number, and what is deleted moves that.
SHooks ListingSkipsEntriesWhileOthersGo() {
    const auto stage = std::make_shared<SStage>();
    SHooks hooks;
    hooks.deleteFile = [stage](ICloudClient& client, text_t path) {
        client.DeleteFileAsync(path)->Wait();
        stage->window.Open([] {});
    };
    hooks.list = [stage](ICloudClient& client, text_t path) {
        return stage->window.Look([&] {
            auto entries = client.QueryFolder(path);
            if (stage->window.IsOpen()) {
                entries.pop_back();  // one that stays: it comes last in the order of names
            }
            return entries;
        });
    };
    return hooks;
}

SHooks ListingLosesEntriesWhileOthersCome() {
    const auto stage = std::make_shared<SStage>();
    SHooks hooks;
    hooks.upload = [stage](ICloudClient& client, text_t path, const buffer_ptr& data) {
        Put(client, path, *data);
        if (path.find("passing") != std::string::npos) {
            stage->window.Open([] {});
        }
    };
    hooks.list = [stage](ICloudClient& client, text_t path) {
        return stage->window.Look([&] {
            auto entries = client.QueryFolder(path);
            if (stage->window.IsOpen()) {
                entries.pop_back();  // one that stays: those that pass come first in the order of names
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
        const bool isFirst = stage->window.Open([] {});
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
        {"ListingSkipsEntriesWhileOthersGo", ListingSkipsEntriesWhileOthersGo, {"ListingWhileOthersAreDeleted"}},
        {"ThreadsShareABuffer", ThreadsShareABuffer, {"ThreadsDoNotDisturbEachOther"}},
        {"EachClientCaches", EachClientCaches, {"WritersOfTwoClients"}},
    };
}

}  // namespace cloudclientlib::conformance
