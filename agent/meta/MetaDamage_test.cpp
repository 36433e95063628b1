#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/meta/AllocationMeter.h"
#include "agent/meta/MetaAssembly.h"
#include "agent/meta/MetaFile.h"
#include "agent/meta/MetaTestKit.h"
#include "agent/meta/Records.h"
#include "tests/support/MemoryExtent.h"
#include "tests/support/TempDir.h"

/// Files that were damaged, and files that somebody made to do harm.
namespace agent {
namespace {

using namespace test_kit;
using testing::HasSubstr;

/// What the reader says; the bytes it allocated on the way go to `peak`.
std::string Refusal(const std::string& file, std::size_t* peak = nullptr) {
    test::MemoryExtent extent(file);
    const AllocationMeter meter;
    std::string text = FailureOf([&] { (void)ReadMeta(extent, "file"); });
    if (peak != nullptr) {
        *peak = meter.GetPeak();
    }
    return text;
}

/// A file of two versions and so two banks.
std::string TwoBanks() {
    test::TempDir dir;
    CMetaState state;
    WriteMeta({std::nullopt, dir / "1", storageId, 1}, state, SmallChanges());
    SMetaChanges changes;
    changes.chunks = {MakeChunk(150, 30, 0, 200)};
    changes.Put("docs/new", MakeFile(140, 40));
    WriteMeta({dir / "1", dir / "2", storageId, 2}, state, changes);
    return ReadFileBytes(dir / "2");
}

/// A file with the given banks whose header counts as the reader will, so that only the banks' content matters.
std::string FileOf(const std::vector<std::string>& banks, std::uint64_t entries = 0) {
    SMetaHeader header;
    header.storageId = storageId;
    header.version = 1;
    header.entries = entries;
    header.streamEnd = 1'000'000;
    return meta::AssembleFile(header, banks);
}

std::string Put(const std::string& path, const SEntry& entry) {
    std::string out;
    meta::PutEntryRecord(out, path, CPackedEntry(entry));
    return out;
}

TEST(MetaDamage, EveryTruncationIsRefused) {
    const std::string file = TwoBanks();
    std::size_t peak = 0;
    for (std::size_t size = 0; size < file.size(); ++size) {
        EXPECT_THAT(Refusal(file.substr(0, size), &peak), HasSubstr("Cannot read metadata file 'file': ")) << size;
        ASSERT_LT(peak, 200'000U) << size;
    }
    EXPECT_EQ(Refusal(file + "x"), "Cannot read metadata file 'file': it has " + std::to_string(file.size() + 1) +
                                       " bytes where the header says " + std::to_string(file.size()));
}

TEST(MetaDamage, EveryFlippedBitIsRefused) {
    const std::string file = TwoBanks();
    std::size_t peak = 0;
    for (std::size_t i = 0; i < file.size(); ++i) {
        for (const unsigned bit : {static_cast<unsigned>(i % 8), 7U}) {
            std::string damaged = file;
            damaged[i] = static_cast<char>(static_cast<unsigned char>(damaged[i]) ^ (1U << bit));
            EXPECT_THAT(Refusal(damaged, &peak), HasSubstr("Cannot read metadata file 'file': ")) << i;
            ASSERT_LT(peak, 200'000U) << i;
        }
    }
}

TEST(MetaDamage, EveryFlippedBitWithTheDigestsMadeRightIsHarmless) {
    const std::string file = TwoBanks();
    std::size_t taken = 0;
    for (std::size_t i = 0; i < file.size() * 8; ++i) {
        std::string damaged = file;
        damaged[i / 8] = static_cast<char>(static_cast<unsigned char>(damaged[i / 8]) ^ (1U << (i % 8)));
        meta::RepairDigests(damaged);
        test::MemoryExtent extent(damaged);
        const AllocationMeter meter;
        try {
            const SMeta meta = ReadMeta(extent, "file");
            EXPECT_NO_THROW((void)meta.state.Check());
            ++taken;
        } catch (const exc::CRuntimeExc&) {
        }
        ASSERT_LT(meter.GetPeak(), 1'000'000U) << i;
    }
    // Names, modes, times and digests may be anything; so it did get past the digests.
    EXPECT_GT(taken, 100U);
}

TEST(MetaDamage, AnExtentThatEndsEarlyIsRefused) {
    const std::string file = TwoBanks();
    test::MemoryExtent extent(file.substr(0, file.size() - 3));
    extent.Overstate(3);
    EXPECT_THAT(FailureOf([&] { (void)ReadMeta(extent, "file"); }), HasSubstr("file': bank 1: "));
}

TEST(MetaDamage, NamesBankAndRecord) {
    std::string hostile = Put("", MakeFolder());
    hostile += Put("a", MakeFolder());
    hostile += '\x09';
    EXPECT_EQ(Refusal(FileOf({Put("", MakeFolder()), hostile})),
              "Cannot read metadata file 'file': bank 1: record at byte " + std::to_string(hostile.size() - 1) +
                  ": records of kind 9 are not known; a newer version may have written them");
}

TEST(MetaDamage, RefusesCountsThatAreOthers) {
    const std::string bank = Put("", MakeFolder());
    EXPECT_EQ(Refusal(FileOf({bank})),
              "Cannot read metadata file 'file': its 1 records make 1 entries, 0 chunks and 0 blocks where the header "
              "says 0, 0 and 0, and 0 dead");
    EXPECT_THAT(Refusal(FileOf({bank, bank}, 1)), HasSubstr("its 2 records make 1 entries"));
    test::MemoryExtent extent(FileOf({bank}, 1));
    EXPECT_EQ(ReadMeta(extent, "file").state.GetEntries().size(), 1U);
}

TEST(MetaDamage, RefusesEntriesThatDoNotFitTogether) {
    EXPECT_EQ(Refusal(FileOf({Put("a", MakeFolder())}, 1)),
              "Cannot read metadata file 'file': entry 'a': no folder holds it");
    EXPECT_EQ(Refusal(FileOf({Put("", MakeFile(0, 10))}, 1)),
              "Cannot read metadata file 'file': entry '': a segment of 10 bytes at stream offset 0 is not covered by "
              "chunks");
    EXPECT_EQ(Refusal(FileOf({Put("", MakeLink(EEntryType::hardLink, "x"))}, 1)),
              "Cannot read metadata file 'file': entry '': it is another name of 'x', which is no file that stands "
              "before it");
    std::string record = Put("", MakeFolder());
    record[3] = '\x08';
    EXPECT_EQ(Refusal(FileOf({record}, 1)), "Cannot read metadata file 'file': entry '': entry type 8 is not known");
}

TEST(MetaDamage, RefusesAStreamThatEndsInAChunk) {
    SMetaHeader header;
    header.version = 1;
    header.streamEnd = 99;
    std::string bank;
    meta::PutBlockRecord(bank, MakeBlock(1));
    meta::PutChunkRecord(bank, {}, MakeChunk(0, 100));
    EXPECT_EQ(Refusal(meta::AssembleFile(header, {bank})),
              "Cannot read metadata file 'file': the stream cannot end at 99 with a chunk that ends at 100");
}

/// A file whose only bank is stored as given.
std::string StoredAs(const std::string& stored, std::uint64_t plainSize) {
    SMetaHeader header;
    header.version = 1;
    header.banks = {{8192, stored.size(), plainSize, EBankCodec::zstd, digest::Sha256(stored)}};
    return meta::SerializeHeader(header) + stored;
}

TEST(MetaDamage, RefusesFramesThatAreNotWhatTheTableSays) {
    const std::string plain(5000, 'x');
    const std::string frame = meta::StoreBank(plain, meta::headerSize, {}).bytes;
    const auto says = [](const std::string& text) { return "Cannot read metadata file 'file': bank 0: " + text; };
    ASSERT_LT(frame.size(), 100U);
    EXPECT_EQ(Refusal(StoredAs(frame, 4999)), says("it is not one compressed frame of 4999 bytes"));
    EXPECT_EQ(Refusal(StoredAs(frame, 5001)), says("it is not one compressed frame of 5001 bytes"));
    EXPECT_EQ(Refusal(StoredAs(frame + '\0', 5000)), says("it is not one compressed frame of 5000 bytes"));
    EXPECT_EQ(Refusal(StoredAs(frame + frame, 5000)), says("it is not one compressed frame of 5000 bytes"));
    EXPECT_EQ(Refusal(StoredAs(std::string(20, 'x'), 5000)), says("it is not one compressed frame of 5000 bytes"));
    EXPECT_THAT(Refusal(StoredAs(frame, 5000)), HasSubstr("bank 0: record at byte 0: records of kind 120"));
}

TEST(MetaDamage, AClaimedSizeAllocatesNothing) {
    // 100 bytes cannot hold a GiB, whatever they say; nor is a bank read before the file is as large as it claims.
    SMetaHeader header;
    header.version = 1;
    header.banks = {{8192, 100, std::uint64_t{1} << 30, EBankCodec::zstd, {}}};
    std::size_t peak = 0;
    EXPECT_THAT(Refusal(meta::SerializeHeader(header) + std::string(100, 'x'), &peak),
                HasSubstr("100 stored bytes claim to hold 1073741824"));
    EXPECT_LT(peak, 100'000U);

    header.banks[0].storedSize = header.banks[0].plainSize;
    EXPECT_THAT(Refusal(meta::SerializeHeader(header) + std::string(100, 'x'), &peak),
                HasSubstr("it has 8292 bytes where the header says 1073750016"));
    EXPECT_LT(peak, 100'000U);
}

TEST(MetaDamage, MemoryGrowsWithTheBytesThatAreThere) {
    // The densest there is: the smallest entries, as compressible as a reader takes them.
    std::string bank = Put("", MakeEntry(EEntryType::directory));
    SEntry tiny;
    tiny.mode = 0;
    std::uint64_t entries = 1;
    for (; bank.size() < 2'000'000; ++entries) {
        bank += Put(std::to_string(entries), tiny);
    }
    const std::string file = FileOf({bank}, entries);
    test::MemoryExtent extent(file);
    const AllocationMeter meter;
    (void)ReadMeta(extent, "file");
    EXPECT_LT(meter.GetPeak(), file.size() * 1000);
}

}  // namespace
}  // namespace agent
