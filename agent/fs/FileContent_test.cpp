#include "agent/fs/FileContent.h"

#include <gmock/gmock.h>

#include <random>

#include "tests/support/TempDir.h"

namespace agent {
namespace {

constexpr std::uint64_t kib = 1024;

struct SRun {
    std::uint64_t offset;
    std::string data;
};

std::vector<SRun> ReadAll(const std::string& path, std::uint64_t size, std::uint64_t* seen = nullptr) {
    const auto file = posix::posix_file_t::Open4Read(path);
    std::vector<SRun> runs;
    const std::uint64_t end =
        CFileContentReader().Read(file, size, [&](std::uint64_t offset, std::span<const char> data) {
            if (!runs.empty() && runs.back().offset + runs.back().data.size() == offset) {
                runs.back().data.append(data.data(), data.size());
            } else {
                runs.push_back({offset, std::string(data.data(), data.size())});
            }
        });
    if (seen != nullptr) {
        *seen = end;
    }
    return runs;
}

std::string Random(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string text(size, '\0');
    for (auto& c : text) {
        c = static_cast<char>(random() | 1U);
    }
    return text;
}

TEST(FileContent, ReadsAFileWhole) {
    const test::TempDir dir;
    for (const std::size_t size : {0UL, 1UL, 4095UL, 64 * kib, 1024 * kib, 1024 * kib + 1, 3000 * kib + 7}) {
        const std::string content = Random(size, static_cast<unsigned>(size));
        posix::posix_file_t::OpenOrCreate4Write(dir / "file", false, 0).WriteAt(0, content);
        const auto runs = ReadAll(dir / "file", size);
        ASSERT_EQ(runs.size(), size == 0 ? 0U : 1U);
        EXPECT_TRUE(size == 0 || (runs[0].offset == 0 && runs[0].data == content)) << size;
    }
}

TEST(FileContent, LeavesOutHolesOfTheFileSystem) {
    const test::TempDir dir;
    auto file = posix::posix_file_t::OpenOrCreate4Write(dir / "file", false, 0);
    const std::string data = Random(128 * kib, 1);
    file.Truncate(100 * 1024 * kib);
    file.WriteAt(10 * 1024 * kib, data);
    file.WriteAt(90 * 1024 * kib, data);
    std::uint64_t seen = 0;
    const auto runs = ReadAll(dir / "file", 100 * 1024 * kib, &seen);
    ASSERT_EQ(runs.size(), 2U);
    EXPECT_EQ(runs[0].offset, 10 * 1024 * kib);
    EXPECT_EQ(runs[0].data, data);
    EXPECT_EQ(runs[1].offset, 90 * 1024 * kib);
    EXPECT_EQ(seen, 100 * 1024 * kib);
}

TEST(FileContent, WrittenZerosAreHolesTooWhenTheyFillABlock) {
    const test::TempDir dir;
    const std::string content =
        Random(64 * kib, 2) + std::string(192 * kib, '\0') + Random(10, 3) + std::string(5000, '\0');
    posix::posix_file_t::OpenOrCreate4Write(dir / "file", false, 0).Write(content);
    const auto runs = ReadAll(dir / "file", content.size());
    ASSERT_EQ(runs.size(), 2U);
    EXPECT_EQ(runs[0].data, content.substr(0, 64 * kib));
    EXPECT_EQ(runs[1].offset, 256 * kib);
    EXPECT_EQ(runs[1].data, content.substr(256 * kib));
}

TEST(FileContent, AFileThatBecameShorterTellsItsSize) {
    const test::TempDir dir;
    posix::posix_file_t::OpenOrCreate4Write(dir / "file", false, 0).Write(Random(1000, 4));
    std::uint64_t seen = 0;
    const auto runs = ReadAll(dir / "file", 5000, &seen);
    EXPECT_EQ(seen, 1000U);
    ASSERT_EQ(runs.size(), 1U);
    EXPECT_EQ(runs[0].data.size(), 1000U);
}

}  // namespace
}  // namespace agent
