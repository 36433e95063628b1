#include <algorithm>
#include <atomic>

#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

/// Folders of more entries than a service tells, or deletes, with one request.
namespace cloudclientlib::conformance {

namespace {

bytes_t Nothing(std::size_t) { return {}; }

/// Many folders with one object each, some with many, and objects whose names lie right before and behind a folder's.
void ListingOf1200Folders(CContext& context) {
    constexpr std::size_t count = 1200;
    ICloudClient& client = context.Client();
    std::vector<std::string> paths;
    std::vector<std::string> entries;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string name = "folder" + std::to_string(i);
        entries.push_back(name + '/');
        for (std::size_t object = 0; object < (i % 100 == 0 ? 20U : 1U); ++object) {
            paths.push_back("top/" + name + "/object" + std::to_string(object));
        }
        for (const char* neighbour : {".x", "!", "-"}) {
            if (i % 100 == 0) {
                entries.push_back(name + neighbour);
                paths.push_back("top/" + entries.back());
            }
        }
    }
    UploadAll(client, paths, [](std::size_t) { return bytes_t{'x'}; });
    ExpectList(client, "top", entries);
    ExpectEqual(client.GetFolderSize("top"), paths.size(), "the size of a folder of many folders");
    client.DeleteFolderAsync("top", nullptr)->Wait();
    ExpectList(client, "top", {});
}

/// More objects than one request of any service deletes, in sub-folders and under names that a document must escape.
void DeletionOf3000(CContext& context) {
    constexpr std::size_t count = 3000;
    ICloudClient& client = context.Client();
    std::vector<std::string> paths{"folder2/object", "folder.x"};
    for (std::size_t i = 0; i < count; ++i) {
        const std::string folder = i % 3 == 0 ? "folder/sub" + std::to_string(i % 50) + '/' : "folder/";
        paths.push_back(folder + (i % 2 == 0 ? "a & b %41+" : "object") + std::to_string(i));
    }
    UploadAll(client, paths, Nothing);
    const auto progress = std::make_shared<CRecordedProgress>();
    client.DeleteFolderAsync("folder", progress)->Wait();
    progress->ExpectAll(count);
    ExpectList(client, "folder", {});
    Expect(!client.IsFolderExist("folder"), "a deleted folder of many objects does not exist");
    ExpectNoObject(client, paths.back());
    ExpectList(client, "", {"folder2/", "folder.x"});
    ExpectObject(client, "folder2/object", {});
}

/// What stays is in every listing once, also when pages are cut anew by what goes between two of them.
void ExpectStable(ICloudClient& client, const std::vector<std::string>& stable) {
    auto names = List(client, "folder");
    Expect(std::adjacent_find(names.begin(), names.end()) == names.end(), "no entry is listed twice");
    std::erase_if(names, [](const std::string& name) { return name.ends_with("passing"); });
    Expect(names == stable, exc::Format("the %1 entries that stay, and no others, are in a listing taken while others "
                                        "are deleted; there are %2",
                                        stable.size(), names.size()));
}

void ListingWhileOthersAreDeleted(CContext& context) {
    constexpr std::size_t count = 1200;
    ICloudClient& client = context.Client();
    std::vector<std::string> passing;
    std::vector<std::string> stable;
    std::vector<std::string> all;
    for (std::size_t i = 0; i < count; ++i) {
        stable.push_back(std::to_string(i) + "stable");
        passing.push_back("folder/" + std::to_string(i) + "passing");
        all.push_back("folder/" + stable.back());
        all.push_back(passing.back());
    }
    std::sort(stable.begin(), stable.end());
    UploadAll(client, all, Nothing);
    std::atomic<bool> isDeleting = true;
    const action_t deletion = [&] {
        const auto end = [](std::atomic<bool>* flag) { *flag = false; };
        const std::unique_ptr<std::atomic<bool>, decltype(end)> atEnd(&isDeleting, end);  // also when one fails
        task::RunWindow(
            count, client.GetConcurrentTaskLimit(), [&](std::size_t i) { return client.DeleteFileAsync(passing[i]); },
            [](std::size_t) {});
    };
    const action_t reader = [&] {
        do {
            ExpectStable(client, stable);
        } while (isDeleting);
    };
    RunTogether({deletion, reader});
    ExpectList(client, "folder", stable);
}

}  // namespace

void AddScaleChecks(checks_t& checks) {
    checks.insert(checks.end(),
                  {
                      {.name = "ListingOf1200Folders", .run = ListingOf1200Folders, .large = true},
                      {.name = "DeletionOf3000", .run = DeletionOf3000, .large = true},
                      {.name = "ListingWhileOthersAreDeleted", .run = ListingWhileOthersAreDeleted, .large = true},
                  });
}

}  // namespace cloudclientlib::conformance
