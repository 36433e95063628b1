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

/// What must come out, found byte by byte.
std::vector<SRun> RunsBetweenZeros(const std::string& content) {
    std::vector<SRun> runs;
    std::size_t begin = 0;
    for (std::size_t at = 0; at <= content.size();) {
        at = std::min(content.find('\0', at), content.size());
        const std::size_t end = std::min(content.find_first_not_of('\0', at), content.size());
        if (end - at >= 64 * kib || at == content.size()) {
            if (at > begin) {
                runs.push_back({begin, content.substr(begin, at - begin)});
            }
            begin = end;
        }
        at = std::max(end, at + 1);
    }
    return runs;
}

std::vector<SRun> ReadContent(const std::string& content) {
    const test::TempDir dir;
    posix::posix_file_t::OpenOrCreate4Write(dir / "file", false, 0).Write(content);
    return ReadAll(dir / "file", content.size());
}

void ExpectRuns(const std::string& content) {
    const auto runs = ReadContent(content);
    const auto expected = RunsBetweenZeros(content);
    ASSERT_EQ(runs.size(), expected.size());
    for (std::size_t i = 0; i < runs.size(); ++i) {
        EXPECT_EQ(runs[i].offset, expected[i].offset) << i;
        EXPECT_TRUE(runs[i].data == expected[i].data) << i;
    }
}

std::string Zeros(std::size_t size) { return std::string(size, '\0'); }

TEST(FileContent, WrittenZerosAreHolesTooToTheByte) {
    const std::string content = Random(70001, 2) + Zeros(192 * kib) + Random(10, 3) + Zeros(5000);
    const auto expected = RunsBetweenZeros(content);
    ASSERT_EQ(expected.size(), 2U);
    EXPECT_EQ(expected[0].data.size(), 70001U);
    EXPECT_EQ(expected[1].offset, 70001 + 192 * kib);
    EXPECT_EQ(expected[1].data.size(), 5010U);
    ExpectRuns(content);
}

TEST(FileContent, ZerosAreAHoleFrom64KiBOn) {
    for (const std::size_t size : {64 * kib - 1, 64 * kib}) {
        for (const std::size_t before :
             {0UL, 1UL, 1024 * kib - 1, 1024 * kib - 30000, 1024 * kib - 65536, 1024 * kib}) {
            ExpectRuns(Random(before, 5) + Zeros(size));
            ExpectRuns(Random(before, 5) + Zeros(size) + Random(1, 6));
            ExpectRuns(Random(before, 5) + Zeros(size) + Random(2000 * kib, 6));
        }
    }
    ExpectRuns(Zeros(3 * 1024 * kib));
    ExpectRuns(Zeros(3 * 1024 * kib + 1) + "x" + Zeros(1024 * kib));
}

TEST(FileContent, AnyMixtureOfZerosAndDataIsReadAsItIs) {
    for (unsigned seed = 0; seed < 10; ++seed) {
        std::mt19937 random(seed);
        std::string content;
        while (content.size() < 4 * 1024 * kib) {
            const std::size_t scale = std::size_t{1} << random() % 19U;
            const std::size_t size = random() % scale + 1;
            content += random() % 2 == 0 ? Zeros(size) : Random(size, static_cast<unsigned>(random()));
        }
        SCOPED_TRACE(seed);
        ExpectRuns(content);
    }
}

TEST(FileContent, WhatLiesBetweenZerosStaysTheSameWhenItMoves) {
    const std::string tail = Random(100000, 7) + Zeros(200000) + Random(300000, 8) + Zeros(100 * kib);
    const auto before = ReadContent("a" + Zeros(70000) + tail);
    const auto behind = ReadContent("a, and more" + Zeros(70000) + tail);
    ASSERT_EQ(before.size(), 3U);
    ASSERT_EQ(behind.size(), 3U);
    for (std::size_t i = 1; i < before.size(); ++i) {
        EXPECT_EQ(before[i].offset + 10, behind[i].offset);
        EXPECT_TRUE(before[i].data == behind[i].data);
    }
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
