#include <algorithm>
#include <map>

#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"
#include "common/digest.h"

namespace cloudclientlib::conformance {

namespace {

/// The one entry of that name in a listing.
SCloudObjectInfo Entry(ICloudClient& client, const std::string& folder, const std::string& name) {
    const auto entries = client.QueryFolder(folder);
    const auto isIt = [&](const SCloudObjectInfo& entry) { return entry.name == name; };
    ExpectEqual(std::count_if(entries.begin(), entries.end(), isIt), 1, exc::Format("entries named '%1'", name));
    return *std::find_if(entries.begin(), entries.end(), isIt);
}

void ListingHasDirectChildren(CContext& context) {
    for (const char* path : {"folder/one", "folder/two", "folder/sub/three", "folder/sub/deep/four", "folder2/five"}) {
        Upload(context.Client(), path, {});
    }
    ExpectList(context.Client(), "folder", {"one", "two", "sub/"});
    ExpectList(context.Client(), "folder/sub", {"three", "deep/"});
    ExpectList(context.Client(), "folder/sub/deep", {"four"});
    ExpectList(context.Client(), "", {"folder/", "folder2/"});
}

void ListingOfMissingFolderIsEmpty(CContext& context) {
    ExpectList(context.Client(), "missing", {});
    ExpectList(context.Client(), "missing/folder", {});
    Upload(context.Client(), "folder/object", {});
    ExpectList(context.Client(), "fold", {});
    ExpectList(context.Client(), "folder/obj", {});
    ExpectList(context.Client(), "folder/missing", {});
}

void ObjectEntryTellsAll(CContext& context) {
    const bytes_t bytes = MakeBytes(1, 12345);
    Upload(context.Client(), "folder/object", bytes);
    const SCloudObjectInfo entry = Entry(context.Client(), "folder", "object");
    Expect(!entry.isFolder, "an object's entry is no folder");
    ExpectEqual(entry.size, 12345U, "the size in an object's entry");
    Expect(!entry.md5 || *entry.md5 == digest::Md5(bytes), "the MD5 in an object's entry, if any, is its content's");
}

void FolderEntryTellsAll(CContext& context) {
    Upload(context.Client(), "folder/sub/object", MakeBytes(1, 100));
    const SCloudObjectInfo entry = Entry(context.Client(), "folder", "sub");
    Expect(entry.isFolder, "a folder's entry is a folder");
    ExpectEqual(entry.size, 0U, "the size in a folder's entry");
    Expect(!entry.md5, "a folder's entry has no MD5");
}

void EntryFollowsObject(CContext& context) {
    for (const std::size_t size : {10UL, 5000UL, 0UL}) {
        const bytes_t bytes = MakeBytes(size, size);
        Upload(context.Client(), "object", bytes);
        const SCloudObjectInfo entry = Entry(context.Client(), "", "object");
        ExpectEqual(entry.size, size, "the size in the entry of a replaced object");
        Expect(!entry.md5 || *entry.md5 == digest::Md5(bytes), "the MD5 in the entry of a replaced object");
    }
    Upload(context.Client(), "source", MakeBytes(7, 777));
    context.Client().CopyFileAsync("source", "object")->Wait();
    ExpectEqual(Entry(context.Client(), "", "object").size, 777U, "the size in the entry of a copy's target");
}

void ListingShowsWritesAtOnce(CContext& context) {
    std::vector<std::string> names;
    for (int i = 0; i < 20; ++i) {
        names.push_back("object" + std::to_string(i));
        Upload(context.Client(), "folder/" + names.back(), {});
        ExpectList(context.Client(), "folder", names);
    }
    while (!names.empty()) {
        context.Client().DeleteFileAsync("folder/" + names.back())->Wait();
        names.pop_back();
        ExpectList(context.Client(), "folder", names);
    }
}

/// Many objects uploaded with as many tasks in flight as the client allows, listed, half of them deleted, listed.
void ListMany(CContext& context, std::size_t count) {
    ICloudClient& client = context.Client();
    std::vector<std::string> names;
    for (std::size_t i = 0; i < count; ++i) {
        names.push_back("object " + std::to_string(i));
    }
    const auto path = [&](std::size_t i) { return "folder/" + names[i]; };
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < count; ++i) {
        paths.push_back(path(i));
    }
    UploadAll(client, paths, [](std::size_t) { return bytes_t(); });
    Upload(client, "folder/sub/object", {});
    names.push_back("sub/");
    ExpectList(client, "folder", names);
    task::RunWindow(
        count / 2, client.GetConcurrentTaskLimit(), [&](std::size_t i) { return client.DeleteFileAsync(path(i)); },
        [](std::size_t) {});
    names.erase(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(count / 2));
    ExpectList(client, "folder", names);
    client.DeleteFolderAsync("folder", nullptr)->Wait();
    ExpectList(client, "folder", {});
}

void ListingWhileDeletingWhatIsListed(CContext& context) {
    for (int i = 0; i < 50; ++i) {
        Upload(context.Client(), "folder/" + std::to_string(i), {});
    }
    std::size_t left = 50;
    for (const auto& entry : context.Client().QueryFolder("folder")) {
        context.Client().DeleteFileAsync("folder/" + entry.name)->Wait();
        ExpectEqual(context.Client().QueryFolder("folder").size(), --left, "the entries left");
    }
    ExpectEqual(left, 0U, "the entries left at the end");
}

}  // namespace

void AddListingChecks(checks_t& checks) {
    checks.insert(
        checks.end(),
        {
            {"ListingHasDirectChildren", ListingHasDirectChildren},
            {"ListingOfMissingFolderIsEmpty", ListingOfMissingFolderIsEmpty},
            {"ObjectEntryTellsAll", ObjectEntryTellsAll},
            {"FolderEntryTellsAll", FolderEntryTellsAll},
            {"EntryFollowsObject", EntryFollowsObject},
            {"ListingShowsWritesAtOnce", ListingShowsWritesAtOnce},
            {"ListingWhileDeletingWhatIsListed", ListingWhileDeletingWhatIsListed},
            {"ListingOf300", [](CContext& context) { ListMany(context, 300); }},
            {.name = "ListingOf2500", .run = [](CContext& context) { ListMany(context, 2500); }, .large = true},
        });
}

}  // namespace cloudclientlib::conformance
