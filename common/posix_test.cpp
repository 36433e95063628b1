#include "common/posix.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"

namespace {

using posix::CPosixExc;
using posix::fd_t;
using posix::posix_file_t;

constexpr std::uint64_t tooLarge = std::numeric_limits<std::uint64_t>::max();

std::string ReadAll(const std::string& path) {
    auto file = posix_file_t::Open4Read(path);
    std::string text(file.GetSize() + 10, '?');
    text.resize(file.Read(text.data(), text.size()));
    return text;
}

void WriteNew(const std::string& path, std::string_view text) {
    posix_file_t::OpenOrCreate4Write(path, true, 0).Write(text);
}

/// The error number and the text of what `operation` throws.
template <class F>
std::pair<int, std::string> FailureOf(const F& operation) {
    try {
        operation();
    } catch (const CPosixExc& failure) {
        return {failure.GetErrorNumber(), failure.what()};
    }
    return {0, "nothing thrown"};
}

using failure_t = std::pair<int, std::string>;

TEST(PosixFile, WritesAndReadsInOrder) {
    const test::TempDir dir;
    {
        auto file = posix_file_t::OpenOrCreate4Write(dir / "file", false, 0);
        file.Write(std::string_view("hello "));
        file.Write(std::string_view("world"));
        file.Write({});
        file.Sync();
        EXPECT_EQ(11U, file.GetPosition());
        EXPECT_EQ(11U, file.GetSize());
        EXPECT_EQ(dir / "file", file.GetPath());
    }
    EXPECT_EQ("hello world", ReadAll(dir / "file"));
}

TEST(PosixFile, AnExistingFileKeepsWhatItHolds) {
    const test::TempDir dir;
    WriteNew(dir / "file", "0123456789");
    posix_file_t::OpenOrCreate4Write(dir / "file", false, 0).Write(std::string_view("ab"));
    EXPECT_EQ("ab23456789", ReadAll(dir / "file"));
}

TEST(PosixFile, FurtherFlagsAreThoseOfOpen) {
    const test::TempDir dir;
    WriteNew(dir / "file", "0123456789");
    posix_file_t::OpenOrCreate4Write(dir / "file", false, O_TRUNC).Write(std::string_view("ab"));
    EXPECT_EQ("ab", ReadAll(dir / "file"));
    posix_file_t::OpenOrCreate4Write(dir / "file", false, O_APPEND).Write(std::string_view("cd"));
    EXPECT_EQ("abcd", ReadAll(dir / "file"));
}

TEST(PosixFile, ExclusiveRefusesAnExistingFile) {
    const test::TempDir dir;
    const std::string path = dir / "file";
    WriteNew(path, "kept");
    EXPECT_EQ(failure_t(EEXIST, "Cannot open for writing '" + path + "': File exists"),
              FailureOf([&] { (void)posix_file_t::OpenOrCreate4Write(path, true, 0); }));
    EXPECT_EQ("kept", ReadAll(path));
}

TEST(PosixFile, ANewFileIsTheOwnersAlone) {
    const test::TempDir dir;
    WriteNew(dir / "file", "x");
    struct stat info {};
    ASSERT_EQ(0, ::stat((dir / "file").c_str(), &info));
    EXPECT_EQ(0U, info.st_mode & 0177U);
}

TEST(PosixFile, DescriptorsAreNotInherited) {
    const test::TempDir dir;
    const auto file = posix_file_t::OpenOrCreate4Write(dir / "file", false, 0);
    EXPECT_NE(0, ::fcntl(file.GetFd(), F_GETFD) & FD_CLOEXEC);
}

TEST(PosixFile, AMissingFileIsNamed) {
    const test::TempDir dir;
    const std::string path = dir / "none";
    EXPECT_EQ(failure_t(ENOENT, "Cannot open '" + path + "': No such file or directory"),
              FailureOf([&] { (void)posix_file_t::Open4Read(path); }));
}

TEST(PosixFile, APathWithANulIsRefusedWhole) {
    const test::TempDir dir;
    WriteNew(dir / "a", "x");
    const std::string path = dir / std::string_view("a\0b", 3);
    EXPECT_EQ(failure_t(EINVAL, "Cannot open '" + (dir / "a\\0b") + "': Invalid argument"),
              FailureOf([&] { (void)posix_file_t::Open4Read(path); }));
    EXPECT_THROW((void)posix_file_t::OpenOrCreate4Write(path, false, 0), CPosixExc);
}

TEST(PosixFile, OffsetsAreIndependentOfThePosition) {
    const test::TempDir dir;
    auto file = posix_file_t::OpenOrCreate4Write(dir / "file", false, 0);
    file.WriteAt(4, std::string_view("efg"));
    file.WriteAt(0, std::string_view("abcd"));
    EXPECT_EQ(0U, file.GetPosition());
    std::string text(3, '?');
    EXPECT_EQ(3U, file.ReadAt(2, text.data(), 3));
    EXPECT_EQ("cde", text);
    EXPECT_EQ(2U, file.ReadAt(5, text.data(), 3)) << "fewer at the end";
    EXPECT_EQ(0U, file.ReadAt(7, text.data(), 3));
    EXPECT_EQ(0U, file.ReadAt(1000, text.data(), 3));
    EXPECT_EQ(0U, file.GetPosition());
}

TEST(PosixFile, SeeksFromTheBeginning) {
    const test::TempDir dir;
    WriteNew(dir / "file", "0123456789");
    auto file = posix_file_t::Open4Read(dir / "file");
    file.SeekFromBegin(7);
    EXPECT_EQ(7U, file.GetPosition());
    std::string text(5, '?');
    EXPECT_EQ(3U, file.Read(text.data(), 5));
    EXPECT_EQ("789??", text);
    EXPECT_EQ(0U, file.Read(text.data(), 5));
    file.SeekFromBegin(100);
    EXPECT_EQ(0U, file.Read(text.data(), 5));
}

TEST(PosixFile, TruncatesAndExtends) {
    const test::TempDir dir;
    auto file = posix_file_t::OpenOrCreate4Write(dir / "file", false, 0);
    file.Write(std::string_view("0123456789"));
    file.Truncate(4);
    EXPECT_EQ(4U, file.GetSize());
    file.Truncate(6);
    EXPECT_EQ(std::string("0123\0\0", 6), ReadAll(dir / "file"));
}

TEST(PosixFile, OffsetsBeyondWhatFilesHaveAreRefused) {
    const test::TempDir dir;
    const std::string path = dir / "file";
    auto file = posix_file_t::OpenOrCreate4Write(path, false, 0);
    char byte = 'x';
    const std::string_view data(&byte, 1);
    const std::string end = " '" + path + "': Invalid argument";
    EXPECT_EQ(failure_t(EINVAL, "Cannot seek in" + end), FailureOf([&] { file.SeekFromBegin(tooLarge); }));
    EXPECT_EQ(failure_t(EINVAL, "Cannot read" + end), FailureOf([&] { (void)file.ReadAt(tooLarge, &byte, 1); }));
    EXPECT_EQ(failure_t(EINVAL, "Cannot write" + end), FailureOf([&] { file.WriteAt(tooLarge, data); }));
    EXPECT_EQ(failure_t(EINVAL, "Cannot truncate" + end), FailureOf([&] { file.Truncate(tooLarge); }));
    EXPECT_EQ(0U, file.GetSize());
}

TEST(PosixFile, AFileOpenForReadingIsNotWritten) {
    const test::TempDir dir;
    const std::string path = dir / "file";
    WriteNew(path, "kept");
    auto file = posix_file_t::Open4Read(path);
    const std::string text(1, 'x');
    EXPECT_EQ(failure_t(EBADF, "Cannot write '" + path + "': Bad file descriptor"),
              FailureOf([&] { file.Write(text); }));
    EXPECT_EQ(EINVAL, FailureOf([&] { file.Truncate(0); }).first);
    EXPECT_EQ("kept", ReadAll(path));
}

TEST(PosixFile, AFolderIsNotRead) {
    const test::TempDir dir;
    auto file = posix_file_t::Open4Read(dir.GetPath());
    char byte = 0;
    EXPECT_EQ(failure_t(EISDIR, "Cannot read '" + dir.GetPath() + "': Is a directory"),
              FailureOf([&] { (void)file.Read(&byte, 1); }));
    EXPECT_EQ(EISDIR, FailureOf([&] { (void)posix_file_t::OpenOrCreate4Write(dir.GetPath(), false, 0); }).first);
}

TEST(PosixFile, WithoutADescriptorEveryOperationFails) {
    posix_file_t file(fd_t(), "gone");
    EXPECT_EQ(failure_t(EBADF, "Cannot tell the size of 'gone': Bad file descriptor"),
              FailureOf([&] { (void)file.GetSize(); }));
    EXPECT_EQ(failure_t(EBADF, "Cannot tell the position in 'gone': Bad file descriptor"),
              FailureOf([&] { (void)file.GetPosition(); }));
    EXPECT_EQ(failure_t(EBADF, "Cannot sync 'gone': Bad file descriptor"), FailureOf([&] { file.Sync(); }));
}

TEST(PosixFile, AFullDeviceIsAFailure) {
    auto file = posix_file_t::OpenOrCreate4Write("/dev/full", false, 0);
    const std::string text(10, 'x');
    EXPECT_EQ(failure_t(ENOSPC, "Cannot write '/dev/full': No space left on device"),
              FailureOf([&] { file.Write(text); }));
}

TEST(PosixFile, ReadsWhatComesInPieces) {
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    posix_file_t in((fd_t(ends[0])), "pipe");
    posix_file_t out((fd_t(ends[1])), "pipe");
    std::string text(5, '?');
    out.Write(std::string_view("ab"));
    out.Write(std::string_view("cde"));
    EXPECT_EQ(5U, in.Read(text.data(), 5));
    EXPECT_EQ("abcde", text);
}

TEST(Fd, IsClosedOnceByItsOwner) {
    const test::TempDir dir;
    const int raw = ::open(dir.GetPath().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_LE(0, raw);
    {
        fd_t first(raw);
        EXPECT_TRUE(first);
        fd_t second(std::move(first));
        EXPECT_FALSE(first);  // NOLINT: what a moved one keeps is what is tested
        fd_t& self = second;
        second = std::move(self);
        EXPECT_EQ(raw, second.Get());
        EXPECT_EQ(0, ::fcntl(raw, F_GETFL) & O_WRONLY);
    }
    EXPECT_EQ(-1, ::fcntl(raw, F_GETFD));
    EXPECT_EQ(EBADF, errno);
}

TEST(Fd, TakingAnotherClosesTheOld) {
    const int a = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int b = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    fd_t fd(a);
    fd = fd_t(b);
    EXPECT_EQ(b, fd.Get());
    EXPECT_EQ(-1, ::fcntl(a, F_GETFD));
    EXPECT_EQ(b, fd.Release());
    EXPECT_FALSE(fd);
    EXPECT_EQ(0, ::close(b));
}

TEST(PosixExc, CloneAndGenerateKeepTheNumber) {
    const CPosixExc failure("read", "x", EIO);
    EXPECT_STREQ("Cannot read 'x': Input/output error", failure.what());
    const auto clone = failure.Clone();
    EXPECT_STREQ(failure.what(), clone->what());
    EXPECT_EQ(failure_t(EIO, failure.what()), FailureOf([&] { clone->Generate(); }));
}

RC_GTEST_PROP(PosixFile, HoldsWhatAByteStringWouldHold, ()) {
    const test::TempDir dir;
    auto file = posix_file_t::OpenOrCreate4Write(dir / "file", true, 0);
    std::string model;
    const int steps = *rc::gen::inRange(1, 20);
    for (int i = 0; i < steps; ++i) {
        const auto offset = *rc::gen::inRange<std::size_t>(0, 5000);
        const auto data = *rc::gen::arbitrary<std::string>();
        if (*rc::gen::arbitrary<bool>()) {
            file.WriteAt(offset, data);
            if (!data.empty()) {
                model.resize(std::max(model.size(), offset + data.size()));
                model.replace(offset, data.size(), data);
            }
        } else {
            file.Truncate(offset);
            model.resize(offset);
        }
    }
    RC_ASSERT(ReadAll(dir / "file") == model);
}

TEST(WriteNewFile, MakesAFileForItsOwnerAlone) {
    const test::TempDir dir;
    posix::WriteNewFile(dir / "file", std::string("text"));
    EXPECT_EQ(ReadAll(dir / "file"), "text");
    struct stat info {};
    ASSERT_EQ(::stat((dir / "file").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0600U);
}

TEST(WriteNewFile, LeavesAFileThatIsThereAlone) {
    const test::TempDir dir;
    posix::WriteNewFile(dir / "file", std::string("text"));
    EXPECT_THROW(posix::WriteNewFile(dir / "file", std::string("other")), CPosixExc);
    EXPECT_EQ(ReadAll(dir / "file"), "text");
}

TEST(WriteNewFile, LeavesNothingOfAFileThatCannotBeWrittenWhole) {
    const test::TempDir dir;
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    rlimit small = before;
    small.rlim_cur = 10;
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_THROW(posix::WriteNewFile(dir / "file", std::string(100, 'x')), CPosixExc);
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_NE(::access((dir / "file").c_str(), F_OK), 0);
}

}  // namespace
