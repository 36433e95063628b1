#include "cloudbackuplib/CloudBackupLibCtx.h"

#include <dlfcn.h>
#include <pthread.h>

#include <boost/thread/exceptions.hpp>
#include <cerrno>

#include "cloudbackuplib/S3ConnectionSpec.h"
#include "tests/library/BackupFixture.h"

// The context as it ships: with a factory that opens nothing.

namespace {

thread_local bool t_locksFail = false;
thread_local bool t_mutexesFail = false;

}  // namespace

// Stand before the C library's own for this whole program.
extern "C" __attribute__((visibility("default"))) int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    using function_t = int (*)(pthread_mutex_t*);
    static const auto real = reinterpret_cast<function_t>(::dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    return t_locksFail ? EINVAL : real(mutex);
}
extern "C" __attribute__((visibility("default"))) int pthread_mutex_init(pthread_mutex_t* mutex,
                                                                         const pthread_mutexattr_t* attr) noexcept {
    using function_t = int (*)(pthread_mutex_t*, const pthread_mutexattr_t*);
    static const auto real = reinterpret_cast<function_t>(::dlsym(RTLD_NEXT, "pthread_mutex_init"));
    return t_mutexesFail ? ENOMEM : real(mutex, attr);
}

namespace test {
namespace {

using cloudbackuplib::CCloudBackupLibCtx;
using testing::StartsWith;

class Context : public testing::Test {
protected:
    Context() { CCloudBackupLibCtx::ResetInstance(); }
    ~Context() override { CCloudBackupLibCtx::ResetInstance(); }
};

TEST_F(Context, IsOneUntilReset) {
    const auto first = CCloudBackupLibCtx::Instance();
    EXPECT_EQ(CCloudBackupLibCtx::Instance(), first);
    CCloudBackupLibCtx::ResetInstance();
    EXPECT_EQ(first.use_count(), 1) << "the context lives on with its holder";
    EXPECT_NE(CCloudBackupLibCtx::Instance(), first);
    CCloudBackupLibCtx::ResetInstance();
    CCloudBackupLibCtx::ResetInstance();
}

TEST_F(Context, CannotRegisterAConnection) {
    const auto context = CCloudBackupLibCtx::Instance();
    const std::string spec = platform::s3::CS3ConnectionSpec({}).Serialize();
    for (int i = 0; i != 2; ++i) {
        EXPECT_EQ(FailureOf([&] { context->AddConnection("c", "AmazonS3", spec, nullptr); }),
                  "Failed to open S3 repository: static cloudbackuplib::backup::platform::s3::CS3ConnectionSpec "
                  "cloudbackuplib::backup::platform::s3::CS3ConnectionSpec::Deserialize(xml::xml_holder_t&)");
    }
    EXPECT_EQ(FailureOf([&] { (void)context->GetConnection("c"); }), "Cloud connection 'c' not found");
}

TEST_F(Context, RefusesUnknownAndUnsupportedServices) {
    const auto context = CCloudBackupLibCtx::Instance();
    EXPECT_EQ(FailureOf([&] { context->AddConnection("c", "amazons3", "", nullptr); }),
              "Unknown cloud service string: 'amazons3'");
    EXPECT_EQ(FailureOf([&] { context->AddConnection("c", "AmazonEBS", "", nullptr); }),
              "Unsupported cloud service: 'AmazonEBS'");
}

TEST_F(Context, EveryOperationNamesAConnectionThatIsNotThere) {
    const auto context = CCloudBackupLibCtx::Instance();
    const std::string notFound = "Cloud connection 'a%1' not found";
    EXPECT_EQ(FailureOf([&] { (void)context->GetConnection("a%1"); }), notFound);
    EXPECT_EQ(FailureOf([&] { (void)std::as_const(*context).GetConnection("a%1"); }), notFound);
    EXPECT_EQ(FailureOf([&] { (void)context->GetStorageQuota("a%1"); }), notFound);
    EXPECT_EQ(FailureOf([&] { (void)context->GetRepository("a%1"); }), notFound);
    EXPECT_EQ(FailureOf([&] { (void)context->EnumBackups("a%1", {}); }), notFound);
    EXPECT_EQ(FailureOf([&] { (void)context->LoadBackup("a%1", {}, "B", true); }), notFound);
    EXPECT_EQ(FailureOf([&] { context->DeleteBackup("a%1", {}, "B", nullptr); }), notFound);
    EXPECT_EQ(FailureOf([&] { context->StartBackupSession("a%1", {}, "B", 0, true); }), notFound);
    EXPECT_EQ(FailureOf([&] { (void)context->GetBackupSession("a%1", "B"); }), notFound);
    EXPECT_EQ(FailureOf([&] { context->CloseBackupSession("a%1", "B"); }), notFound);
}

TEST_F(Context, AFailureOfTheMutexIsTheLockErrorOfBoost) {
    const auto context = CCloudBackupLibCtx::Instance();
    const auto lockFailure = [](const auto& operation) {
        std::string text;
        try {
            t_locksFail = true;
            operation();
        } catch (const boost::lock_error& failure) {
            t_locksFail = false;
            text = failure.what();
        }
        t_locksFail = false;
        return text;
    };
    const std::string name = "c";
    const auto expected = StartsWith("boost: mutex lock failed in pthread_mutex_lock");
    EXPECT_THAT(lockFailure([&] { (void)context->GetRepository(name); }), expected);
    EXPECT_THAT(lockFailure([&] { context->CloseBackupSession(name, name); }), expected);
    EXPECT_THAT(lockFailure([&] { (void)context->GetStorageQuota(name); }), expected);
}

TEST_F(Context, AContextWithoutMutexIsNotMade) {
    std::string text;
    try {
        t_mutexesFail = true;
        (void)CCloudBackupLibCtx::Instance();
    } catch (const boost::thread_resource_error& failure) {
        t_mutexesFail = false;
        text = failure.what();
    }
    t_mutexesFail = false;
    EXPECT_THAT(text, StartsWith("boost:: mutex constructor failed in pthread_mutex_init"));
    EXPECT_NE(CCloudBackupLibCtx::Instance(), nullptr) << "the next call tries again";
}

}  // namespace
}  // namespace test
