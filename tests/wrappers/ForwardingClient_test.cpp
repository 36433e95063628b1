#include "cloudclientlib/wrappers/ForwardingClient.h"

#include <gmock/gmock.h>

#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "cloudclientlib/wrappers/GateClient.h"
#include "tests/wrappers/WrapperFixture.h"

namespace cloudclientlib {

namespace {

using clients::SCall;

/// Every wrapper at rest is transparent: the client inside gets the same calls as without it.
template <class Wrapper>
class CTransparentTest : public testing::Test {
public:
    static std::vector<SCall> CallsOf(const std::function<void(ICloudClient&)>& run, bool isWrapped) {
        const auto store = RecordingStore();
        store->UploadFileAsync("a/object", Share("0123456789"))->Wait();
        store->ClearCalls();
        if (isWrapped) {
            Wrapper wrapper(store);
            run(wrapper);
        } else {
            run(*store);
        }
        return store->GetCalls();
    }
};

using wrappers_t = testing::Types<CForwardingClient, CCountingClient, CFaultClient, CGateClient>;
TYPED_TEST_SUITE(CTransparentTest, wrappers_t);

TYPED_TEST(CTransparentTest, EveryOperationIsHandedOn) {
    for (const auto& call : OneCallOfEach()) {
        const auto wrapped = this->CallsOf(call.run, true);
        EXPECT_EQ(wrapped, this->CallsOf(call.run, false)) << ToStr(call.operation);
        ASSERT_EQ(wrapped.size(), 1U) << ToStr(call.operation);
        EXPECT_EQ(wrapped.front().operation, FailureName(call.operation));
    }
}

TYPED_TEST(CTransparentTest, ResultsComeBack) {
    const auto store =
        std::make_shared<clients::CMemoryClient>(clients::SMemoryOptions{.concurrentTaskLimit = 3, .quota = 1000});
    TypeParam wrapper(store);
    wrapper.UploadFileAsync("a/object", Share("0123456789"))->Wait();
    EXPECT_EQ(Read(wrapper, "a/object"), "0123456789");
    const auto part = Share();
    wrapper.DownloadFileAsync("a/object", part, 2, 3)->Wait();
    EXPECT_EQ(TextOf(part), "234");
    EXPECT_EQ(wrapper.GetFileSize("a/object"), 10U);
    EXPECT_TRUE(wrapper.IsFileExist("a/object"));
    EXPECT_FALSE(wrapper.IsFileExist("a"));
    EXPECT_TRUE(wrapper.IsFolderExist("a"));
    EXPECT_EQ(wrapper.GetFolderSize("a"), 10U);
    EXPECT_EQ(wrapper.GetObjectCount("a"), 1U);
    ASSERT_EQ(wrapper.QueryFolder("a").size(), 1U);
    EXPECT_EQ(wrapper.QueryFolder("a").front().name, "object");
    EXPECT_EQ(wrapper.GetStorageQuota(), (SStorageQuota{.total = 1000, .used = 10}));
    EXPECT_EQ(wrapper.GetConcurrentTaskLimit(), 3U);
    EXPECT_EQ(wrapper.GetArchiveRetrievalStatus("a/object"), EArchiveRetrievalStatus::online);
    EXPECT_NO_THROW(wrapper.CreateAsyncTaskUtils()->WaitAll({}));
}

TYPED_TEST(CTransparentTest, StreamsPass) {
    const auto store = std::make_shared<clients::CMemoryClient>();
    TypeParam wrapper(store);
    const auto up = wrapper.StartUpload("object", 5);
    up->Write(*Share("01"));
    up->Write(*Share("234"));
    EXPECT_FALSE(store->IsFileExist("object"));
    up->Finish();
    EXPECT_EQ(Read(*store, "object"), "01234");
    const auto down = wrapper.StartDownload("object");
    bytes_t buffer(3);
    EXPECT_EQ(down->Read(buffer), 3U);
    EXPECT_EQ(std::string(buffer.begin(), buffer.end()), "012");
    EXPECT_EQ(down->Read(buffer), 2U);
    EXPECT_EQ(down->Read(buffer), 0U);
}

TYPED_TEST(CTransparentTest, FailuresPass) {
    TypeParam wrapper(std::make_shared<clients::CMemoryClient>());
    const auto missing = wrapper.DownloadFileAsync("missing", Share());
    EXPECT_THROW(missing->Wait(), CObjectNotFoundExc);
    EXPECT_THROW(missing->Wait(), CObjectNotFoundExc);
    EXPECT_THROW(wrapper.GetFileSize("missing"), CObjectNotFoundExc);
    EXPECT_THROW(wrapper.StartDownload("missing"), CObjectNotFoundExc);
    EXPECT_THROW(wrapper.StartUpload("..", 0), CCloudExc);
}

}  // namespace

}  // namespace cloudclientlib
