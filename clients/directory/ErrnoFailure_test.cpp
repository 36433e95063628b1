#include "clients/directory/ErrnoFailure.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "clients/directory/TestRoot.h"

namespace clients::directory {
namespace {

using cloudclientlib::CCloudExc;
using cloudclientlib::CObjectNotFoundExc;
using cloudclientlib::EFailure;

struct SCase {
    int number;
    EFailure kind;
    bool retryable;
};

TEST(ErrnoFailure, EveryNumberHasItsKind) {
    const SCase cases[] = {
        {ENOENT, EFailure::notFound, false},    {EACCES, EFailure::accessDenied, false},
        {EPERM, EFailure::accessDenied, false}, {EROFS, EFailure::accessDenied, false},
        {ENOSPC, EFailure::quota, false},       {EDQUOT, EFailure::quota, false},
        {ENOTDIR, EFailure::conflict, false},   {EISDIR, EFailure::conflict, false},
        {EEXIST, EFailure::conflict, false},    {ENOTEMPTY, EFailure::conflict, false},
        {ELOOP, EFailure::other, false},        {EXDEV, EFailure::other, false},
        {ENAMETOOLONG, EFailure::other, false}, {EFBIG, EFailure::other, false},
        {ENOSYS, EFailure::other, false},       {EUCLEAN, EFailure::corrupt, false},
        {EIO, EFailure::corrupt, true},         {EMFILE, EFailure::transient, true},
        {ENFILE, EFailure::transient, true},    {ENOMEM, EFailure::transient, true},
        {EAGAIN, EFailure::transient, true},    {EBUSY, EFailure::transient, true},
        {ENOLCK, EFailure::transient, true},    {ESTALE, EFailure::transient, true},
        {EDOM, EFailure::other, false},
    };
    for (const auto& one : cases) {
        const auto meaning = MeaningOf(one.number);
        EXPECT_EQ(meaning.kind, one.kind) << one.number;
        EXPECT_EQ(meaning.retryable, one.retryable) << one.number;
        EXPECT_FALSE(meaning.reason.empty()) << one.number;
    }
}

TEST(ErrnoFailure, CarriesOperationPathAndTheSystemsText) {
    try {
        Translated({"UploadFile", "/a/b"}, [] { throw posix::CPosixExc("sync", "a/b", EIO); });
        FAIL() << "no failure";
    } catch (const CCloudExc& failure) {
        EXPECT_EQ(failure.GetKind(), EFailure::corrupt);
        EXPECT_TRUE(failure.IsRetryable());
        EXPECT_EQ(failure.GetOperation(), "UploadFile");
        EXPECT_EQ(failure.GetPath(), "/a/b");
        EXPECT_STREQ(failure.what(),
                     "UploadFile '/a/b': the device failed to read or write: Cannot sync 'a/b': Input/output error");
    }
}

TEST(ErrnoFailure, MissingObjectHasItsOwnClassOnlyWhenRead) {
    const auto fail = [] { throw posix::CPosixExc("open", "a", ENOENT); };
    EXPECT_THROW(Translated({"DownloadFile", "a", true}, fail), CObjectNotFoundExc);
    try {
        Translated({"UploadFile", "a"}, fail);
        FAIL() << "no failure";
    } catch (const CObjectNotFoundExc&) {
        FAIL() << "a write reported a missing object";
    } catch (const CCloudExc& failure) {
        EXPECT_EQ(failure.GetKind(), EFailure::notFound);
    }
}

TEST(ErrnoFailure, MissingMemoryIsTranslatedAndOtherFailuresPass) {
    const SOperation operation{"DownloadFile", "a", true};
    EXPECT_EQ(FailureOf([&] { Translated(operation, [] { throw std::bad_alloc(); }); }),
              "transient|DownloadFile 'a': not enough memory for the object");
    EXPECT_EQ(FailureOf([&] { Translated(operation, [] { throw std::length_error("vector"); }); }),
              "transient|DownloadFile 'a': not enough memory for the object");
    EXPECT_THROW(Translated(operation, [] { throw std::logic_error("other"); }), std::logic_error);
}

TEST(ErrnoFailure, GivesBackWhatTheWorkGives) {
    EXPECT_EQ(Translated({"GetFileSize", "a", true}, [] { return 42; }), 42);
}

}  // namespace
}  // namespace clients::directory
