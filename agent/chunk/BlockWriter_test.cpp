#include "agent/chunk/BlockWriter.h"

#include <thread>

#include <gtest/gtest.h>

#include "agent/chunk/BlockUploader.h"
#include "agent/chunk/ChunkTestKit.h"
#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "cloudclientlib/wrappers/GateClient.h"

namespace agent {
namespace {

using cloudclientlib::EOperation;
using test::backupId;
using test::bytes_t;
using test::RandomBytes;
using test::storageId;

class BlockWriter : public testing::Test {
protected:
    SBlockTarget Target() { return {client_, backupId, storageId, 7}; }
    static CBlockWriter::buffer_ptr Buffer(bytes_t bytes) {
        return std::make_shared<cnt::array_t<char>>(std::move(bytes));
    }
    static std::string PathOf(const bytes_t& bytes) {
        cloudbackuplib::backup::SBlockExternalId id;
        id.id = digest::Md5(bytes).bytes;
        return test::BlockPath(id);
    }
    static bytes_t Padded(bytes_t bytes, std::size_t count = 1) {
        bytes.insert(bytes.end(), count, '\0');
        return bytes;
    }
    /// Something else, so that the storage's folder is there.
    void PlantFolder() { test::Upload(memory_, PathOf({'x'}), {'x'}); }
    [[nodiscard]] std::uint64_t Count(EOperation operation) const { return client_->GetCounts().Of(operation); }

