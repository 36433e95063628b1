#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <thread>

#include "clients/directory/DirectoryClient.h"
#include "clients/directory/TestRoot.h"

namespace clients::directory {
namespace {

namespace fs = std::filesystem;

class DirectoryTempArea : public testing::Test {
protected:
    [[nodiscard]] std::size_t CountAreas() const { return CountEntries(temp_); }
    [[nodiscard]] std::size_t CountTempFiles() const { return CountFiles(temp_); }

    const CTestRoot root_;
    const std::string temp_ = root_.In(".cloudbackup-tmp");
};

TEST_F(DirectoryTempArea, ReadingAndDeletingWriteNothing) {
    WritePlain(root_.In("a"), "content");
    CDirectoryClient client(root_.GetPath());
    EXPECT_EQ(Download(client, "a"), "content");
    client.DeleteFileAsync("a")->Wait();
    EXPECT_FALSE(fs::exists(temp_));
}

TEST_F(DirectoryTempArea, UploadsLeaveNothingBehind) {
    {
        CDirectoryClient client(root_.GetPath());
        Upload(client, "a", "content");
        client.CopyFileAsync("a", "b")->Wait();
        EXPECT_EQ(CountAreas(), 1U);
        EXPECT_EQ(CountTempFiles(), 0U);
    }
    EXPECT_EQ(CountAreas(), 0U);
}

TEST_F(DirectoryTempArea, AbandonedAndFailedStreamsLeaveNothingBehind) {
    CDirectoryClient client(root_.GetPath());
    {
        const auto abandoned = client.StartUpload("a", 10);
        abandoned->Write(std::string_view("12345"));
        const auto failed = client.StartUpload("b", 1);
        EXPECT_EQ(CountTempFiles(), 2U);
        EXPECT_NE(FailureOf([&] { failed->Write(std::string_view("12")); }), "no failure");
        EXPECT_EQ(CountTempFiles(), 1U);
    }
    EXPECT_EQ(CountTempFiles(), 0U);
    EXPECT_FALSE(client.IsFileExist("a"));
    EXPECT_FALSE(client.IsFileExist("b"));
}

TEST_F(DirectoryTempArea, TempFilesAreInvisible) {
    CDirectoryClient client(root_.GetPath());
    Upload(client, "a", "12345");
    const auto stream = client.StartUpload("b", 100);
    stream->Write(std::string_view("1234567890"));
    ASSERT_EQ(CountTempFiles(), 1U);
    const auto infos = client.QueryFolder("");
    ASSERT_EQ(infos.size(), 1U);
    EXPECT_EQ(infos[0].name, "a");
    EXPECT_EQ(client.GetObjectCount(""), 1U);
    EXPECT_EQ(client.GetFolderSize("/"), 5U);
    EXPECT_FALSE(client.IsFolderExist("/.cloudbackup-tmp"));
}

TEST_F(DirectoryTempArea, LeftoversOfTheDeadAreSweptAtOpening) {
    fs::create_directories(temp_ + "/dead/folder");
    WritePlain(temp_ + "/dead/0", "unfinished");
    WritePlain(temp_ + "/dead/folder/1", "unfinished");
    fs::create_directories(temp_ + "/empty");
    WritePlain(temp_ + "/stray", "x");
    const CDirectoryClient client(root_.GetPath());
    EXPECT_EQ(CountAreas(), 0U);
}

TEST_F(DirectoryTempArea, SecondClientLeavesTheFirstOnesFilesAlone) {
    CDirectoryClient first(root_.GetPath());
    const auto stream = first.StartUpload("a", 10);
    stream->Write(std::string_view("12345"));
    CDirectoryClient second(root_.GetPath());
    EXPECT_EQ(CountTempFiles(), 1U);
    Upload(second, "b", "second");
    EXPECT_EQ(CountAreas(), 2U);
    const CDirectoryClient third(root_.GetPath());
    stream->Write(std::string_view("67890"));
    stream->Finish();
    EXPECT_EQ(Download(second, "a"), "1234567890");
    EXPECT_EQ(Download(first, "b"), "second");
}

/// Lets one process wait for another's word.
class CSignal {
public:
    CSignal() { EXPECT_EQ(::pipe(ends_.data()), 0); }
    CSignal(const CSignal&) = delete;
    CSignal& operator=(const CSignal&) = delete;
    ~CSignal() {
        ::close(ends_[0]);
        ::close(ends_[1]);
    }
    void Give() const { EXPECT_EQ(::write(ends_[1], "x", 1), 1); }
    void Await() const {
        char word = 0;
        EXPECT_EQ(::read(ends_[0], &word, 1), 1);
    }

private:
    std::array<int, 2> ends_{};
};

TEST_F(DirectoryTempArea, ClientOfAnotherProcessIsLeftAloneUntilItDies) {
    EXPECT_EQ(InChild([&]() -> std::string {
                  CDirectoryClient dying(root_.GetPath());
                  const auto lost = dying.StartUpload("lost", 3);
                  ::_exit(0);  // as a crash does: no destructor runs
              }),
              "");
    EXPECT_EQ(CountTempFiles(), 1U);

    const CSignal started;
    const CSignal goOn;
    const auto other = [&]() -> std::string {
        CDirectoryClient client(root_.GetPath());
        const auto sweptFirst = CountAreas();
        const auto stream = client.StartUpload("a", 3);
        started.Give();
        goOn.Await();
        stream->Write(std::string_view("abc"));
        stream->Finish();
        return sweptFirst == 0 ? "" : "the dead one's files were left";
    };
    EXPECT_EQ(InChild(other,
                      [&] {
                          started.Await();
                          CDirectoryClient client(root_.GetPath());
                          EXPECT_EQ(CountTempFiles(), 1U);
                          goOn.Give();
                      }),
              "");
    EXPECT_EQ(ReadPlain(root_.In("a")), "abc");
    EXPECT_EQ(CountAreas(), 0U);
}

TEST_F(DirectoryTempArea, ManyClientsOpenWriteAndCloseAtOnce) {
    constexpr int threads = 6;
    constexpr int rounds = 15;
    std::vector<std::thread> running;
    for (int t = 0; t < threads; ++t) {
        running.emplace_back([this, t] {
            for (int i = 0; i < rounds; ++i) {
                CDirectoryClient client(root_.GetPath(), ERoot::existing, 2);
                const std::string path = "f/" + std::to_string(t) + "-" + std::to_string(i);
                const auto task = client.UploadFileAsync(path, Buffer(path));
                Upload(client, "shared/object", std::string(static_cast<std::size_t>(t + 1) * 1000, 'x'));
                task->Wait();
                EXPECT_EQ(Download(client, path), path);
            }
        });
    }
    for (auto& thread : running) {
        thread.join();
    }
    CDirectoryClient client(root_.GetPath());
    EXPECT_EQ(client.GetObjectCount("f"), static_cast<std::uint64_t>(threads) * rounds);
    EXPECT_EQ(client.GetFileSize("shared/object") % 1000, 0U);
    EXPECT_EQ(CountAreas(), 0U);
}

TEST_F(DirectoryTempArea, UploadsCreateTheirFolderAgainWhileOthersDeleteIt) {
    CDirectoryClient client(root_.GetPath());
    std::thread deleter([&] {
        for (int i = 0; i < 300; ++i) {
            client.DeleteFolderAsync("x", nullptr)->Wait();
        }
    });
    for (int i = 0; i < 100; ++i) {
        Upload(client, "x/y/z/object", "content");
    }
    deleter.join();
    Upload(client, "x/y/z/object", "content");
    EXPECT_EQ(Download(client, "x/y/z/object"), "content");
}

TEST_F(DirectoryTempArea, DestructorWaitsForWhatIsInFlight) {
    constexpr int objects = 100;
    {
        CDirectoryClient client(root_.GetPath());
        for (int i = 0; i < objects; ++i) {
            static_cast<void>(client.UploadFileAsync("f/" + std::to_string(i), Buffer(std::to_string(i))));
        }
    }
    for (int i = 0; i < objects; ++i) {
        EXPECT_EQ(ReadPlain(root_.In("f/" + std::to_string(i))), std::to_string(i));
    }
}

}  // namespace
}  // namespace clients::directory
