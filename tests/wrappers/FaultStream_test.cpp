#include <gmock/gmock.h>

#include "cloudclientlib/wrappers/FaultClient.h"
#include "tests/wrappers/WrapperFixture.h"

namespace cloudclientlib {

namespace {

/// Streams of a fault client.
class CFaultStreamTest : public testing::Test {
protected:
    CFaultStreamTest() { store->UploadFileAsync("object", Share("0123456789"))->Wait(); }
    void Arm(EOperation operation, std::uint64_t call, EFaultMode mode, bool crash = false) {
        client.Arm({.call = call, .mode = mode, .kinds = {operation}, .crash = crash});
    }
    std::string Start(std::uint64_t call, EFaultMode mode, std::string& bytes) {
        Arm(EOperation::streamRead, call, mode);
        const auto stream = client.StartDownload("object");
        bytes_t buffer(4);
        return MessageOf([&] {
            for (;;) {
                std::fill(buffer.begin(), buffer.end(), '-');
                const std::size_t count = stream->Read(buffer);
                bytes.append(buffer.data(), count);
                if (count == 0) {
                    return;
                }
            }
        });
    }

    const std::shared_ptr<clients::CMemoryClient> store = std::make_shared<clients::CMemoryClient>();
    CFaultClient client{store};
};

TEST_F(CFaultStreamTest, StreamsAreWholeWithoutAFault) {
    std::string bytes;
    EXPECT_EQ(Start(0, EFaultMode::notDone, bytes), "");
    EXPECT_EQ(bytes, "0123456789");
    EXPECT_EQ(client.GetCallCount(), 4U);
}

TEST_F(CFaultStreamTest, NthReadFails) {
    std::string bytes;
    EXPECT_EQ(Start(2, EFaultMode::notDone, bytes), "StreamRead 'object': injected fault at call 2, not done");
    EXPECT_EQ(bytes, "0123");
    EXPECT_TRUE(client.IsReached());
}

TEST_F(CFaultStreamTest, ReadInPartFillsHalfOfTheBuffer) {
    Arm(EOperation::streamRead, 1, EFaultMode::doneInPart);
    const auto stream = client.StartDownload("object");
    bytes_t buffer(8, '-');
    EXPECT_THROW(stream->Read(buffer), CCloudExc);
    EXPECT_EQ(std::string(buffer.begin(), buffer.end()), "0123----");
}

TEST_F(CFaultStreamTest, ReadDoneButFailedFillsTheBuffer) {
    Arm(EOperation::streamRead, 1, EFaultMode::doneButFailed);
    const auto stream = client.StartDownload("object");
    bytes_t buffer(8, '-');
    EXPECT_THROW(stream->Read(buffer), CCloudExc);
    EXPECT_EQ(std::string(buffer.begin(), buffer.end()), "01234567");
}

TEST_F(CFaultStreamTest, FailedDownloadStaysFailed) {
    Arm(EOperation::streamRead, 1, EFaultMode::notDone);
    const auto stream = client.StartDownload("object");
    bytes_t buffer(8);
    EXPECT_THROW(stream->Read(buffer), CCloudExc);
    EXPECT_EQ(MessageOf([&] { stream->Read(buffer); }), "StreamRead 'object': the stream has failed before");
    std::string bytes;
    EXPECT_EQ(Start(0, EFaultMode::notDone, bytes), "") << "a new stream is sound";
}

TEST_F(CFaultStreamTest, FailedUploadLeavesTheOldObject) {
    for (const EOperation operation : {EOperation::streamWrite, EOperation::streamFinish}) {
        for (const EFaultMode mode : {EFaultMode::notDone, EFaultMode::doneInPart}) {
            Arm(operation, 1, mode);
            const auto stream = client.StartUpload("object", 4);
            EXPECT_THROW(
                {
                    stream->Write(*Share("text"));
                    stream->Finish();
                },
                CCloudExc);
            EXPECT_EQ(MessageOf([&] { stream->Finish(); }), "StreamFinish 'object': the stream has failed before");
            EXPECT_EQ(Read(*store, "object"), "0123456789");
            EXPECT_TRUE(client.IsReached());
        }
    }
}

TEST_F(CFaultStreamTest, WriteDoneButFailedBreaksTheStream) {
    Arm(EOperation::streamWrite, 1, EFaultMode::doneButFailed);
    const auto stream = client.StartUpload("new", 4);
    EXPECT_EQ(MessageOf([&] { stream->Write(*Share("text")); }),
              "StreamWrite 'new': injected fault at call 1, done but failed");
    EXPECT_THROW(stream->Finish(), CCloudExc);
    EXPECT_FALSE(store->IsFileExist("new"));
}

TEST_F(CFaultStreamTest, FinishDoneButFailedHasStoredTheObject) {
    Arm(EOperation::streamFinish, 1, EFaultMode::doneButFailed);
    const auto stream = client.StartUpload("new", 4);
    stream->Write(*Share("text"));
    EXPECT_THROW(stream->Finish(), CCloudExc);
    EXPECT_EQ(Read(*store, "new"), "text");
}

TEST_F(CFaultStreamTest, FinishInPartMakesTheParents) {
    Arm(EOperation::streamFinish, 1, EFaultMode::doneInPart);
    const auto stream = client.StartUpload("b/c/new", 0);
    EXPECT_FALSE(store->IsFolderExist("b"));
    EXPECT_THROW(stream->Finish(), CCloudExc);
    EXPECT_TRUE(store->IsFolderExist("b/c"));
    EXPECT_FALSE(store->IsFileExist("b/c/new"));
}

TEST_F(CFaultStreamTest, CrashBreaksOpenStreams) {
    const auto up = client.StartUpload("new", 4);
    const auto down = client.StartDownload("object");
    up->Write(*Share("text"));
    Arm(EOperation::deleteFile, 1, EFaultMode::notDone, true);
    EXPECT_THROW(client.DeleteFileAsync("object")->Wait(), CCloudExc);
    EXPECT_EQ(MessageOf([&] { up->Finish(); }), "StreamFinish 'new': injected crash: the store is out of reach");
    bytes_t buffer(4);
    EXPECT_EQ(MessageOf([&] { down->Read(buffer); }), "StreamRead 'object': injected crash: the store is out of reach");
    EXPECT_FALSE(store->IsFileExist("new"));
}

TEST_F(CFaultStreamTest, RealFailuresBreakTheStreamToo) {
    const auto stream = client.StartUpload("new", 2);
    EXPECT_EQ(MessageOf([&] { stream->Write(*Share("text")); }), "StartUpload 'new': more bytes than announced");
    EXPECT_EQ(MessageOf([&] { stream->Finish(); }), "StreamFinish 'new': the stream has failed before");
}

TEST_F(CFaultStreamTest, StreamsOutliveTheClient) {
    auto fault = std::make_unique<CFaultClient>(store);
    const auto stream = fault->StartUpload("new", 4);
    fault.reset();
    stream->Write(*Share("text"));
    stream->Finish();
    EXPECT_EQ(Read(*store, "new"), "text");
}

}  // namespace

}  // namespace cloudclientlib
