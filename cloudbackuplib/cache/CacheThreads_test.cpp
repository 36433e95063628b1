#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "cloudbackuplib/CacheUpdateSink.h"
#include "common/exc.h"
#include "tests/support/MemoryExtent.h"

namespace cloudbackuplib::backup::cache {
namespace {

constexpr unsigned long writerCount = 8;
constexpr unsigned long reportsOfAWriter = 300;
constexpr unsigned long partSize = 16;

guid::guid_t StorageOf(unsigned long writer) {
    std::array<std::uint8_t, 16> bytes{};
    bytes[0] = static_cast<std::uint8_t>(writer + 1);
    return guid::guid_t(bytes);
}

/// One storage's writer, in a thread of its own: reports part after part and remembers which reports were taken.
class Writer {
public:
    Writer(guid::guid_t storage, std::shared_ptr<CStgMetaCache> cache)
        : extent_(std::make_shared<test::MemoryExtent>(std::string((reportsOfAWriter + 1) * partSize, 'x'))),
          sink_(std::make_unique<CCacheUpdateSink>(storage, std::move(cache), extent_, 0UL)) {}

    void Run() {
        for (unsigned long version = 1; version <= reportsOfAWriter; ++version) {
            SMetaLocationDescr part;
            part.Size = partSize;
            try {
                sink_->Update(version, {{version * partSize, part}}, {{version * partSize, part}}, partSize);
                taken_.insert(version * partSize);
            } catch (const exc::CRuntimeExc& failure) {
                refusals_.insert(failure.what());
            }
        }
    }

    [[nodiscard]] const std::set<unsigned long>& GetTaken() const { return taken_; }
    [[nodiscard]] const std::set<std::string>& GetRefusals() const { return refusals_; }

private:
    const std::shared_ptr<test::MemoryExtent> extent_;
    const std::unique_ptr<IMetaUpdateSink> sink_;
    std::set<unsigned long> taken_;
    std::set<std::string> refusals_;
};

/// Eight writers on a cache; `work` runs in the session's thread as often as it can until they are done.
class CacheThreads : public testing::Test {
protected:
    CacheThreads() {
        for (unsigned long i = 0; i < writerCount; ++i) {
            cache_->Put(StorageOf(i), "/not/read", 0);
            writers_.push_back(std::make_unique<Writer>(StorageOf(i), cache_));
        }
    }

    template <class Work>
    void RunWhileWritersReport(const Work& work) {
        std::atomic<unsigned long> running{writerCount};
        std::vector<std::thread> threads;
        for (const auto& writer : writers_) {
            threads.emplace_back([&running, &writer] {
                writer->Run();
                --running;
            });
        }
        do {
            work();
        } while (running > 0);
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    /// Every report that a writer was told is taken is there, and no other.
    void ExpectTakenReportsOnly() {
        for (unsigned long i = 0; i < writerCount; ++i) {
            std::set<unsigned long> known;
            for (const auto& [offset, part] : cache_->GetMetadataDescriptor(StorageOf(i)).UpdatedParts) {
                known.insert(offset);
            }
            EXPECT_EQ(known, writers_[i]->GetTaken());
        }
    }

    const std::shared_ptr<CStgMetaCache> cache_ = std::make_shared<CStgMetaCache>();
    std::vector<std::unique_ptr<Writer>> writers_;
};

TEST_F(CacheThreads, ASuspendedCacheStandsStillWhileWritersGoOn) {
    RunWhileWritersReport([this] {
        EXPECT_EQ(cache_->EnumUpdates().size(), writerCount);
        const CCacheLock lock(cache_);
        const auto updates = cache_->EnumUpdates();
        for (unsigned long i = 0; i < writerCount; ++i) {
            parts_map_t parts = cache_->GetMetadataDescriptor(StorageOf(i)).UpdatedParts;
            EXPECT_EQ(cache_->LoadParts(StorageOf(i), parts), (reportsOfAWriter + 1) * partSize);
            EXPECT_EQ(cache_->Load(StorageOf(i))->size(), (reportsOfAWriter + 1) * partSize);
            EXPECT_EQ(parts.size(), cache_->GetMetadataDescriptor(StorageOf(i)).UpdatedParts.size());
        }
        EXPECT_EQ(cache_->EnumUpdates(), updates);
    });
    ExpectTakenReportsOnly();
    for (const auto& writer : writers_) {
        for (const std::string& refusal : writer->GetRefusals()) {
            EXPECT_EQ(refusal, "Storage cache is suspended for checkpoint");
        }
    }
}

TEST_F(CacheThreads, RelocatingNeverLosesAReport) {
    RunWhileWritersReport([this] {
        for (unsigned long i = 0; i < writerCount; ++i) {
            std::string path;
            unsigned long version = 0;
            ASSERT_TRUE(cache_->Find(StorageOf(i), path, version));
            cache_->Relocate(StorageOf(i), version, "/elsewhere", true);
        }
    });
    ExpectTakenReportsOnly();
    for (const auto& writer : writers_) {
        EXPECT_TRUE(writer->GetRefusals().empty()) << "there is a record at every moment";
    }
}

}  // namespace
}  // namespace cloudbackuplib::backup::cache
