#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/crypto/sec_allocator.h"
#include "common/export.h"
#include "common/stream.h"

namespace crypto {

/// The id of a key set as 16 plain bytes; all zero for "no key".
struct CB_EXPORT SRawKeySetId {
    static constexpr std::size_t size = 16;
    std::array<std::uint8_t, size> bytes{};

    /// 32 lower-case hexadecimal digits.
    [[nodiscard]] std::string ToAStr() const;
    /// Throws exc::CRuntimeExc for anything but 32 hexadecimal digits.
    [[nodiscard]] static SRawKeySetId FromStr(std::string_view text);

    /// Binary form: the 16 bytes.
    void Serial(io::binary_stream_tt& stream) const;
    static void Unserial(io::binary_stream_tt& stream, SRawKeySetId& id);

    auto operator<=>(const SRawKeySetId&) const = default;
};

/// The id of a key set. Immutable.
class CB_EXPORT CKeySetId {
public:
    explicit CKeySetId(const SRawKeySetId& raw) : raw_(raw) {}
    /// A new random id.
    [[nodiscard]] static CKeySetId CreateNew();

    [[nodiscard]] const SRawKeySetId& GetRaw() const { return raw_; }

    auto operator<=>(const CKeySetId&) const = default;

private:
    SRawKeySetId raw_;
};

/// A repair record: a key set's material wrapped under a master key, so that who has that key gets this one back.
struct CB_EXPORT CRestoreKeyRepairRec {
    SRawKeySetId masterKeyId;
    sec_bytes_t wrappedKey;

    bool operator==(const CRestoreKeyRepairRec&) const = default;
};

/// An encryption key set: id, hint, key material (perhaps none) and repair records. Immutable, safe from any thread;
/// key material is erased when the set is let go and stands in no log text.
class CB_EXPORT CKeySet {
public:
    CKeySet(const CKeySetId& id, std::wstring hint, sec_bytes_t keys, std::vector<CRestoreKeyRepairRec> repairRecords);

    [[nodiscard]] const CKeySetId& GetId() const { return id_; }
    [[nodiscard]] const std::wstring& GetHint() const { return hint_; }
    [[nodiscard]] const sec_bytes_t& GetKeys() const { return keys_; }
    [[nodiscard]] bool HasKeys() const { return !keys_.empty(); }
    [[nodiscard]] const std::vector<CRestoreKeyRepairRec>& GetRepairRecords() const { return repairRecords_; }

    /// "id: ..., hint: ..., keys: present|absent, repair records: N"
    [[nodiscard]] std::string ToLogStr() const;

    /// Binary form, all numbers little-endian: "CBKS", version (u32, 1), id (16 bytes), hint (u32 length, UTF-8), keys
    /// (u32 length, bytes), number of repair records (u32), each master key id (16 bytes) and wrapped key (u32 length,
    /// bytes).
    void Serial(io::binary_stream_tt& stream) const;
    /// Throws exc::CRuntimeExc for bytes that are not exactly one key set.
    [[nodiscard]] static std::shared_ptr<CKeySet> Unserial(const sec_bytes_t& bytes);

private:
    CKeySetId id_;
    std::wstring hint_;
    sec_bytes_t keys_;
    std::vector<CRestoreKeyRepairRec> repairRecords_;
};

}  // namespace crypto
