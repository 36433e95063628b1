#include "agent/meta/EntryCheck.h"

#include "agent/meta/EntryCodec.h"
#include "agent/meta/MetaLimits.h"
#include "common/exc.h"

namespace agent {

namespace {

constexpr std::uint32_t nanosecondsPerSecond = 1'000'000'000;
constexpr std::uint32_t modeBits = 07777;

bool HasNul(std::string_view text) { return text.find('\0') != std::string_view::npos; }

void CheckTime(const STime& time) {
    if (time.nanoseconds >= nanosecondsPerSecond) {
        throw exc::CRuntimeExc("%1 nanoseconds are more than a second", time.nanoseconds);
    }
}

void CheckSegments(const SEntry& entry) {
    std::uint64_t end = 0;
    for (const auto& segment : entry.segments) {
        if (segment.length == 0) {
            throw exc::CRuntimeExc("a segment is empty");
        }
        if (segment.fileOffset < end) {
            throw exc::CRuntimeExc("segments overlap or are out of order at %1", segment.fileOffset);
        }
        if (!meta::IsWithin(segment.fileOffset, segment.length, entry.size)) {
            throw exc::CRuntimeExc("a segment of %1 bytes at %2 leaves the file of %3", segment.length,
                                   segment.fileOffset, entry.size);
        }
        end = segment.fileOffset + segment.length;
    }
}

void CheckContent(const SEntry& entry) {
    const bool isFile = entry.type == EEntryType::file;
    if (!isFile && (entry.size != 0 || !entry.segments.empty() || entry.contentSha256.has_value())) {
        throw exc::CRuntimeExc("only a file has content");
    }
    if (entry.size > meta::maxOffset) {
        throw exc::CRuntimeExc("size %1 is too large", entry.size);
    }
    CheckSegments(entry);
}

void CheckTarget(const SEntry& entry) {
    const bool isLink = entry.type == EEntryType::symlink || entry.type == EEntryType::hardLink;
    if (isLink == entry.target.empty()) {
        throw exc::CRuntimeExc(isLink ? "a link has no target" : "only a link has a target");
    }
    if (HasNul(entry.target)) {
        throw exc::CRuntimeExc("a link's target has a NUL");
    }
    if (entry.type == EEntryType::hardLink) {
        CheckEntryPath(entry.target);
    }
}

void CheckXattrs(const SEntry& entry) {
    for (const auto& xattr : entry.xattrs) {
        if (xattr.name.empty() || HasNul(xattr.name)) {
            throw exc::CRuntimeExc("an extended attribute has no proper name");
        }
    }
}

}  // namespace

void meta::CheckEntry(const SEntry& entry) {
    if (entry.type < EEntryType::directory || entry.type > EEntryType::blockDevice) {
        throw exc::CRuntimeExc("entry type %1 is not known", static_cast<unsigned>(entry.type));
    }
    if (entry.mode > modeBits) {
        throw exc::CRuntimeExc("mode %1 has more than permission bits", entry.mode);
    }
    CheckTime(entry.mtime);
    CheckTime(entry.ctime);
    CheckTime(entry.btime);
    const bool isDevice = entry.type == EEntryType::charDevice || entry.type == EEntryType::blockDevice;
    if (!isDevice && entry.rdev != 0) {
        throw exc::CRuntimeExc("only a device has a device number");
    }
    CheckContent(entry);
    CheckTarget(entry);
    CheckXattrs(entry);
}

void CheckEntryPath(std::string_view path) {
    if (path.size() > meta::maxPathLength) {
        throw exc::CRuntimeExc("a path of %1 bytes is too long", path.size());
    }
    if (HasNul(path)) {
        throw exc::CRuntimeExc("path '%1' has a NUL", path);
    }
    for (std::size_t begin = 0; !path.empty() && begin <= path.size();) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        const std::string_view element = path.substr(begin, end - begin);
        if (element.empty() || element == "." || element == "..") {
            throw exc::CRuntimeExc("path '%1' has an element '%2'", path, element);
        }
        begin = end + 1;
    }
}

}  // namespace agent
