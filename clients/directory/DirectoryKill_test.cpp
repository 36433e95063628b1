#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <deque>
#include <map>
#include <optional>
#include <random>

#include "clients/directory/DirectoryClient.h"
#include "clients/directory/TestRoot.h"
#include "common/digest.h"

namespace clients::directory {
namespace {

constexpr unsigned keys = 12;
constexpr int rounds = 40;

std::string PathOf(std::uint32_t key) { return "k" + std::to_string(key % 3) + "/" + std::to_string(key); }

/// What an object holds: its key and version, a body whose length and bytes follow from them, and the digest of it all.
std::string ContentOf(std::uint32_t key, std::uint32_t version) {
    std::mt19937_64 random(std::uint64_t{key} << 32U | version);
    std::string text = std::to_string(key) + " " + std::to_string(version) + "\n";
    const std::size_t length = random() % 300000;
    while (text.size() < length) {
        const std::uint64_t word = random();
        text.append(reinterpret_cast<const char*>(&word), sizeof(word));
    }
    return text + digest::Sha256(text).ToAStr();
}

/// The version that a whole object of the key holds; nothing for anything else.
std::optional<std::uint32_t> VersionIn(std::uint32_t key, const std::string& content) {
    const auto space = content.find(' ');
    const auto end = content.find('\n');
    if (space == std::string::npos || end == std::string::npos || end < space) {
        return std::nullopt;
    }
    const auto version = static_cast<std::uint32_t>(std::stoul(content.substr(space + 1, end - space)));
    return content == ContentOf(key, version) ? std::optional(version) : std::nullopt;
}

/// A success, told to the parent.
struct SAck {
    std::uint32_t key;
    std::uint32_t version;
};

void Acknowledge(int pipe, SAck ack) {
    if (::write(pipe, &ack, sizeof(ack)) != sizeof(ack)) {
        ::_exit(3);
    }
}

void UploadByStream(CDirectoryClient& client, std::uint32_t key, std::uint32_t version) {
    const auto content = ContentOf(key, version);
    const auto stream = client.StartUpload(PathOf(key), content.size());
    const std::size_t half = content.size() / 2;
    stream->Write(std::string_view(content).substr(0, half));
    stream->Write(std::string_view(content).substr(half));
    stream->Finish();
}

/// Uploads for ever, with eight objects in flight and a stream beside them.
[[noreturn]] void UploadUntilKilled(const std::string& root, std::uint32_t firstVersion, int pipe) {
    CDirectoryClient client(root);
    std::deque<std::pair<SAck, task::task_ptr>> inFlight;
    for (std::uint32_t version = firstVersion;; ++version) {
        for (std::uint32_t key = 0; key + 1 < keys; ++key) {
            if (inFlight.size() == 8) {
                inFlight.front().second->Wait();
                Acknowledge(pipe, inFlight.front().first);
                inFlight.pop_front();
            }
            inFlight.emplace_back(SAck{key, version},
                                  client.UploadFileAsync(PathOf(key), Buffer(ContentOf(key, version))));
        }
        UploadByStream(client, keys - 1, version);
        Acknowledge(pipe, {keys - 1, version});
    }
}

/// Starts a child that uploads, and kills it when it has told of `acks` successes. Gives all that it told.
std::vector<SAck> UploadAndKill(const std::string& root, std::uint32_t firstVersion, std::size_t acks) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe(ends.data()), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ends[0]);
        UploadUntilKilled(root, firstVersion, ends[1]);
    }
    ::close(ends[1]);
    std::vector<SAck> told;
    SAck ack{};
    while (::read(ends[0], &ack, sizeof(ack)) == sizeof(ack)) {
        told.push_back(ack);
        if (told.size() == acks) {
            ::kill(child, SIGKILL);  // then reads on, to the end of what was told before
        }
    }
    ::close(ends[0]);
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "status " << status;
    EXPECT_GE(told.size(), acks);
    return told;
}

/// Every object is whole and not older than what was told.
void CheckObjects(CDirectoryClient& client, const std::map<std::uint32_t, std::uint32_t>& told) {
    std::uint64_t count = 0;
    for (const auto& folder : client.QueryFolder("")) {
        EXPECT_TRUE(folder.isFolder) << folder.name;
        for (const auto& object : client.QueryFolder(folder.name)) {
            const auto key = static_cast<std::uint32_t>(std::stoul(object.name));
            const auto version = VersionIn(key, Download(client, PathOf(key)));
            ASSERT_TRUE(version.has_value()) << "object " << key << " is damaged";
            EXPECT_GE(*version, told.contains(key) ? told.at(key) : 0) << "object " << key;
            ++count;
        }
    }
    EXPECT_EQ(client.GetObjectCount(""), count);
    EXPECT_GE(count, told.size());
}

TEST(DirectoryKill, KilledInMidWriteEveryObjectIsWholeAndNothingIsLeftOver) {
    constexpr unsigned seed = 20240611;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const CTestRoot root;
    std::map<std::uint32_t, std::uint32_t> told;
    std::size_t leftovers = 0;
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const auto firstVersion = static_cast<std::uint32_t>(1 + round * 1000);
        for (const auto& ack : UploadAndKill(root.GetPath(), firstVersion, 1 + random() % 60)) {
            told[ack.key] = std::max(told[ack.key], ack.version);
        }
        leftovers += CountFiles(root.In(".cloudbackup-tmp"));
        CDirectoryClient client(root.GetPath());
        EXPECT_EQ(CountEntries(root.In(".cloudbackup-tmp")), 0U);
        CheckObjects(client, told);
    }
    // Were no child ever caught in mid-write, this would test nothing.
    EXPECT_GE(leftovers, static_cast<std::size_t>(rounds) / 4);
    RecordProperty("leftovers", static_cast<int>(leftovers));
}

}  // namespace
}  // namespace clients::directory
