#include <cstdint>
#include <string>
#include <string_view>

#include "cloudclientlib/ObjectPath.h"
#include "common/crypto/key_set.h"
#include "common/exc.h"
#include "common/guid.h"
#include "common/util.h"
#include "fuzz/Readers.h"

// The small texts inside documents: each reader refuses a text or takes it whole, and what it takes prints to a text
// that reads the same.

using fuzz::Require;
using fuzz::Try;

namespace {

void ReadBase64(std::string_view text) {
    const auto bytes = util::fromBase64(text);
    Require(bytes.empty() || util::toBase64(bytes) == text);
}

void ReadNumber(std::string_view text) {
    const std::uint64_t number = util::str_to_uint64(text);
    Require(util::str_to_uint64(util::str_from_uint64(number)) == number);
}

void ReadGuid(std::string_view text) {
    const guid::guid_t id = guid::guid_t::FromStr(text);
    Require(guid::guid_t::FromStr(id.ToAStr()) == id);
}

void ReadKeySetId(std::string_view text) {
    const crypto::SRawKeySetId id = crypto::SRawKeySetId::FromStr(text);
    Require(crypto::SRawKeySetId::FromStr(id.ToAStr()) == id);
}

void ReadUtf8(std::string_view text) { Require(util::WideToUtf8(util::Utf8ToWide(text)) == text); }

void ReadPath(std::string_view text) {
    const std::string plain = cloudclientlib::NormalizeObjectPath("fuzz", std::string(text));
    Require(cloudclientlib::NormalizeObjectPath("fuzz", plain) == plain);
    Require(plain.empty() || (plain.front() != '/' && plain.back() != '/'));
    for (const auto& element : cloudclientlib::SplitObjectPath("fuzz", plain)) {
        Require(!element.empty() && element != "." && element != ".." && element.find('/') == std::string::npos);
    }
}

void ReadPattern(std::string_view text) {
    const std::string argument = "%1";
    static_cast<void>(exc::Format(text, argument, text, 3));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (const auto reader : {ReadBase64, ReadNumber, ReadGuid, ReadKeySetId, ReadUtf8, ReadPath, ReadPattern}) {
        Try([&] { reader(text); });
    }
    return 0;
}
