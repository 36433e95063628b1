#include "clients/azure/SharedKey.h"

#include "clients/http/HeaderText.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>

#include "common/digest.h"
#include "common/util.h"

namespace clients::azure {

namespace {

constexpr std::string_view blanks = " \t\r\n";

/// Without blanks at the ends, and with one space where there were several blanks.
std::string TrimAll(std::string_view value) {
    std::string trimmed;
    for (const char c : value) {
        const bool isBlank = blanks.find(c) != std::string_view::npos;
        if (!isBlank) {
            trimmed += c;
        } else if (!trimmed.empty() && trimmed.back() != ' ') {
            trimmed += ' ';
        }
    }
    if (!trimmed.empty() && trimmed.back() == ' ') {
        trimmed.pop_back();
    }
    return trimmed;
}

std::string HeaderOf(const SSignedParts& request, std::string_view name) {
    if (name == "content-length") {  // of nothing it is empty, not 0
        return request.contentLength == 0 ? std::string() : std::to_string(request.contentLength);
    }
    const auto found = std::find_if(request.headers.begin(), request.headers.end(),
                                    [&](const auto& header) { return header.first == name; });
    return found == request.headers.end() ? std::string() : found->second;
}

std::string CanonicalHeaders(const SSignedParts& request) {
    auto headers = request.headers;
    std::sort(headers.begin(), headers.end());
    std::string text;
    for (const auto& [name, value] : headers) {
        if (name.starts_with("x-ms-")) {
            text += name + ":" + TrimAll(value) + "\n";
        }
    }
    return text;
}

std::string CanonicalResource(const SSignedParts& request, const std::string& account) {
    std::map<std::string, std::vector<std::string>> query;
    for (const auto& [name, value] : request.query) {
        query[http::ToLower(name)].push_back(value);
    }
    std::string text = "/" + account + request.path;
    for (auto& [name, values] : query) {
        std::sort(values.begin(), values.end());
        text += "\n" + name + ":";
        for (std::size_t i = 0; i < values.size(); ++i) {
            text += (i == 0 ? "" : ",") + values[i];
        }
    }
    return text;
}

}  // namespace

std::string StringToSign(const SSignedParts& request, const std::string& account) {
    constexpr std::array<std::string_view, 11> signedHeaders = {
        "content-encoding",  "content-language", "content-length", "content-md5",         "content-type", "date",
        "if-modified-since", "if-match",         "if-none-match",  "if-unmodified-since", "range"};
    std::string text = request.method + "\n";
    for (const std::string_view name : signedHeaders) {
        text += HeaderOf(request, name) + "\n";
    }
    return text + CanonicalHeaders(request) + CanonicalResource(request, account);
}

std::string Authorization(const SSignedParts& request, const std::string& account, const crypto::sec_bytes_t& key) {
    const auto signature = digest::HmacSha256(key, StringToSign(request, account));
    return "SharedKey " + account + ":" +
           util::toBase64({reinterpret_cast<const char*>(signature.bytes.data()), signature.bytes.size()});
}

}  // namespace clients::azure
