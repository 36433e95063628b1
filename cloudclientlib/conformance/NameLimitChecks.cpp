#include <algorithm>

#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

/// Names at the borders of what stores take, and names of two objects that a store could take for one.
namespace cloudclientlib::conformance {

namespace {

/// A store may be unable to hold a path; it then refuses it. Returns those that it took, each with `bytesOf` its
/// number.
std::vector<std::size_t> UploadWhatIsTaken(ICloudClient& client, const std::vector<std::string>& paths,
                                           const std::function<bytes_t(std::size_t)>& bytesOf) {
    std::vector<std::size_t> taken;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        try {
            Upload(client, paths[i], bytesOf(i));
            taken.push_back(i);
        } catch (const CCloudExc&) {
            // refused
        }
    }
    return taken;
}

/// What was taken is there by its own name and no other; then goes, one by one.
void ExpectApart(ICloudClient& client, const std::vector<std::string>& paths, const std::vector<std::size_t>& taken,
                 const std::function<bytes_t(std::size_t)>& bytesOf) {
    for (const std::size_t i : taken) {
        ExpectObject(client, paths[i], bytesOf(i));
    }
    for (std::size_t i = 0; i < taken.size(); ++i) {
        client.DeleteFileAsync(paths[taken[i]])->Wait();
        for (std::size_t left = i + 1; left < taken.size(); ++left) {
            Expect(client.IsFileExist(paths[taken[left]]), "an object stays when another of a similar name is deleted");
        }
    }
}

void KeepApartOrRefuse(CContext& context, const std::vector<std::string>& paths) {
    const auto bytesOf = [](std::size_t i) { return MakeBytes(i, 10 + i); };
    const auto taken = UploadWhatIsTaken(context.Client(), paths, bytesOf);
    ExpectApart(context.Client(), paths, taken, bytesOf);
    context.Client().DeleteFolderAsync("folder", nullptr)->Wait();
    ExpectList(context.Client(), "folder", {});
}

void TrailingBlanksAreKeptOrRefused(CContext& context) {
    KeepApartOrRefuse(context, {"folder/a", "folder/a ", "folder/a  ", "folder/ a", "folder/a.", "folder/a. ",
                                "folder/a .", "folder/a\t", "folder/a\xC2\xA0"});
    KeepApartOrRefuse(context, {"folder/b/object", "folder/b /object", "folder/ b/object", "folder/b./object",
                                "folder/b. /object", "folder/b/object ", "folder/b /object "});
}

void EncodedSlashIsNoSeparator(CContext& context) {
    ICloudClient& client = context.Client();
    Upload(client, "folder/a/b", MakeBytes(1, 10));
    Upload(client, "folder/a%2Fb", MakeBytes(2, 20));
    Upload(client, "folder%2Fa/b", MakeBytes(3, 30));
    ExpectList(client, "", {"folder/", "folder%2Fa/"});
    ExpectList(client, "folder", {"a/", "a%2Fb"});
    ExpectList(client, "folder/a", {"b"});
    ExpectObject(client, "folder/a/b", MakeBytes(1, 10));
    ExpectObject(client, "folder/a%2Fb", MakeBytes(2, 20));
    client.DeleteFolderAsync("folder/a", nullptr)->Wait();
    ExpectList(client, "folder", {"a%2Fb"});
    ExpectObject(client, "folder%2Fa/b", MakeBytes(3, 30));
}

/// Every way to reach an object takes its name as it is.
void NamesAreKeptByEveryOperation(CContext& context) {
    ICloudClient& client = context.Client();
    for (const char* given :
         {"a b", "a+b", "a%41", "a%2Fb", "a?b=c&d", "a#b", "a\"b'", "e\xCC\x81", "\xC3\xA9", "a."}) {
        const std::string name = given;
        const std::string path = "folder " + name + '/' + name;
        const bytes_t bytes = MakeBytes(name.size(), 1000);
        StreamUp(client, path, bytes, 300);
        ExpectObject(client, path, bytes);
        ExpectBytes(StreamDown(client, path, 300), bytes, "a stream of '" + path + "'");
        ExpectBytes(DownloadRange(client, path, 0, 5000), bytes, "a range of '" + path + "'");
        client.CopyFileAsync(path, path)->Wait();
        ExpectObject(client, path, bytes);
        ExpectList(client, "folder " + name, {name});
        const auto progress = std::make_shared<CRecordedProgress>();
        client.DeleteFolderAsync("folder " + name, progress)->Wait();
        progress->ExpectAll(1);
        ExpectNoObject(client, path);
    }
    ExpectList(client, "", {});
}

/// A path of so many bytes, in elements of at most 255, of one text over and over; its last byte is `last`.
std::string LongPath(std::size_t size, const std::string& text, char last) {
    constexpr std::size_t element = 250;  // and the filling behind the last
    std::string path;
    std::size_t inElement = 0;
    while (path.size() + text.size() < size) {
        if (inElement + text.size() + 1 > element) {
            path += '/';
            inElement = 0;
        } else {
            path += text;
            inElement += text.size();
        }
    }
    path.resize(size - 1, 'x');
    return path + last;
}

/// As long as any that every store of note takes, with something left for a place's own prefix.
void LongPathsAreKept(CContext& context) {
    ICloudClient& client = context.Client();
    for (const char* text : {"p", "p+", "p\xC3\xA9"}) {
        const std::string first = "top/" + LongPath(896, text, 'a');
        const std::string second = "top/" + LongPath(896, text, 'b');
        Upload(client, first, MakeBytes(1, 100));
        Upload(client, second, MakeBytes(2, 200));
        ExpectObject(client, first, MakeBytes(1, 100));
        ExpectObject(client, second, MakeBytes(2, 200));
        client.CopyFileAsync(first, second)->Wait();
        ExpectObject(client, second, MakeBytes(1, 100));
        StreamUp(client, first, MakeBytes(3, 300), 64);
        ExpectBytes(StreamDown(client, first, 64), MakeBytes(3, 300), "a stream of a long path");
        client.DeleteFolderAsync("top", nullptr)->Wait();
        ExpectList(client, "top", {});
    }
}

/// Around 1,024 bytes in all, where services end, and around it behind a prefix: kept whole or refused, never cut.
void LongestPathsAreKeptOrRefused(CContext& context) {
    std::vector<std::string> paths;
    for (const std::size_t size : {960U, 1000U, 1008U, 1016U, 1023U, 1024U, 1025U, 1100U, 2000U}) {
        for (const char last : {'a', 'b'}) {
            paths.push_back("folder/" + LongPath(size - 7, "q", last));
        }
    }
    KeepApartOrRefuse(context, paths);
}

}  // namespace

void AddNameLimitChecks(checks_t& checks) {
    checks.insert(checks.end(), {
                                    {"TrailingBlanksAreKeptOrRefused", TrailingBlanksAreKeptOrRefused},
                                    {"EncodedSlashIsNoSeparator", EncodedSlashIsNoSeparator},
                                    {"NamesAreKeptByEveryOperation", NamesAreKeptByEveryOperation},
                                    {"LongPathsAreKept", LongPathsAreKept},
                                    {"LongestPathsAreKeptOrRefused", LongestPathsAreKeptOrRefused},
                                });
}

}  // namespace cloudclientlib::conformance
