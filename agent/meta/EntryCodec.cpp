#include "agent/meta/EntryCodec.h"

#include "agent/meta/ByteCodec.h"
#include "agent/meta/EntryCheck.h"

namespace agent {

namespace {

using meta::CByteCursor;
using meta::PutCounted;
using meta::PutSigned;
using meta::PutVarint;

/// Which optional fields follow, in this order.
enum EField : std::uint64_t {
    fieldRecheck = 1U << 0U,  // says all itself, nothing follows
    fieldBtime = 1U << 1U,
    fieldSize = 1U << 2U,
    fieldRdev = 1U << 3U,
    fieldTarget = 1U << 4U,
    fieldXattrs = 1U << 5U,
    fieldSegments = 1U << 6U,
    fieldSha256 = 1U << 7U,
    allFields = (1U << 8U) - 1,
};

std::uint64_t FieldsOf(const SEntry& entry) {
    std::uint64_t fields = 0;
    const auto set = [&](bool present, EField field) { fields |= present ? field : std::uint64_t{0}; };
    set(entry.recheck, fieldRecheck);
    set(entry.btime != STime{}, fieldBtime);
    set(entry.size != 0, fieldSize);
    set(entry.rdev != 0, fieldRdev);
    set(!entry.target.empty(), fieldTarget);
    set(!entry.xattrs.empty(), fieldXattrs);
    set(!entry.segments.empty(), fieldSegments);
    set(entry.contentSha256.has_value(), fieldSha256);
    return fields;
}

void PutTime(std::string& out, const STime& time) {
    PutSigned(out, time.seconds);
    PutVarint(out, time.nanoseconds);
}

STime GetTime(CByteCursor& cursor) {
    STime time;
    time.seconds = cursor.Signed();
    time.nanoseconds = cursor.Number<std::uint32_t>();
    return time;
}

void PutXattrs(std::string& out, const std::vector<SXattr>& xattrs) {
    PutVarint(out, xattrs.size());
    for (const auto& xattr : xattrs) {
        PutCounted(out, xattr.name);
        PutCounted(out, xattr.value);
    }
}

/// The lists grow by what is really there, never by the count that stands before them.
std::vector<SXattr> GetXattrs(CByteCursor& cursor) {
    std::vector<SXattr> xattrs;
    for (auto left = cursor.Varint(); left != 0; --left) {
        SXattr xattr;
        xattr.name = cursor.Counted();
        xattr.value = cursor.Counted();
        xattrs.push_back(std::move(xattr));
    }
    return xattrs;
}

/// Each segment relative to where the one before it ends, in the file and in the stream. The sums may wrap: what they
/// come to is judged as a whole.
void PutSegments(std::string& out, const std::vector<SSegment>& segments) {
    PutVarint(out, segments.size());
    SSegment last;
    for (const auto& segment : segments) {
        PutVarint(out, segment.fileOffset - (last.fileOffset + last.length));
        PutSigned(out, static_cast<std::int64_t>(segment.streamOffset - (last.streamOffset + last.length)));
        PutVarint(out, segment.length);
        last = segment;
    }
}

std::vector<SSegment> GetSegments(CByteCursor& cursor) {
    std::vector<SSegment> segments;
    SSegment last;
    for (auto left = cursor.Varint(); left != 0; --left) {
        SSegment segment;
        segment.fileOffset = last.fileOffset + last.length + cursor.Varint();
        segment.streamOffset = last.streamOffset + last.length + static_cast<std::uint64_t>(cursor.Signed());
        segment.length = cursor.Varint();
        segments.push_back(segment);
        last = segment;
    }
    return segments;
}

digest::sha256_digest_t GetSha256(CByteCursor& cursor) {
    digest::sha256_digest_t sha256;
    const std::string_view bytes = cursor.Bytes(sha256.bytes.size());
    std::copy(bytes.begin(), bytes.end(), sha256.bytes.begin());
    return sha256;
}

void PutOptionalFields(std::string& out, const SEntry& entry, std::uint64_t fields) {
    if ((fields & fieldBtime) != 0) {
        PutTime(out, entry.btime);
    }
    if ((fields & fieldSize) != 0) {
        PutVarint(out, entry.size);
    }
    if ((fields & fieldRdev) != 0) {
        PutVarint(out, entry.rdev);
    }
    if ((fields & fieldTarget) != 0) {
        PutCounted(out, entry.target);
    }
    if ((fields & fieldXattrs) != 0) {
        PutXattrs(out, entry.xattrs);
    }
    if ((fields & fieldSegments) != 0) {
        PutSegments(out, entry.segments);
    }
    if ((fields & fieldSha256) != 0) {
        out.append(entry.contentSha256->bytes.begin(), entry.contentSha256->bytes.end());
    }
}

void GetOptionalFields(CByteCursor& cursor, SEntry& entry, std::uint64_t fields) {
    entry.recheck = (fields & fieldRecheck) != 0;
    if ((fields & fieldBtime) != 0) {
        entry.btime = GetTime(cursor);
    }
    if ((fields & fieldSize) != 0) {
        entry.size = cursor.Varint();
    }
    if ((fields & fieldRdev) != 0) {
        entry.rdev = cursor.Varint();
    }
    if ((fields & fieldTarget) != 0) {
        entry.target = cursor.Counted();
    }
    if ((fields & fieldXattrs) != 0) {
        entry.xattrs = GetXattrs(cursor);
    }
    if ((fields & fieldSegments) != 0) {
        entry.segments = GetSegments(cursor);
    }
    if ((fields & fieldSha256) != 0) {
        entry.contentSha256 = GetSha256(cursor);
    }
}

std::string Pack(const SEntry& entry) {
    meta::CheckEntry(entry);
    const std::uint64_t fields = FieldsOf(entry);
    std::string out;
    out += static_cast<char>(entry.type);
    PutVarint(out, fields);
    PutVarint(out, entry.mode);
    PutVarint(out, entry.uid);
    PutVarint(out, entry.gid);
    PutTime(out, entry.mtime);
    PutTime(out, entry.ctime);
    PutVarint(out, entry.device);
    PutVarint(out, entry.inode);
    PutOptionalFields(out, entry, fields);
    return out;
}

}  // namespace

CPackedEntry::CPackedEntry(const SEntry& entry) : bytes_(Pack(entry)) {}

SEntry CPackedView::Unpack() const {
    CByteCursor cursor(bytes_);
    SEntry entry;
    entry.type = static_cast<EEntryType>(cursor.Byte());
    const std::uint64_t fields = cursor.Varint();
    if ((fields & ~std::uint64_t{allFields}) != 0) {
        throw exc::CRuntimeExc("fields %1 are not known", fields);
    }
    entry.mode = cursor.Number<std::uint32_t>();
    entry.uid = cursor.Number<std::uint32_t>();
    entry.gid = cursor.Number<std::uint32_t>();
    entry.mtime = GetTime(cursor);
    entry.ctime = GetTime(cursor);
    entry.device = cursor.Varint();
    entry.inode = cursor.Varint();
    GetOptionalFields(cursor, entry, fields);
    if (!cursor.IsAtEnd()) {
        throw exc::CRuntimeExc("%1 bytes too many", cursor.GetRemaining());
    }
    if (FieldsOf(entry) != fields) {
        throw exc::CRuntimeExc("a field is there that says nothing");
    }
    meta::CheckEntry(entry);
    return entry;
}

}  // namespace agent
