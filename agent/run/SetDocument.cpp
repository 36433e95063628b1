#include "agent/run/SetDocument.h"

#include <array>
#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>

#include "common/exc.h"
#include "common/util.h"

namespace agent {

namespace {

using nlohmann::json;

constexpr std::array<statistics_field_t, 15> statisticsFields{{
    {"files", &SRootStatistics::files},
    {"folders", &SRootStatistics::folders},
    {"others", &SRootStatistics::others},
    {"bytes", &SRootStatistics::bytes},
    {"added", &SRootStatistics::added},
    {"changed", &SRootStatistics::changed},
    {"removed", &SRootStatistics::removed},
    {"unchanged", &SRootStatistics::unchanged},
    {"filesRead", &SRootStatistics::filesRead},
    {"bytesRead", &SRootStatistics::bytesRead},
    {"newBytes", &SRootStatistics::newBytes},
    {"storedBytes", &SRootStatistics::storedBytes},
    {"blocksUploaded", &SRootStatistics::blocksUploaded},
    {"blocksFound", &SRootStatistics::blocksFound},
    {"errors", &SRootStatistics::errors},
}};

json ToJson(const STime& time) { return json{{"seconds", time.seconds}, {"nanoseconds", time.nanoseconds}}; }

STime TimeFromJson(const json& value) {
    return {value.at("seconds").get<std::int64_t>(), value.at("nanoseconds").get<std::uint32_t>()};
}

json ToJson(const SRoot& root) {
    json statistics;
    for (const auto& [name, field] : statisticsFields) {
        statistics[name] = root.statistics.*field;
    }
    return json{{"path", EscapePath(root.path)},
                {"storage", root.storageId.ToAStr()},
                {"checkpoint", root.checkpoint},
                {"headerSha256", root.headerSha256},
                {"statistics", statistics}};
}

json EscapedList(const std::vector<std::string>& texts) {
    json list = json::array();
    for (const auto& text : texts) {
        list.push_back(EscapePath(text));
    }
    return list;
}

/// A field that documents did not always have.
std::string TextOrNone(const json& value, const char* name) { return UnescapePath(value.value(name, std::string())); }

SRoot RootFromJson(const json& value) {
    SRoot root;
    root.path = UnescapePath(value.at("path").get<std::string>());
    root.storageId = guid::guid_t::FromStr(value.at("storage").get<std::string>());
    root.checkpoint = value.at("checkpoint").get<std::uint64_t>();
    root.headerSha256 = value.at("headerSha256").get<std::string>();
    for (const auto& [name, field] : statisticsFields) {
        root.statistics.*field = value.at("statistics").at(name).get<std::uint64_t>();
    }
    return root;
}

unsigned HexValue(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned>(c - '0');
    }
    return c >= 'a' && c <= 'f' ? static_cast<unsigned>(c - 'a') + 10 : 16;
}

/// The length of the valid UTF-8 sequence that begins the text; 0 when there is none.
std::size_t Utf8LengthAt(const std::string& text, std::size_t at) {
    for (std::size_t length = 1; length <= 4 && at + length <= text.size(); ++length) {
        try {
            (void)util::Utf8ToWide(std::string_view(text).substr(at, length));
            return length;
        } catch (const exc::CRuntimeExc&) {  // not yet whole, or none at all
        }
    }
    return 0;
}

}  // namespace

std::span<const statistics_field_t> StatisticsFields() { return statisticsFields; }

const SRoot* SSetDocument::FindRoot(const std::string& path) const {
    for (const auto& root : roots) {
        if (root.path == path) {
            return &root;
        }
    }
    return nullptr;
}

std::string SSetDocument::ToText() const {
    json rootList = json::array();
    for (const auto& root : roots) {
        rootList.push_back(ToJson(root));
    }
    return json{{"version", formatVersion},   {"host", EscapePath(host)},
                {"user", EscapePath(user)},   {"program", EscapePath(programVersion)},
                {"tags", EscapedList(tags)},  {"description", EscapePath(description)},
                {"started", ToJson(started)}, {"finished", ToJson(finished)},
                {"roots", rootList}}
        .dump();
}

SSetDocument SSetDocument::FromText(const std::string& text) {
    try {
        const json value = json::parse(text);
        const int version = value.at("version").get<int>();
        if (version != formatVersion) {
            throw CForeignDocumentExc("format version %1 is not known to this program", version);
        }
        SSetDocument document;
        document.host = UnescapePath(value.at("host").get<std::string>());
        document.user = TextOrNone(value, "user");
        document.programVersion = TextOrNone(value, "program");
        for (const auto& tag : value.value("tags", json::array())) {
            document.tags.push_back(UnescapePath(tag.get<std::string>()));
        }
        document.description = TextOrNone(value, "description");
        document.started = TimeFromJson(value.at("started"));
        document.finished = TimeFromJson(value.at("finished"));
        for (const auto& root : value.at("roots")) {
            document.roots.push_back(RootFromJson(root));
        }
        return document;
    } catch (const std::exception& failure) {
        exc::RegenTraceExc(failure, "The checkpoint's backup-level document cannot be read");
    }
}

