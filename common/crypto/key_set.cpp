#include "common/crypto/key_set.h"

#include <openssl/rand.h>

#include <limits>

#include "common/exc.h"
#include "common/util.h"

namespace crypto {

namespace {

constexpr std::string_view magic = "CBKS";
constexpr std::uint32_t formatVersion = 1;

using sec_stream_t = io::mem_stream_tt<sec_allocator_t<char>>;

unsigned HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<unsigned>(c - 'a') + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<unsigned>(c - 'A') + 10;
    }
    return 16;
}

template <class Bytes>
void SerialBytes(io::binary_stream_tt& stream, const Bytes& bytes) {
    if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw exc::CRuntimeExc("Key set field of %1 bytes is too long", bytes.size());
    }
    io::SerialExc(stream, static_cast<std::uint32_t>(bytes.size()));
    io::CheckWritten(stream.Write(bytes.data(), bytes.size()), bytes.size());
}

/// The length is checked against what is left before anything is allocated.
template <class Bytes>
Bytes UnserialBytes(sec_stream_t& stream) {
    const auto size = io::UnserialExc<std::uint32_t>(stream);
    if (size > stream.GetRemaining()) {
        io::CheckReceived(stream.GetRemaining(), size);
    }
    Bytes bytes(size, '\0');
    io::CheckReceived(stream.Read(bytes.data(), size), size);
    return bytes;
}

}  // namespace

std::string SRawKeySetId::ToAStr() const {
    static constexpr std::string_view alphabet = "0123456789abcdef";
    std::string text;
    for (const auto byte : bytes) {
        text += alphabet[byte >> 4U];
        text += alphabet[byte & 0x0FU];
    }
    return text;
}

SRawKeySetId SRawKeySetId::FromStr(std::string_view text) {
    SRawKeySetId id;
    bool valid = text.size() == 2 * size;
    for (std::size_t i = 0; valid && i < size; ++i) {
        const unsigned high = HexDigit(text[2 * i]);
        const unsigned low = HexDigit(text[2 * i + 1]);
        valid = high < 16 && low < 16;
        id.bytes[i] = static_cast<std::uint8_t>((high << 4U) | (low & 0x0FU));
    }
    if (!valid) {
        throw exc::CRuntimeExc("Invalid key set id: '%1'", text);
    }
    return id;
}

void SRawKeySetId::Serial(io::binary_stream_tt& stream) const {
    io::CheckWritten(stream.Write(bytes.data(), bytes.size()), bytes.size());
}

void SRawKeySetId::Unserial(io::binary_stream_tt& stream, SRawKeySetId& id) {
    SRawKeySetId read;
    io::CheckReceived(stream.Read(read.bytes.data(), size), size);
    id = read;
}

CKeySetId CKeySetId::CreateNew() {
    SRawKeySetId raw;
    if (RAND_bytes(raw.bytes.data(), static_cast<int>(raw.bytes.size())) != 1) {
        throw exc::CRuntimeExc("No random bytes for a new key set id");
    }
    return CKeySetId(raw);
}

CKeySet::CKeySet(const CKeySetId& id, std::wstring hint, sec_bytes_t keys,
                 std::vector<CRestoreKeyRepairRec> repairRecords)
    : id_(id), hint_(std::move(hint)), keys_(std::move(keys)), repairRecords_(std::move(repairRecords)) {}

std::string CKeySet::ToLogStr() const {
    return exc::Format("id: %1, hint: %2, keys: %3, repair records: %4", id_.GetRaw(), util::WideToUtf8(hint_),
                       HasKeys() ? "present" : "absent", repairRecords_.size());
}

void CKeySet::Serial(io::binary_stream_tt& stream) const {
    io::CheckWritten(stream.Write(magic.data(), magic.size()), magic.size());
    io::SerialExc(stream, formatVersion);
    id_.GetRaw().Serial(stream);
    SerialBytes(stream, util::WideToUtf8(hint_));
    SerialBytes(stream, keys_);
    io::SerialExc(stream, static_cast<std::uint32_t>(repairRecords_.size()));
    for (const auto& record : repairRecords_) {
        record.masterKeyId.Serial(stream);
        SerialBytes(stream, record.wrappedKey);
    }
}

std::shared_ptr<CKeySet> CKeySet::Unserial(const sec_bytes_t& bytes) {
    sec_stream_t stream(bytes);
    std::string head(magic.size(), '\0');
    io::CheckReceived(stream.Read(head.data(), head.size()), head.size());
    if (head != magic) {
        throw exc::CRuntimeExc("Not a key set");
    }
    const auto version = io::UnserialExc<std::uint32_t>(stream);
    if (version != formatVersion) {
        throw exc::CRuntimeExc("Unsupported key set version: %1", version);
    }
    SRawKeySetId id;
    SRawKeySetId::Unserial(stream, id);
    auto hint = util::Utf8ToWide(UnserialBytes<std::string>(stream));
    auto keys = UnserialBytes<sec_bytes_t>(stream);
    std::vector<CRestoreKeyRepairRec> records;
    for (auto left = io::UnserialExc<std::uint32_t>(stream); left != 0; --left) {
        CRestoreKeyRepairRec record;
        SRawKeySetId::Unserial(stream, record.masterKeyId);
        record.wrappedKey = UnserialBytes<sec_bytes_t>(stream);
        records.push_back(std::move(record));
    }
    if (stream.GetRemaining() != 0) {
        throw exc::CRuntimeExc("Key set is followed by %1 bytes that are not its own", stream.GetRemaining());
    }
    return std::make_shared<CKeySet>(CKeySetId(id), std::move(hint), std::move(keys), std::move(records));
}

}  // namespace crypto
