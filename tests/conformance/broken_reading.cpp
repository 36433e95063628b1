#include <algorithm>
#include <map>

#include "cloudclientlib/CloudExc.h"
#include "common/digest.h"
#include "tests/conformance/HookedClient.h"

namespace cloudclientlib::conformance {

namespace {

using entries_t = std::vector<SCloudObjectInfo>;

/// A client whose ranges are read as `change` says, of the object's size.
SHooks WithRange(std::function<void(std::uint64_t objectSize, unsigned long& offset, unsigned long& size)> change) {
    SHooks hooks;
    hooks.range = [change = std::move(change)](ICloudClient& client, text_t path, bytes_t& buffer, unsigned long offset,
                                               unsigned long size) {
        change(client.GetFileSize(path), offset, size);
        const auto part = std::make_shared<bytes_t>();
        client.DownloadFileAsync(path, part, offset, size)->Wait();
        buffer = *part;
    };
    return hooks;
}

SHooks RangeBringsOneByteTooMany() {
    return WithRange([](std::uint64_t, unsigned long&, unsigned long& size) { size += size < 1'000'000 ? 1 : 0; });
}

SHooks RangeBeyondEndFails() {
    return WithRange([](std::uint64_t objectSize, unsigned long& offset, unsigned long& size) {
        if (offset < objectSize && size > objectSize - offset) {
            Fail("DownloadFile", "beyond the end");
        }
    });
}

SHooks RangeAtEndFails() {
    return WithRange([](std::uint64_t objectSize, unsigned long& offset, unsigned long&) {
        if (offset >= objectSize) {
            Fail("DownloadFile", "not satisfiable");
        }
    });
}

SHooks RangeOfNoBytesIsAll() {
    return WithRange([](std::uint64_t, unsigned long&, unsigned long& size) { size = size == 0 ? ~0UL : size; });
}

SHooks RangesFarInsideAreShifted() {
    return WithRange([](std::uint64_t, unsigned long& offset, unsigned long&) { offset += offset > 65536 ? 1 : 0; });
}

/// What reads of missing objects throw, without its class.
template <class Action>
auto Vaguely(text_t operation, text_t path, const Action& action) {
    try {
        return action();
    } catch (const CObjectNotFoundExc&) {
        Fail(operation, path);
    }
}

SHooks MissingIsAVagueFailure() {
    SHooks hooks;
    hooks.download = [](ICloudClient& client, text_t path, bytes_t& buffer) {
        buffer = Vaguely("DownloadFile", path, [&] { return Fetch(client, path); });
    };
    hooks.retrieve = [](ICloudClient& client, text_t path) {
        Vaguely("RetrieveArchive", path, [&] { client.RetrieveArchive(path, {}); });
    };
    return hooks;
}

SHooks FolderReadsAsEmptyObject() {
    SHooks hooks;
    hooks.download = [](ICloudClient& client, text_t path, bytes_t& buffer) {
        buffer = client.IsFolderExist(path) ? bytes_t() : Fetch(client, path);
    };
    return hooks;
}

SHooks ListingUnderObjectFails() {
    SHooks hooks;
    hooks.list = [](ICloudClient& client, text_t path) {
        if (client.IsFileExist(path)) {
            Fail("QueryFolder", path);
        }
        return client.QueryFolder(path);
    };
    return hooks;
}

SHooks ListingOfMissingFails() {
    SHooks hooks;
    hooks.list = [](ICloudClient& client, text_t path) {
        if (!client.IsFolderExist(path)) {
            throw CObjectNotFoundExc("QueryFolder", path);
        }
        return client.QueryFolder(path);
    };
    return hooks;
}

/// A client whose listings are changed on their way.
SHooks WithListing(std::function<void(entries_t& entries)> change) {
    SHooks hooks;
    hooks.list = [change = std::move(change)](ICloudClient& client, text_t path) {
        auto entries = client.QueryFolder(path);
        change(entries);
        return entries;
    };
    return hooks;
}

SHooks ListingMissesAnEntry() {
    return WithListing([](entries_t& entries) {
        if (entries.size() > 1) {
            entries.pop_back();
        }
    });
}

SHooks ListingHasAnEntryTwice() {
    return WithListing([](entries_t& entries) {
        if (!entries.empty()) {
            entries.push_back(entries.front());
        }
    });
}

SHooks ListingEndsWithItsFirstPage() {
    return WithListing([](entries_t& entries) { entries.resize(std::min<std::size_t>(entries.size(), 250)); });
}

SHooks EntriesHaveAnotherMd5() {
    return WithListing([](entries_t& entries) {
        for (auto& entry : entries) {
            entry.md5 = digest::Md5(std::string("another"));
        }
    });
}

SHooks FolderEntriesHaveASize() {
    return WithListing([](entries_t& entries) {
        for (auto& entry : entries) {
            entry.size += entry.isFolder ? 4096 : 0;
        }
    });
}

SHooks EntriesAreAllObjects() {
    return WithListing([](entries_t& entries) {
        for (auto& entry : entries) {
            entry.isFolder = false;
        }
    });
}

SHooks SizesAreRounded() {
    SHooks hooks = WithListing([](entries_t& entries) {
        for (auto& entry : entries) {
            entry.size = (entry.size + 511) / 512 * 512;
        }
    });
    hooks.fileSize = [](ICloudClient& client, text_t path) { return (client.GetFileSize(path) + 511) / 512 * 512; };
    return hooks;
}

SHooks QuotaIsOverdrawn() {
    SHooks hooks;
    hooks.quota = [](ICloudClient&) { return SStorageQuota{.total = 10, .used = 11}; };
    return hooks;
}

SHooks RetrievalOfOnlineObjectFails() {
    SHooks hooks;
    hooks.retrieve = [](ICloudClient&, text_t path) { Fail("RetrieveArchive", path); };
    return hooks;
}

SHooks EveryObjectIsArchived() {
    SHooks hooks;
    hooks.status = [](ICloudClient&, text_t) { return EArchiveRetrievalStatus::archived; };
    return hooks;
}

}  // namespace

std::vector<SBroken> BrokenInReading() {
    return {
        {"RangeBringsOneByteTooMany", RangeBringsOneByteTooMany, {"RangeInsideObject", "RangeOfNoBytesIsEmpty"}},
        {"RangeBeyondEndFails", RangeBeyondEndFails, {"RangeBeyondEndIsCut"}},
        {"RangeAtEndFails", RangeAtEndFails, {"RangeAtEndIsEmpty", "RangeOfEmptyObject"}},
        {"RangeOfNoBytesIsAll", RangeOfNoBytesIsAll, {"RangeOfNoBytesIsEmpty"}},
        {"RangesFarInsideAreShifted", RangesFarInsideAreShifted, {"RandomRanges"}},
        {"MissingIsAVagueFailure", MissingIsAVagueFailure, {"MissingObjectIsNotFound", "ArchiveOfMissingIsNotFound"}},
        {"FolderReadsAsEmptyObject", FolderReadsAsEmptyObject, {"FolderIsNotFoundAsObject"}},
        {"ListingUnderObjectFails", ListingUnderObjectFails, {"NothingIsFoundUnderObject"}},
        {"ListingOfMissingFails", ListingOfMissingFails, {"ListingOfMissingFolderIsEmpty"}},
        {"ListingMissesAnEntry",
         ListingMissesAnEntry,
         {"ListingHasDirectChildren", "ListingOf300", "ListingOf2500", "ListingShowsWritesAtOnce",
          "ListingWhileOthersWrite"}},
        {"ListingHasAnEntryTwice", ListingHasAnEntryTwice, {"ListingHasDirectChildren", "ListingWhileOthersWrite"}},
        {"ListingEndsWithItsFirstPage", ListingEndsWithItsFirstPage, {"ListingOf300", "ListingOf2500"}},
        {"EntriesHaveAnotherMd5", EntriesHaveAnotherMd5, {"ObjectEntryTellsAll", "EntryFollowsObject"}},
        {"FolderEntriesHaveASize", FolderEntriesHaveASize, {"FolderEntryTellsAll"}},
        {"EntriesAreAllObjects", EntriesAreAllObjects, {"ListingHasDirectChildren", "FolderEntryTellsAll"}},
        {"SizesAreRounded",
         SizesAreRounded,
         {"ObjectEntryTellsAll", "UploadedObjectIsRead", "ReplacedObjectIsAlwaysThere"}},
        {"QuotaIsOverdrawn", QuotaIsOverdrawn, {"QuotaIsTold"}},
        {"RetrievalOfOnlineObjectFails", RetrievalOfOnlineObjectFails, {"RetrievalOfOnlineObjectSucceeds"}},
        {"EveryObjectIsArchived", EveryObjectIsArchived, {"OnlineObjectIsToldOnline", "ArchiveOfMissingIsNotFound"}},
    };
}

}  // namespace cloudclientlib::conformance