    std::shared_ptr<clients::CMemoryClient> memory_ = std::make_shared<clients::CMemoryClient>();
    std::shared_ptr<cloudclientlib::CCountingClient> client_ =
        std::make_shared<cloudclientlib::CCountingClient>(memory_);
    const bytes_t block_ = RandomBytes(5000, 1);
};

TEST_F(BlockWriter, StoresABlockUnderItsMd5) {
    CBlockWriter writer(Target());
    writer.Open();
    const SWrittenBlock written = writer.Write(0, Buffer(block_));
    EXPECT_FALSE(written.isFound);
    EXPECT_EQ(written.id.id, digest::Md5(block_).bytes);
    EXPECT_EQ(written.id.keySetId, crypto::SRawKeySetId());
    EXPECT_EQ(written.id.number32, 5000U);
    EXPECT_EQ(written.id.number64, 7U);
    EXPECT_EQ(test::Download(memory_, PathOf(block_)), block_);
}

TEST_F(BlockWriter, AsksOnceOfAStorageWithoutBlocks) {
    CBlockWriter writer(Target());
    writer.Open();
    for (std::size_t i = 0; i < 5; ++i) {
        static_cast<void>(writer.Write(i, Buffer(RandomBytes(100, i))));
    }
    EXPECT_EQ(Count(EOperation::isFolderExist), 1U);
    EXPECT_EQ(Count(EOperation::uploadFile), 5U);
    EXPECT_EQ(client_->GetCounts().Total(), 6U);
}

TEST_F(BlockWriter, AsksOncePerBlockWhereThereAreBlocks) {
    PlantFolder();
    CBlockWriter writer(Target());
    writer.Open();
    static_cast<void>(writer.Write(0, Buffer(block_)));
    EXPECT_EQ(Count(EOperation::downloadFileRange), 1U);
    EXPECT_EQ(client_->GetCounts().Total(), 3U);
}

TEST_F(BlockWriter, TakesAnEqualObject) {
    test::Upload(memory_, PathOf(block_), block_);
    CBlockWriter writer(Target());
    writer.Open();
    const SWrittenBlock written = writer.Write(0, Buffer(block_));
    EXPECT_TRUE(written.isFound);
    EXPECT_EQ(written.id.id, digest::Md5(block_).bytes);
    EXPECT_EQ(Count(EOperation::uploadFile), 0U);
}

TEST_F(BlockWriter, LeavesAnotherObjectAloneAndTakesAnotherName) {
    const bytes_t longer = Padded(block_, 3);
    const bytes_t shorter(block_.begin(), block_.end() - 1);
    bytes_t changed = block_;
    changed[2500] ^= 1;
    for (const bytes_t& other : {longer, shorter, changed, bytes_t()}) {
        test::Upload(memory_, PathOf(block_), other);
        CBlockWriter writer(Target());
        writer.Open();
        const SWrittenBlock written = writer.Write(0, Buffer(block_));
        EXPECT_EQ(written.id.id, digest::Md5(Padded(block_)).bytes);
        EXPECT_EQ(written.id.number32, 5001U);
        EXPECT_EQ(test::Download(memory_, PathOf(block_)), other);
        EXPECT_EQ(test::Download(memory_, PathOf(Padded(block_))), Padded(block_));
    }
}

TEST_F(BlockWriter, GoesOnWhileNamesAreTaken) {
    for (std::size_t i = 0; i < 15; ++i) {
        test::Upload(memory_, PathOf(Padded(block_, i)), {'x'});
    }
    {
        CBlockWriter writer(Target());
        writer.Open();
        EXPECT_EQ(writer.Write(0, Buffer(block_)).id.number32, 5015U);
    }
    test::Upload(memory_, PathOf(Padded(block_, 15)), {'x'});
    CBlockWriter writer(Target());
    writer.Open();
    EXPECT_THROW(static_cast<void>(writer.Write(0, Buffer(block_))), exc::CRuntimeExc);
}

TEST_F(BlockWriter, DoesNotTakeAnObjectThatCannotBeCompared) {
    test::Upload(memory_, PathOf(block_), block_);
    memory_->SetTier(PathOf(block_), cloudclientlib::EStorageTier::archive);
    CBlockWriter writer(Target());
    writer.Open();
    const SWrittenBlock written = writer.Write(0, Buffer(block_));
    EXPECT_FALSE(written.isFound);
    EXPECT_EQ(written.id.number32, 5001U);
}

TEST_F(BlockWriter, FailsWhenItCannotAsk) {
    PlantFolder();
    const auto faults = std::make_shared<cloudclientlib::CFaultClient>(memory_);
    faults->Arm({.call = 2});
    CBlockWriter writer({faults, backupId, storageId, 7});
    writer.Open();
    EXPECT_THROW(static_cast<void>(writer.Write(0, Buffer(block_))), cloudclientlib::CCloudExc);
    EXPECT_FALSE(memory_->IsFileExist(PathOf(block_)));
}

/// The published pair of 128-byte messages with one MD5 (Wang, Feng, Lai, Yu, 2004).
std::pair<bytes_t, bytes_t> CollidingBytes() {
    const std::string hex =
        "d131dd02c5e6eec4693d9a0698aff95c2fcab58712467eab4004583eb8fb7f8955ad340609f4b30283e488832571415a085125e8f7cdc9"
        "9f"
        "d91dbdf280373c5bd8823e3156348f5bae6dacd436c919c6dd53e2b487da03fd02396306d248cda0e99f33420f577ee8ce54b67080a80d"
        "1e"
        "c69821bcb6a8839396f9652b6ff72a70";
    bytes_t first;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        first.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    bytes_t second = first;
    for (const std::size_t at : {19U, 45U, 59U, 83U, 109U, 123U}) {
        second[at] = static_cast<char>(second[at] ^ 0x80);
    }
    return {first, second};
}

TEST_F(BlockWriter, BlocksThatCollideInOneRunGetDifferentNames) {
    const auto [first, second] = CollidingBytes();
    ASSERT_NE(first, second);
    ASSERT_EQ(digest::Md5(first), digest::Md5(second));
    CBlockWriter writer(Target());
    writer.Open();
    const auto one = writer.Write(0, Buffer(first));
    const auto two = writer.Write(1, Buffer(second));
    EXPECT_NE(one.id.id, two.id.id);
    EXPECT_EQ(test::Download(memory_, test::BlockPath(one.id)), first);
    EXPECT_EQ(test::Download(memory_, test::BlockPath(two.id)), Padded(second));
}

TEST_F(BlockWriter, NamesGoByNumberNotByTime) {
    const auto [first, second] = CollidingBytes();
    CBlockWriter writer(Target());
    writer.Open();
    SWrittenBlock two;
    std::thread later([&] { two = writer.Write(1, Buffer(second)); });  // waits for its turn
    const SWrittenBlock one = writer.Write(0, Buffer(first));
    later.join();
    EXPECT_EQ(one.id.number32, 128U);
    EXPECT_EQ(two.id.number32, 129U);
}

TEST_F(BlockWriter, ABlockOfAnotherRunThatCollidesIsKept) {
    const auto [first, second] = CollidingBytes();
    for (const auto& bytes : {first, second}) {
        CBlockWriter writer(Target());
        writer.Open();
        static_cast<void>(writer.Write(0, Buffer(bytes)));
    }
    EXPECT_EQ(test::Download(memory_, PathOf(first)), first);
    EXPECT_EQ(test::Download(memory_, PathOf(Padded(second))), Padded(second));
}

TEST_F(BlockWriter, UploaderKeepsToItsLimit) {
    const auto gate = std::make_shared<cloudclientlib::CGateClient>(memory_);
    const auto counting = std::make_shared<cloudclientlib::CCountingClient>(gate);
    CBlockUploader uploader({counting, backupId, storageId, 7}, 3);
    uploader.Put(Buffer(RandomBytes(100, 0)));
    gate->Close();
    std::thread putting([&] {
        for (std::size_t i = 1; i < 10; ++i) {
            uploader.Put(Buffer(RandomBytes(100, i)));
        }
    });
    gate->WaitHeld(3);
    EXPECT_EQ(gate->GetHeld(), 3U);
    gate->Open();
    putting.join();
    const auto written = uploader.Finish();
    ASSERT_EQ(written.size(), 10U);
    for (std::size_t i = 0; i < written.size(); ++i) {
        EXPECT_EQ(written[i].id.id, digest::Md5(RandomBytes(100, i)).bytes) << "in order";
    }
    EXPECT_EQ(counting->GetCounts().mostTasksInFlight, 3U);
}

TEST_F(BlockWriter, UploaderUsesBuffersAgain) {
    CBlockUploader uploader(Target(), 1);
    const auto buffer = Buffer(block_);
    uploader.Put(buffer);
    uploader.WaitAll();
    EXPECT_EQ(uploader.TakeBuffer(), buffer);
    EXPECT_NE(uploader.TakeBuffer(), buffer);
}

TEST_F(BlockWriter, UploaderThrowsTheFailureAndBeginsNoMore) {
    const auto faults = std::make_shared<cloudclientlib::CFaultClient>(client_);
    CBlockUploader uploader({faults, backupId, storageId, 7}, 2);
    faults->Arm({.call = 2, .kinds = {EOperation::uploadFile}});
    uploader.Put(Buffer(RandomBytes(100, 0)));
    uploader.WaitAll();
    uploader.Put(Buffer(RandomBytes(100, 1)));
    uploader.WaitAll();
    EXPECT_THROW(uploader.Put(Buffer(RandomBytes(100, 2))), cloudclientlib::CCloudExc);
    EXPECT_THROW(static_cast<void>(uploader.Finish()), cloudclientlib::CCloudExc);
    EXPECT_EQ(Count(EOperation::uploadFile), 1U);
}

}  // namespace
}  // namespace agent
