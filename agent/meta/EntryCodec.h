#pragma once

#include <string>
#include <string_view>

#include "agent/model/Entry.h"

namespace agent {

/// An entry in its stored form, a quarter of the memory of an SEntry, where somebody else keeps it. Safe to read from
/// any thread.
class CPackedView {
public:
    CPackedView() = default;
    /// Bytes that were stored; they are judged when they are unpacked.
    [[nodiscard]] static CPackedView FromBytes(std::string_view bytes) { return CPackedView(bytes); }

    /// Throws exc::CRuntimeExc for bytes that are not exactly one entry that holds together.
    [[nodiscard]] SEntry Unpack() const;
    [[nodiscard]] std::string_view GetBytes() const { return bytes_; }
    /// What the bytes say first; not judged.
    [[nodiscard]] EEntryType GetType() const { return bytes_.empty() ? EEntryType{} : EEntryType(bytes_.front()); }

    bool operator==(const CPackedView&) const = default;

private:
    explicit CPackedView(std::string_view bytes) : bytes_(bytes) {}

    std::string_view bytes_;
};

/// An entry in its stored form. A plain value.
class CPackedEntry {
public:
    /// Packs an entry. Throws exc::CRuntimeExc for one that does not hold together: attributes that its type does not
    /// have, segments out of order or beyond the size, an impossible link target or time.
    explicit CPackedEntry(const SEntry& entry);

    [[nodiscard]] operator CPackedView() const { return CPackedView::FromBytes(bytes_); }
    [[nodiscard]] SEntry Unpack() const { return CPackedView(*this).Unpack(); }
    [[nodiscard]] const std::string& GetBytes() const { return bytes_; }

    bool operator==(const CPackedEntry&) const = default;

private:
    std::string bytes_;
};

/// Throws exc::CRuntimeExc unless the path can name an entry: empty (the root), or elements joined by single slashes,
/// none of them "." or "..", no NUL, at most 65,535 bytes.
void CheckEntryPath(std::string_view path);

}  // namespace agent
