#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>

#include "cloudbackuplib/StgMetaCache.h"
#include "common/exc.h"
#include "common/posix.h"
#include "tests/support/MemoryExtent.h"
#include "tests/support/SizedPart.h"
#include "tests/support/TempDir.h"

namespace cloudbackuplib::backup::cache {
namespace {

using testing::ElementsAre;

constexpr unsigned long huge = 1UL << 60;

std::string Text(const cnt::array_t<char>& bytes) { return {bytes.begin(), bytes.end()}; }

/// An extent whose reading fails with the host's own exception.
class FailingExtent : public io::stg::IStgExtent {
public:
    std::size_t Read(std::uint64_t, void*, std::size_t) override { throw std::out_of_range("host's own failure"); }
    std::uint64_t GetSize() override { return 100; }
};

class StgMetaCacheLoad : public testing::Test {
protected:
    StgMetaCacheLoad() { cache_.Put(storage_, file_, 1); }

    void WriteFile(const std::string& text) { std::ofstream(file_, std::ios::binary) << text; }
    void Register(const std::shared_ptr<io::stg::IStgExtent>& extent) { cache_.Update(storage_, 1, extent, {}, {}, 0); }
    std::string LoadAll() { return Text(*cache_.Load(storage_)); }

    /// What the refusal of a read says.
    std::string Short(unsigned long wanted, unsigned long offset, const std::string& source, unsigned long there) {
        return exc::Format("Cannot load metadata for storage '%1': '%2' bytes wanted at offset '%3' of %4, '%5' there",
                           storage_, wanted, offset, source, there);
    }
    static std::string MessageOf(const std::function<void()>& operation) {
        try {
            operation();
        } catch (const exc::CRuntimeExc& failure) {
            return failure.what();
        }
        return "no exception";
    }