namespace {

constexpr int sealedVersion = 1;

std::string ContextOf(const SDocumentPlace& place) {
    return place.clientId.ToAStr() + "/" + place.set + "/" + std::to_string(place.checkpoint);
}

/// Null for what is not sealed.
data_key_ptr KeyOf(const json& value, const CKeyRing& keys) {
    if (!value.contains("sealed")) {
        if (!keys.IsEmpty()) {
            throw CForeignDocumentExc("it is not encrypted, as all that this client stores is: somebody else wrote it");
        }
        return nullptr;
    }
    if (value.at("version").get<int>() != sealedVersion) {
        throw CForeignDocumentExc("format version %1 is not known to this program", value.at("version").get<int>());
    }
    const auto id = crypto::SRawKeySetId::FromStr(value.at("key").get<std::string>());
    try {
        return keys.FindExc(id);
    } catch (const exc::CRuntimeExc& failure) {
        throw CForeignDocumentExc("%1", failure.GetMessage());
    }
}

}  // namespace

std::string StoreDocument(const SSetDocument& document, const SDocumentPlace& place, const CKeyRing& keys) {
    const std::string text = document.ToText();
    if (keys.IsEmpty()) {
        return text;
    }
    const CDataKey& key = *keys.GetCurrent();
    return json{{"version", sealedVersion},
                {"key", key.GetId().ToAStr()},
                {"sealed", util::toBase64(SealText(key.DocumentKey(), ContextOf(place), text))}}
        .dump();
}

SSetDocument RestoreDocument(const std::string& text, const SDocumentPlace& place, const CKeyRing& keys) {
    std::string plain;
    try {
        const json value = json::parse(text);
        const data_key_ptr key = KeyOf(value, keys);
        if (!key) {
            return SSetDocument::FromText(text);
        }
        const auto sealed = util::fromBase64(value.at("sealed").get<std::string>());
        plain = OpenText(key->DocumentKey(), ContextOf(place), std::string_view(sealed.data(), sealed.size()));
    } catch (const std::exception& failure) {
        exc::RegenTraceExc(failure, "The document of checkpoint %1 cannot be read", place.checkpoint);
    }
    return SSetDocument::FromText(plain);
}

guid::guid_t StorageIdOf(const guid::guid_t& clientId, const std::string& set, const std::string& path,
                         const data_key_ptr& key) {
    const std::string name = clientId.ToAStr() + '\0' + set + '\0' + path;
    const auto sha = key ? key->NameOf(name) : digest::Sha256(name);
    std::array<std::uint8_t, 16> bytes{};
    std::copy_n(sha.bytes.begin(), bytes.size(), bytes.begin());
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x80U);  // RFC 9562: version 8, made by the program
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U);
    return guid::guid_t(bytes);
}

std::string ToIsoText(const STime& time) {
    const std::time_t seconds = time.seconds;
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return {text.data(), length};
}

STime Now() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return {now.tv_sec, static_cast<std::uint32_t>(now.tv_nsec)};
}

std::string EscapePath(const std::string& path) {
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < path.size();) {
        const auto byte = static_cast<unsigned char>(path[i]);
        // Control characters, those of two bytes (U+0080 to U+009F) too: a terminal would obey them.
        const bool isControl = byte < 0x20 || byte == 0x7F ||
                               (byte == 0xC2 && i + 1 < path.size() && static_cast<unsigned char>(path[i + 1]) < 0xA0);
        const std::size_t length = isControl ? 0 : Utf8LengthAt(path, i);
        if (length == 0) {
            text.append("\\x").append(1, digits[byte >> 4U]).append(1, digits[byte & 0x0FU]);
        } else if (byte == '\\') {
            text += "\\\\";
        } else {
            text.append(path, i, length);
        }
        i += length == 0 ? 1 : length;
    }
    return text;
}

std::string UnescapePath(const std::string& text) {
    std::string path;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            path += text[i];
            continue;
        }
        const bool hex =
            i + 3 < text.size() && text[i + 1] == 'x' && HexValue(text[i + 2]) < 16 && HexValue(text[i + 3]) < 16;
        if (hex) {
            path += static_cast<char>(HexValue(text[i + 2]) * 16 + HexValue(text[i + 3]));
            i += 3;
        } else if (i + 1 < text.size() && text[i + 1] == '\\') {
            path += '\\';
            ++i;
        } else {
            throw exc::CRuntimeExc("Not a path in escaped form: '%1'", text);
        }
    }
    return path;
}

}  // namespace agent
