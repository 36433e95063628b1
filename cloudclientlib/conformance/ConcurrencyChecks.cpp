#include <algorithm>
#include <atomic>

#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

namespace cloudclientlib::conformance {

namespace {

/// Versions of one object that can be told from each other and from any mixture: one letter, a size of its own.
constexpr std::size_t versions = 8;
std::size_t SizeOfVersion(std::size_t number) { return 20'000 + 9'001 * number; }
bytes_t Version(std::size_t number) {
    return bytes_t(SizeOfVersion(number % versions), static_cast<char>('a' + number % versions));
}

void ExpectWhole(const bytes_t& bytes, const std::string& what) {
    Expect(!bytes.empty(), what + ": one version whole, not an empty object");
    const auto number = static_cast<std::size_t>(bytes.front() - 'a');
    Expect(number < versions && bytes == Version(number),
           what + exc::Format(": one version whole, not a mixture (%1 bytes)", bytes.size()));
}

bool IsSizeOfVersion(std::uint64_t size) {
    for (std::size_t number = 0; number < versions; ++number) {
        if (size == SizeOfVersion(number)) {
            return true;
        }
    }
    return false;
}

/// Two writers, which do `write` for 0, 1, ... as often as the settings say, and beside them two readers, which do
/// `read` over and over until the writers are done.
void Hammer(CContext& context, const std::function<void(std::size_t)>& write, const action_t& read) {
    std::atomic<int> writing = 2;
    const action_t writer = [&] {
        const auto end = [&](void*) { --writing; };
        const std::unique_ptr<void, decltype(end)> atEnd(&writing, end);  // also when a write fails
        for (std::size_t round = 0; round < context.Settings().rounds; ++round) {
            write(round);
        }
    };
    const action_t reader = [&] {
        do {
            read();
        } while (writing > 0);
    };
    RunTogether({writer, writer, reader, reader});
}

void UploadIsSeenWhole(CContext& context) {
    ICloudClient& client = context.Client();
    Upload(client, "folder/object", Version(0));
    Hammer(
        context, [&](std::size_t round) { Upload(client, "folder/object", Version(round)); },
        [&] { ExpectWhole(Download(client, "folder/object"), "a download while the object is replaced"); });
    ExpectWhole(Download(client, "folder/object"), "the object that two writers left");
    ExpectList(client, "folder", {"object"});
}

void UploadIsSeenWholeByRanges(CContext& context) {
    ICloudClient& client = context.Client();
    Upload(client, "object", Version(0));
    Hammer(
        context, [&](std::size_t round) { Upload(client, "object", Version(round)); },
        [&] { ExpectWhole(DownloadRange(client, "object", 0, 1'000'000), "a range while the object is replaced"); });
}

void StreamedUploadIsSeenWhole(CContext& context) {
    ICloudClient& client = context.Client();
    Upload(client, "object", Version(0));
    Hammer(
        context, [&](std::size_t round) { StreamUp(client, "object", Version(round), 10'000); },
        [&] { ExpectWhole(Download(client, "object"), "a download while a stream replaces the object"); });
    ExpectWhole(Download(client, "object"), "the object that two streams left");
    ExpectList(client, "", {"object"});
}

void CopyIsSeenWhole(CContext& context) {
    ICloudClient& client = context.Client();
    Upload(client, "target", Version(0));
    for (std::size_t number = 0; number < versions; ++number) {
        Upload(client, "sources/" + std::to_string(number), Version(number));
    }
    Hammer(
        context,
        [&](std::size_t round) {
            client.CopyFileAsync("sources/" + std::to_string(round % versions), "target")->Wait();
        },
        [&] { ExpectWhole(Download(client, "target"), "a download while copies replace the object"); });
}

void StreamSeesOneVersion(CContext& context) {
    ICloudClient& client = context.Client();
    Upload(client, "object", Version(0));
    Hammer(
        context, [&](std::size_t round) { Upload(client, "object", Version(round)); },
        [&] {
            try {
                ExpectWhole(StreamDown(client, "object", 3000), "a streamed download while the object is replaced");
            } catch (const CObjectNotFoundExc&) {
                throw;  // it is always there
            } catch (const CCloudExc&) {
                // A stream may tell that the object changed.
            }
        });
}

void ReplacedObjectIsAlwaysThere(CContext& context) {
    ICloudClient& client = context.Client();
    Upload(client, "folder/object", Version(0));
    Hammer(
        context, [&](std::size_t round) { Upload(client, "folder/object", Version(round)); },
        [&] {
            Expect(client.IsFileExist("folder/object"), "an object exists all the while it is replaced");
            Expect(IsSizeOfVersion(client.GetFileSize("folder/object")), "the size is always a version's");
            const auto entries = client.QueryFolder("folder");
            ExpectEqual(entries.size(), 1U, "the entries of a folder while its one object is replaced");
            Expect(IsSizeOfVersion(entries.front().size), "the size in the listing is always a version's");
        });
}

void DeletedObjectIsWholeOrGone(CContext& context) {
    ICloudClient& client = context.Client();
    Hammer(
        context,
        [&](std::size_t round) {
            Upload(client, "folder/object", Version(round));
            client.DeleteFileAsync("folder/object")->Wait();
        },
        [&] {
            try {
                ExpectWhole(Download(client, "folder/object"), "a download while the object comes and goes");
            } catch (const CObjectNotFoundExc&) {
                // gone for the moment
            }
        });
    ExpectNoObject(client, "folder/object");
}

void WritersOfTwoClients(CContext& context) {
    const auto second = context.OpenSecond();
    Upload(context.Client(), "object", Version(0));
    const std::vector<ICloudClient*> clients{&context.Client(), second.get()};
    Hammer(
        context, [&](std::size_t round) { Upload(*clients[round % 2], "object", Version(round)); },
        [&] {
            ExpectWhole(Download(*second, "object"), "a download through a second client");
            ExpectWhole(Download(context.Client(), "object"), "a download through the first client");
        });
    ExpectBytes(Download(*second, "object"), Download(context.Client(), "object"), "the object through both clients");
}

void ListingWhileOthersWrite(CContext& context) {
    ICloudClient& client = context.Client();
    std::vector<std::string> stable;
    for (int i = 0; i < 20; ++i) {
        stable.push_back("stable" + std::to_string(i));
        Upload(client, "folder/" + stable.back(), {});
    }
    std::sort(stable.begin(), stable.end());
    Hammer(
        context,
        [&](std::size_t round) {
            const std::string path = "folder/passing" + std::to_string(round % 10);
            Upload(client, path, {});
            client.DeleteFileAsync(path)->Wait();
        },
        [&] {
            auto names = List(client, "folder");
            Expect(std::adjacent_find(names.begin(), names.end()) == names.end(), "no entry is listed twice");
            std::erase_if(names, [](const std::string& name) { return name.starts_with("passing"); });
            Expect(names == stable, "entries that stay are in every listing taken while others come and go");
        });
    ExpectList(client, "folder", stable);
}

/// What one thread does with objects that no other touches.
void WorkAlone(ICloudClient& client, std::size_t thread, std::size_t rounds) {
    const std::string folder = "thread" + std::to_string(thread);
    for (std::size_t round = 0; round < rounds; ++round) {
        const std::string name = "object" + std::to_string(round % 5);
        const bytes_t bytes = MakeBytes(thread * 1000 + round, 1000 + round);
        Upload(client, folder + '/' + name, bytes);
        ExpectObject(client, folder + '/' + name, bytes);
        ExpectList(client, folder, {name});
        client.DeleteFileAsync(folder + '/' + name)->Wait();
        ExpectNoObject(client, folder + '/' + name);
    }
}

void ThreadsDoNotDisturbEachOther(CContext& context) {
    std::vector<action_t> actions;
    for (std::size_t thread = 0; thread < 6; ++thread) {
        actions.emplace_back([&context, thread] { WorkAlone(context.Client(), thread, context.Settings().rounds); });
    }
    RunTogether(actions);
}

void ParentsAreCreatedAtOnce(CContext& context) {
    for (unsigned round = 0; round < std::min(context.Settings().rounds, 20U); ++round) {
        const std::string folder = "round" + std::to_string(round) + "/a/b/c";
        std::vector<action_t> actions;
        for (std::size_t i = 0; i < 4; ++i) {
            actions.emplace_back([&context, &folder, i] {
                Upload(context.Client(), folder + "/object" + std::to_string(i), MakeBytes(i, 10));
            });
        }
        actions.emplace_back([&] { context.Client().CreateFolderAsync(folder)->Wait(); });
        RunTogether(actions);
        ExpectList(context.Client(), folder, {"object0", "object1", "object2", "object3"});
    }
}

void DeletionsAtOnce(CContext& context) {
    ICloudClient& client = context.Client();
    for (unsigned round = 0; round < std::min(context.Settings().rounds, 20U); ++round) {
        for (int i = 0; i < 10; ++i) {
            Upload(client, "folder/sub/object" + std::to_string(i), {});
        }
        const action_t deletion = [&] { client.DeleteFolderAsync("folder", nullptr)->Wait(); };
        const action_t objectDeletion = [&] { client.DeleteFileAsync("folder/sub/object3")->Wait(); };
        RunTogether({deletion, objectDeletion, deletion, objectDeletion});
        ExpectList(client, "folder", {});
        ExpectEqual(client.GetFolderSize("folder"), 0U, "the size of a folder deleted by two");
    }
}

}  // namespace

void AddConcurrencyChecks(checks_t& checks) {
    checks.insert(checks.end(), {
                                    {"UploadIsSeenWhole", UploadIsSeenWhole},
                                    {"UploadIsSeenWholeByRanges", UploadIsSeenWholeByRanges},
                                    {"StreamedUploadIsSeenWhole", StreamedUploadIsSeenWhole},
                                    {"CopyIsSeenWhole", CopyIsSeenWhole},
                                    {"StreamSeesOneVersion", StreamSeesOneVersion},
                                    {"ReplacedObjectIsAlwaysThere", ReplacedObjectIsAlwaysThere},
                                    {"DeletedObjectIsWholeOrGone", DeletedObjectIsWholeOrGone},
                                    {"WritersOfTwoClients", WritersOfTwoClients},
                                    {"ListingWhileOthersWrite", ListingWhileOthersWrite},
                                    {"ThreadsDoNotDisturbEachOther", ThreadsDoNotDisturbEachOther},
                                    {"ParentsAreCreatedAtOnce", ParentsAreCreatedAtOnce},
                                    {"DeletionsAtOnce", DeletionsAtOnce},
                                });
}

}  // namespace cloudclientlib::conformance