    test::TempDir folder_;
    const std::string file_ = folder_ / "metadata";
    const std::string fileSource_ = "file '" + file_ + "'";
    const guid::guid_t storage_ = guid::guid_t::FromStr("0a000000-0000-4000-8000-000000000001");
    CStgMetaCache cache_;
};

TEST_F(StgMetaCacheLoad, ReadsTheFileWhole) {
    WriteFile(std::string("header\0part", 11));
    cache_.SuspendForCheckpoint();
    EXPECT_EQ(LoadAll(), std::string("header\0part", 11));
}

TEST_F(StgMetaCacheLoad, ReadsAnEmptyFile) {
    WriteFile("");
    cache_.SuspendForCheckpoint();
    EXPECT_EQ(LoadAll(), "");
}

TEST_F(StgMetaCacheLoad, ReadsTheExtentInOneReadWhileItLives) {
    WriteFile("file");
    const auto extent = std::make_shared<test::MemoryExtent>("extent");
    Register(extent);
    cache_.SuspendForCheckpoint();
    EXPECT_EQ(LoadAll(), "extent");
    EXPECT_THAT(extent->GetReads(), ElementsAre(test::MemoryExtent::SRead{0, 6}));
}

TEST_F(StgMetaCacheLoad, ReadsTheFileOnceTheExtentIsGone) {
    WriteFile("file");
    auto extent = std::make_shared<test::MemoryExtent>("extent");
    Register(extent);
    extent.reset();
    cache_.SuspendForCheckpoint();
    EXPECT_EQ(LoadAll(), "file");
    parts_map_t parts{{1, test::SizedPart(2)}};
    EXPECT_EQ(cache_.LoadParts(storage_, parts), 4U);
    EXPECT_EQ(Text(*parts.at(1).Data.Get()), "il");
}

TEST_F(StgMetaCacheLoad, ReadsTheExtentOfTheLastReport) {
    const auto first = std::make_shared<test::MemoryExtent>("first");
    const auto second = std::make_shared<test::MemoryExtent>("the second");
    Register(first);
    Register(second);
    cache_.SuspendForCheckpoint();
    EXPECT_EQ(LoadAll(), "the second");
    parts_map_t parts{{4, test::SizedPart(3)}};
    EXPECT_EQ(cache_.LoadParts(storage_, parts), 10U);
    EXPECT_EQ(Text(*parts.at(4).Data.Get()), "sec");
    EXPECT_TRUE(first->GetReads().empty());
}

/// An extent that is longer after each read.
class GrowingExtent : public test::MemoryExtent {
public:
    std::size_t Read(std::uint64_t offset, void* buffer, std::size_t size) override {
        const std::size_t got = MemoryExtent::Read(offset, buffer, size);
        SetBytes(std::string(static_cast<std::size_t>(GetSize()) + 10, 'x'));
        return got;
    }
};

TEST_F(StgMetaCacheLoad, TellsTheSizeThatTheWholeHasAfterTheReads) {
    const auto extent = std::make_shared<GrowingExtent>();
    extent->SetBytes(std::string(10, 'x'));
    Register(extent);
    cache_.SuspendForCheckpoint();
    parts_map_t parts{{0, test::SizedPart(1)}, {5, test::SizedPart(5)}};
    EXPECT_EQ(cache_.LoadParts(storage_, parts), 30U);
}

TEST_F(StgMetaCacheLoad, ReadsPartsOfTheFile) {
    WriteFile("0123456789");
    parts_map_t parts{{0, test::SizedPart(2)}, {4, test::SizedPart(3)}, {9, test::SizedPart(1)}};
    cache_.SuspendForCheckpoint();
    EXPECT_EQ(cache_.LoadParts(storage_, parts), 10U);
    EXPECT_EQ(Text(*parts.at(0).Data.Get()), "01");
    EXPECT_EQ(Text(*parts.at(4).Data.Get()), "456");
    EXPECT_EQ(Text(*parts.at(9).Data.Get()), "9");
}

TEST_F(StgMetaCacheLoad, ReadsPartsOfTheExtentInTheirOrder) {
    const auto extent = std::make_shared<test::MemoryExtent>("0123456789");
    Register(extent);
    parts_map_t parts{{7, test::SizedPart(3)}, {0, test::SizedPart(1)}};
    cache_.SuspendForCheckpoint();
    EXPECT_EQ(cache_.LoadParts(storage_, parts), 10U);
    EXPECT_EQ(Text(*parts.at(0).Data.Get()), "0");
    EXPECT_EQ(Text(*parts.at(7).Data.Get()), "789");
    using SRead = test::MemoryExtent::SRead;
    EXPECT_THAT(extent->GetReads(), ElementsAre(SRead{0, 1}, SRead{7, 3}));
}

TEST_F(StgMetaCacheLoad, ReplacesTheBytesThatAPartBringsAlong) {
    WriteFile("fresh");
    parts_map_t parts{{0, test::SizedPart(5)}};
    parts.at(0).Data.Set(std::make_shared<cnt::array_t<char>>(5, 'o'));
    cache_.SuspendForCheckpoint();
    cache_.LoadParts(storage_, parts);
    EXPECT_EQ(Text(*parts.at(0).Data.Get()), "fresh");
}

TEST_F(StgMetaCacheLoad, AnEmptyPartIsReadAnywhere) {
    WriteFile("0123");
    parts_map_t parts{{0, test::SizedPart(0)}, {4, test::SizedPart(0)}, {huge, test::SizedPart(0)}};
    cache_.SuspendForCheckpoint();
    EXPECT_EQ(cache_.LoadParts(storage_, parts), 4U);
    for (const auto& [offset, part] : parts) {
        EXPECT_TRUE(part.Data.Get()->empty()) << offset;
    }
}

TEST_F(StgMetaCacheLoad, APartThatIsNotWhollyInTheFileIsRefused) {
    WriteFile("0123456789");
    cache_.SuspendForCheckpoint();
    parts_map_t behind{{0, test::SizedPart(1)}, {8, test::SizedPart(3)}};
    EXPECT_EQ(MessageOf([&] { cache_.LoadParts(storage_, behind); }), Short(3, 8, fileSource_, 2));
    parts_map_t beyond{{11, test::SizedPart(1)}};
    EXPECT_EQ(MessageOf([&] { cache_.LoadParts(storage_, beyond); }), Short(1, 11, fileSource_, 0));
}

TEST_F(StgMetaCacheLoad, APartThatIsNotWhollyInTheExtentIsRefused) {
    const auto extent = std::make_shared<test::MemoryExtent>("0123456789");
    Register(extent);
    cache_.SuspendForCheckpoint();
    parts_map_t parts{{8, test::SizedPart(3)}};
    EXPECT_EQ(MessageOf([&] { cache_.LoadParts(storage_, parts); }), Short(3, 8, "the writer's extent", 2));
    EXPECT_TRUE(extent->GetReads().empty()) << "refused before anything is read";
}

// A buffer of that size cannot be had: were it asked for, the failure would be another one.
TEST_F(StgMetaCacheLoad, AHugePartIsRefusedBeforeMemoryIsTakenForIt) {
    WriteFile("0123456789");
    cache_.SuspendForCheckpoint();
    parts_map_t parts{{4, test::SizedPart(huge)}};
    EXPECT_EQ(MessageOf([&] { cache_.LoadParts(storage_, parts); }), Short(huge, 4, fileSource_, 6));
    parts_map_t wrapping{{4, test::SizedPart(~0UL)}};
    EXPECT_EQ(MessageOf([&] { cache_.LoadParts(storage_, wrapping); }), Short(~0UL, 4, fileSource_, 6));
    cache_.Resume(false);
    const auto extent = std::make_shared<test::MemoryExtent>("0123456789");
    Register(extent);
    cache_.SuspendForCheckpoint();
    EXPECT_EQ(MessageOf([&] { cache_.LoadParts(storage_, parts); }), Short(huge, 4, "the writer's extent", 6));
}

TEST_F(StgMetaCacheLoad, AnExtentThatGivesFewerBytesThanItClaimsIsAFailure) {
    const auto extent = std::make_shared<test::MemoryExtent>("0123456789");
    extent->Overstate(2);
    Register(extent);
    cache_.SuspendForCheckpoint();
    EXPECT_EQ(MessageOf([&] { (void)cache_.Load(storage_); }), Short(12, 0, "the writer's extent", 10));
    parts_map_t parts{{8, test::SizedPart(4)}};
    EXPECT_EQ(MessageOf([&] { cache_.LoadParts(storage_, parts); }), Short(4, 8, "the writer's extent", 2));
}

TEST_F(StgMetaCacheLoad, MetadataAboveTheLimitIsRefusedWholeButNotInParts) {
    WriteFile("0123456789");
    std::filesystem::resize_file(file_, 4'294'962'177UL);  // sparse
    cache_.SuspendForCheckpoint();
    EXPECT_EQ(MessageOf([&] { (void)cache_.Load(storage_); }), "Storage metadata size '4294962177' is too large");
    parts_map_t parts{{0, test::SizedPart(3)}, {4'294'962'175UL, test::SizedPart(2)}};
    EXPECT_EQ(cache_.LoadParts(storage_, parts), 4'294'962'177UL);
    EXPECT_EQ(Text(*parts.at(4'294'962'175UL).Data.Get()), std::string(2, '\0'));
}

TEST_F(StgMetaCacheLoad, AnExtentAboveTheLimitIsRefusedWhole) {
    const auto extent = std::make_shared<test::MemoryExtent>();
    extent->Overstate(4'294'962'177UL);
    Register(extent);
    cache_.SuspendForCheckpoint();
    EXPECT_EQ(MessageOf([&] { (void)cache_.Load(storage_); }), "Storage metadata size '4294962177' is too large");
}

TEST_F(StgMetaCacheLoad, FailuresOfTheFilePassUnchanged) {
    cache_.SuspendForCheckpoint();
    parts_map_t parts;
    EXPECT_THROW((void)cache_.Load(storage_), posix::CPosixExc);
    EXPECT_THROW(cache_.LoadParts(storage_, parts), posix::CPosixExc);
}

TEST_F(StgMetaCacheLoad, FailuresOfTheExtentPassUnchanged) {
    const auto extent = std::make_shared<FailingExtent>();
    Register(extent);
    cache_.SuspendForCheckpoint();
    parts_map_t parts{{0, test::SizedPart(1)}};
    EXPECT_THROW((void)cache_.Load(storage_), std::out_of_range);
    EXPECT_THROW(cache_.LoadParts(storage_, parts), std::out_of_range);
}

TEST_F(StgMetaCacheLoad, AFailedLoadLeavesTheCacheSuspendedAndWorking) {
    cache_.SuspendForCheckpoint();
    EXPECT_THROW((void)cache_.Load(storage_), posix::CPosixExc);
    EXPECT_NO_THROW(cache_.CheckSuspended());
    WriteFile("there");
    EXPECT_EQ(LoadAll(), "there");
}

/// An extent that uses the cache once more when it is let go, as a writer's own objects may.
class TalkativeExtent : public test::MemoryExtent {
public:
    TalkativeExtent(CStgMetaCache& cache, int& calls) : MemoryExtent("bytes"), cache_(cache), calls_(calls) {}
    ~TalkativeExtent() override {
        (void)cache_.EnumUpdates();
        ++calls_;
    }

    std::function<void()> onRead;
    std::size_t Read(std::uint64_t offset, void* buffer, std::size_t size) override {
        onRead();
        return MemoryExtent::Read(offset, buffer, size);
    }

private:
    CStgMetaCache& cache_;
    int& calls_;
};

TEST_F(StgMetaCacheLoad, AnExtentLetGoWhileItIsReadDiesOutsideTheLock) {
    int calls = 0;
    auto extent = std::make_shared<TalkativeExtent>(cache_, calls);
    extent->onRead = [&extent] { extent.reset(); };
    Register(extent);
    cache_.SuspendForCheckpoint();
    EXPECT_EQ(LoadAll(), "bytes");
    EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace cloudbackuplib::backup::cache
