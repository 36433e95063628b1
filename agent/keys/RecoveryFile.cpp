#include "agent/keys/RecoveryFile.h"

#include <nlohmann/json.hpp>

#include "common/posix.h"

namespace agent {

namespace {

using nlohmann::json;

constexpr const char* kind = "cloudbackup recovery keys";
constexpr int formatVersion = 1;
constexpr std::uint64_t largestFile = 1U << 20U;

data_key_ptr KeyFromJson(const json& value) {
    const auto material = util::fromBase64(value.at("key").get<std::string>());
    auto key = std::make_shared<const CDataKey>(crypto::sec_bytes_t(material.begin(), material.end()));
    if (key->GetId() != crypto::SRawKeySetId::FromStr(value.at("id").get<std::string>())) {
        throw exc::CRuntimeExc("a key does not have the id that stands beside it");
    }
    return key;
}

}  // namespace

crypto::sec_bytes_t SRecoveryKeys::ToText() const {
    json list = json::array();
    for (const auto& key : keys.GetKeys()) {
        const auto& material = key->GetMaterial();
        list.push_back({{"id", key->GetId().ToAStr()},
                        {"key", util::toBase64(std::string_view(material.data(), material.size()))}});
    }
    std::string text = json{{"what", kind},
                            {"version", formatVersion},
                            {"repository", repositoryId.ToAStr()},
                            {"client", clientId.ToAStr()},
                            {"keys", list}}
                           .dump(2) +
                       "\n";
    const crypto::erase_at_end_t erased(text);
    return {text.begin(), text.end()};
}

SRecoveryKeys SRecoveryKeys::FromText(std::span<const char> text) {
    try {
        const json value = json::parse(text.begin(), text.end());
        if (value.at("what") != kind || value.at("version") != formatVersion) {
            throw exc::CRuntimeExc("it is of another kind or version");
        }
        std::vector<data_key_ptr> list;
        for (const auto& key : value.at("keys")) {
            list.push_back(KeyFromJson(key));
        }
        return {guid::guid_t::FromStr(value.at("repository").get<std::string>()),
                guid::guid_t::FromStr(value.at("client").get<std::string>()), CKeyRing(list)};
    } catch (const json::exception&) {  // its message may quote the text
        throw exc::CRuntimeExc("It is no file of recovery keys");
    }
}

SRecoveryKeys ReadRecoveryFile(const std::string& path) {
    try {
        auto file = posix::posix_file_t::Open4Read(path);
        if (file.GetSize() > largestFile) {
            throw exc::CRuntimeExc("It is no file of recovery keys");
        }
        crypto::sec_bytes_t text(file.GetSize());
        text.resize(file.Read(text.data(), text.size()));
        return SRecoveryKeys::FromText(text);
    } catch (const exc::CExc& failure) {
        exc::RegenTraceExc(failure, "Cannot read recovery keys from '%1'", path);
    }
}

void WriteRecoveryFile(const std::string& path, const SRecoveryKeys& keys) { posix::WriteNewFile(path, keys.ToText()); }

}  // namespace agent
