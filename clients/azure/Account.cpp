#include "clients/azure/Account.h"

#include "clients/http/HeaderText.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>

#include "common/exc.h"
#include "common/util.h"

namespace clients::azure {

namespace {

using settings_t = std::map<std::string_view, std::string_view>;

/// The names as they are written; upper and lower case do not differ.
constexpr std::string_view protocolName = "DefaultEndpointsProtocol";
constexpr std::string_view accountName = "AccountName";
constexpr std::string_view keyName = "AccountKey";
constexpr std::string_view suffixName = "EndpointSuffix";
constexpr std::string_view endpointName = "BlobEndpoint";
constexpr std::string_view signatureName = "SharedAccessSignature";

/// The last ones belong to other services, or to a copy of the account that cannot be written.
constexpr std::array<std::string_view, 14> names = {protocolName,
                                                    accountName,
                                                    keyName,
                                                    suffixName,
                                                    endpointName,
                                                    signatureName,
                                                    "QueueEndpoint",
                                                    "TableEndpoint",
                                                    "FileEndpoint",
                                                    "DfsEndpoint",
                                                    "WebEndpoint",
                                                    "BlobSecondaryEndpoint",
                                                    "QueueSecondaryEndpoint",
                                                    "TableSecondaryEndpoint"};

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

/// Which one is wrong is told by its number, since anything in it may be a secret that was put in the wrong place.
void TakeSetting(std::string_view setting, std::size_t number, settings_t& settings) {
    const std::size_t equals = setting.find('=');
    if (equals == std::string_view::npos) {
        throw exc::CRuntimeExc("Connection string: setting %1 is not written 'Name=Value'", number);
    }
    const std::string_view given = http::Trim(setting.substr(0, equals));
    const auto* const name =
        std::find_if(names.begin(), names.end(), [&](std::string_view one) { return EqualsIgnoringCase(one, given); });
    if (name == names.end()) {
        throw exc::CRuntimeExc("Connection string: the name of setting %1 is not known", number);
    }
    if (!settings.emplace(*name, http::Trim(setting.substr(equals + 1))).second) {
        throw exc::CRuntimeExc("Connection string: %1 is there twice", *name);
    }
}

settings_t Split(std::string_view text) {
    settings_t settings;
    std::size_t number = 0;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(';'), text.size());
        const std::string_view setting = http::Trim(text.substr(0, end));
        if (!setting.empty()) {
            TakeSetting(setting, ++number, settings);
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return settings;
}

/// Empty when it is not there.
std::string_view Value(const settings_t& settings, std::string_view name) {
    const auto found = settings.find(name);
    return found == settings.end() ? std::string_view() : found->second;
}

void CheckName(std::string_view name) {
    const bool isName = std::all_of(
        name.begin(), name.end(), [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'; });
    if (!isName) {
        throw exc::CRuntimeExc("Connection string: AccountName holds lower-case letters and digits");
    }
}

http::SEndpoint EndpointOf(const settings_t& settings) {
    std::string text(Value(settings, endpointName));
    std::string_view name = endpointName;
    if (text.empty()) {
        const std::string_view protocol = Value(settings, protocolName);
        const std::string_view account = Value(settings, accountName);
        const std::string_view suffix = Value(settings, suffixName);
        if (account.empty()) {
            throw exc::CRuntimeExc("Connection string: there is neither AccountName nor BlobEndpoint");
        }
        text = std::string(protocol.empty() ? "https" : protocol) + "://" + std::string(account) + ".blob." +
               std::string(suffix.empty() ? "core.windows.net" : suffix);
        name = "DefaultEndpointsProtocol or EndpointSuffix";
    }
    try {
        return http::ReadEndpoint(text);
    } catch (const exc::CRuntimeExc& failure) {
        throw exc::CRuntimeExc("Connection string: %1: %2", name, failure.GetMessage());
    }
}

crypto::sec_bytes_t ReadKey(std::string_view text) {
    cnt::array_t<char> bytes = util::fromBase64(text);
    if (bytes.empty()) {
        throw exc::CRuntimeExc("Connection string: AccountKey is no base64 text");
    }
    crypto::sec_bytes_t key(bytes.begin(), bytes.end());
    util::SecureErase(bytes.data(), bytes.size());
    return key;
}

crypto::sec_bytes_t ReadSignature(std::string_view text) {
    if (text.starts_with('?')) {  // as it is copied from an address
        text.remove_prefix(1);
    }
    const bool isQuery = std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7F && c != '#'; });
    const bool isSigned = text.starts_with("sig=") || text.find("&sig=") != std::string_view::npos;
    if (!isQuery || !isSigned) {
        throw exc::CRuntimeExc("Connection string: SharedAccessSignature is no signed query ('sv=...&sig=...')");
    }
    return {text.begin(), text.end()};
}

}  // namespace

SAccount ReadConnectionString(std::string_view text) {
    const settings_t settings = Split(text);
    const std::string_view key = Value(settings, keyName);
    const std::string_view signature = Value(settings, signatureName);
    if (key.empty() == signature.empty()) {
        throw exc::CRuntimeExc(key.empty() ? "Connection string: there is neither AccountKey nor SharedAccessSignature"
                                           : "Connection string: there are both AccountKey and SharedAccessSignature");
    }
    SAccount account;
    account.name = Value(settings, accountName);
    CheckName(account.name);
    if (signature.empty() && account.name.empty()) {
        throw exc::CRuntimeExc("Connection string: AccountKey needs AccountName");
    }
    account.endpoint = EndpointOf(settings);
    if (signature.empty()) {
        account.key = ReadKey(key);
    } else {
        account.signature = ReadSignature(signature);
    }
    return account;
}

}  // namespace clients::azure
