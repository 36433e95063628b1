#include "agent/meta/EntryCodec.h"

#include <gtest/gtest.h>

#include <functional>

#include "agent/meta/MetaTestKit.h"

namespace agent {
namespace {

using namespace test_kit;

SEntry FullFile() {
    SEntry file = MakeFile(1000, 300);
    file.btime = {-5, 7};
    file.size = 5000;
    file.segments = {{0, 1000, 100}, {100, 1100, 50}, {4000, 20, 1000}};
    file.xattrs = {{"user.a", std::string("\0x", 2)}, {"user.b", ""}};
    file.contentSha256 = ShaOf(1);
    file.recheck = true;
    return file;
}

/// What packing says of an entry that was spoilt.
std::string Refusal(SEntry entry, const std::function<void(SEntry&)>& spoil) {
    spoil(entry);
    return FailureOf([&] { CPackedEntry{entry}; });
}

TEST(EntryCodec, EveryTypeComesBack) {
    SEntry device = MakeEntry(EEntryType::charDevice);
    device.rdev = 0x501;
    for (const SEntry& entry : {FullFile(), MakeFolder(), MakeFile(0, 0), MakeLink(EEntryType::symlink, "../x"),
                                MakeLink(EEntryType::hardLink, "a/b"), MakeEntry(EEntryType::fifo), device,
                                MakeEntry(EEntryType::blockDevice)}) {
        const CPackedEntry packed(entry);
        EXPECT_EQ(packed.Unpack(), entry);
        EXPECT_EQ(CPackedView(packed).GetType(), entry.type);
        EXPECT_EQ(CPackedView::FromBytes(packed.GetBytes()), CPackedView(packed));
    }
}

TEST(EntryCodec, BytesOfAFolder) {
    EXPECT_EQ(HexOf(CPackedEntry(MakeFolder()).GetBytes()),
              Hex("01"                   // folder
                  "00"                   // no optional field
                  "ed03 e807 e807"       // 0755, owner and group 1000
                  "80c49fd50c 959aef3a"  // 1700000000 s, 123456789 ns
                  "82c49fd50c 00"        // 1700000001 s
                  "8110 e724"));         // device 2049, inode 4711
}

TEST(EntryCodec, BytesOfAFullFile) {
    EXPECT_EQ(HexOf(CPackedEntry(FullFile()).GetBytes()),
              Hex("02 e701"                            // file; recheck, btime, size, xattrs, segments, digest
                  "a403 e807 e807"                     // 0644
                  "80c49fd50c 959aef3a 82c49fd50c 00"  // modified, changed
                  "8110 e724"                          // device, inode
                  "09 07"                              // born at -5 s, 7 ns
                  "8827"                               // 5000 bytes
                  "02 06757365722e61 020078 06757365722e62 00 03"  // segments
                  "00 d00f 64"                                     // at 0: stream +1000, 100 bytes
                  "00 00 32"                                       // goes on, 50 bytes
                  "8a1e d311 e807"                                 // 3850 later: stream 1130 back, 1000 bytes
                  + ShaOf(1).ToAStr()));
}

TEST(EntryCodec, RefusesWhatATypeDoesNotHave) {
    const auto content = [](SEntry& e) { e.size = 1; };
    EXPECT_EQ(Refusal(MakeFolder(), content), "only a file has content");
    EXPECT_EQ(Refusal(MakeFolder(), [](SEntry& e) { e.segments = {{0, 0, 1}}; }), "only a file has content");
    EXPECT_EQ(Refusal(MakeEntry(EEntryType::fifo), [](SEntry& e) { e.contentSha256 = ShaOf(1); }),
              "only a file has content");
    EXPECT_EQ(Refusal(MakeFolder(), [](SEntry& e) { e.rdev = 1; }), "only a device has a device number");
    EXPECT_EQ(Refusal(MakeFile(0, 1), [](SEntry& e) { e.target = "x"; }), "only a link has a target");
    EXPECT_EQ(Refusal(MakeEntry(EEntryType::symlink), [](SEntry&) {}), "a link has no target");
    EXPECT_EQ(Refusal(MakeEntry(EEntryType::hardLink), [](SEntry&) {}), "a link has no target");
}

TEST(EntryCodec, RefusesImpossibleValues) {
    const auto nanoseconds = [](SEntry& e) { e.ctime.nanoseconds = 1'000'000'000; };
    EXPECT_EQ(Refusal(MakeFolder(), nanoseconds), "1000000000 nanoseconds are more than a second");
    EXPECT_EQ(Refusal(MakeFolder(), [](SEntry& e) { e.mode = 010000; }), "mode 4096 has more than permission bits");
    EXPECT_EQ(Refusal(MakeFolder(), [](SEntry& e) { e.type = EEntryType{}; }), "entry type 0 is not known");
    EXPECT_EQ(Refusal(MakeFolder(), [](SEntry& e) { e.type = EEntryType{8}; }), "entry type 8 is not known");
    EXPECT_EQ(Refusal(MakeFile(0, 0), [](SEntry& e) { e.size = std::uint64_t{1} << 63; }),
              "size 9223372036854775808 is too large");
    EXPECT_EQ(Refusal(MakeLink(EEntryType::symlink, "x"), [](SEntry& e) { e.target = std::string("a\0b", 3); }),
              "a link's target has a NUL");
    EXPECT_EQ(Refusal(MakeLink(EEntryType::hardLink, "x"), [](SEntry& e) { e.target = "../x"; }),
              "path '../x' has an element '..'");
    EXPECT_EQ(Refusal(MakeFolder(),
                      [](SEntry& e) {
                          e.xattrs = {{"", "x"}};
                      }),
              "an extended attribute has no proper name");
    EXPECT_EQ(Refusal(MakeFolder(),
                      [](SEntry& e) {
                          e.xattrs = {{std::string("a\0", 2), "x"}};
                      }),
              "an extended attribute has no proper name");
}

TEST(EntryCodec, RefusesSegmentsThatDoNotFit) {
    const SEntry file = MakeFile(0, 100);
    EXPECT_EQ(Refusal(file, [](SEntry& e) { e.segments = {{0, 0, 0}}; }), "a segment is empty");
    EXPECT_EQ(Refusal(file,
                      [](SEntry& e) {
                          e.segments = {{0, 0, 10}, {9, 50, 1}};
                      }),
              "segments overlap or are out of order at 9");
    EXPECT_EQ(Refusal(file,
                      [](SEntry& e) {
                          e.segments = {{50, 0, 10}, {0, 50, 1}};
                      }),
              "segments overlap or are out of order at 0");
    EXPECT_EQ(Refusal(file,
                      [](SEntry& e) {
                          e.segments = {{1, 0, 100}};
                      }),
              "a segment of 100 bytes at 1 leaves the file of 100");
    EXPECT_EQ(Refusal(file,
                      [](SEntry& e) {
                          e.segments = {{~std::uint64_t{0}, 0, 2}};
                      }),
              "a segment of 2 bytes at 18446744073709551615 leaves the file of 100");
}

/// The bytes of a folder up to its optional fields, then `rest`; `fields` is one byte.
std::string Unpacked(std::string_view type, std::string_view fields, std::string_view rest) {
    const std::string bytes =
        BytesOf(std::string(type) + std::string(fields) + "000000 0000 0000 0000" + std::string(rest));
    return FailureOf([&] { (void)CPackedView::FromBytes(bytes).Unpack(); });
}

TEST(EntryCodec, RefusesBytesThatAreNoEntry) {
    EXPECT_EQ(Unpacked("01", "00", "00"), "1 bytes too many");
    EXPECT_EQ(Unpacked("01", "8002", ""), "fields 256 are not known");
    EXPECT_EQ(Unpacked("02", "04", "00"), "a field is there that says nothing");
    EXPECT_EQ(Unpacked("02", "02", "0000"), "a field is there that says nothing");
    EXPECT_EQ(Unpacked("02", "40", "00"), "a field is there that says nothing");
    EXPECT_EQ(Unpacked("02", "20", "00"), "a field is there that says nothing");
    EXPECT_EQ(Unpacked("02", "04", ""), "1 bytes are expected where 0 are left");
    EXPECT_EQ(Unpacked("02", "80", "01"), "a number is not in its shortest form");
    EXPECT_EQ(Unpacked("02", "8001", "00112233"), "32 bytes are expected where 4 are left");
    EXPECT_EQ(Unpacked("09", "00", ""), "entry type 9 is not known");
}

TEST(EntryCodec, ClaimedCountsAllocateNothing) {
    // 2^63 segments, 2^63 attributes.
    EXPECT_EQ(Unpacked("02", "44", "01 80808080808080808001 00"), "1 bytes are expected where 0 are left");
    EXPECT_EQ(Unpacked("02", "20", "80808080808080808001"), "1 bytes are expected where 0 are left");
}

TEST(EntryCodec, TruncatedBytesAreRefusedAtEveryPlace) {
    const std::string bytes = CPackedEntry(FullFile()).GetBytes();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_THROW((void)CPackedView::FromBytes(bytes.substr(0, size)).Unpack(), exc::CRuntimeExc) << size;
    }
}

TEST(EntryPath, TakesWhatAWalkMeets) {
    for (const std::string& path : {std::string(), std::string("a"), std::string("a/b/c"), std::string("..."),
                                    std::string(".a/..b"), std::string("a b\n\xff"), std::string(65535, 'x')}) {
        EXPECT_NO_THROW(CheckEntryPath(path)) << path;
    }
}

TEST(EntryPath, RefusesWhatLeadsElsewhere) {
    for (const std::string_view path : {"/", "/a", "a/", "a//b", ".", "..", "a/.", "./a", "a/../b", "a/.."}) {
        EXPECT_THROW(CheckEntryPath(path), exc::CRuntimeExc) << path;
    }
    EXPECT_EQ(FailureOf([] { CheckEntryPath("a//b"); }), "path 'a//b' has an element ''");
    EXPECT_EQ(FailureOf([] { CheckEntryPath("a/.."); }), "path 'a/..' has an element '..'");
    EXPECT_EQ(FailureOf([] { CheckEntryPath(std::string("a\0b", 3)); }), "path 'a\\0b' has a NUL");
    EXPECT_EQ(FailureOf([] { CheckEntryPath(std::string(65536, 'x')); }), "a path of 65536 bytes is too long");
}

}  // namespace
}  // namespace agent
