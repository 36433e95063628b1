#include "clients/http/Uri.h"

#include "clients/http/HeaderText.h"

#include <algorithm>

#include "common/exc.h"

namespace clients::http {

namespace {

bool IsUnreserved(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

bool IsPlain(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7F; }) &&
           text.find_first_of("?#@\\") == std::string_view::npos;
}

/// A name or an address, one of version 6 in brackets, and perhaps a port.
bool IsHost(std::string_view text) {
    constexpr std::string_view digits = "0123456789";
    std::size_t end = std::min(text.find_first_of(":[]"), text.size());
    if (text.starts_with('[')) {
        const std::size_t last = text.find(']');
        end = last == std::string_view::npos || last == 1 ? 0 : last + 1;
    }
    const std::string_view port = text.substr(end);
    const bool isPort = port.starts_with(':') && port.size() >= 2 && port.size() <= 6 &&
                        port.find_first_not_of(digits, 1) == std::string_view::npos;
    return end != 0 && (port.empty() || isPort);
}

}  // namespace

std::string UriEncode(std::string_view text, bool keepSlash) {
    constexpr std::string_view hex = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size() + text.size() / 4);
    for (const char c : text) {
        if (IsUnreserved(c) || (keepSlash && c == '/')) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += {'%', hex[byte >> 4U], hex[byte & 0x0FU]};
        }
    }
    return encoded;
}

std::string UriDecode(std::string_view text, EPlus plus) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i] == '+' && plus == EPlus::blank ? ' ' : text[i];
            continue;
        }
        const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
        if (high < 0 || low < 0) {
            throw exc::CRuntimeExc("Broken URL encoding: '%1'", text);
        }
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return decoded;
}

std::string UriQuery(const std::vector<std::pair<std::string, std::string>>& query) {
    std::string text;
    for (const auto& [name, value] : query) {
        text += (text.empty() ? "" : "&") + UriEncode(name, false) + "=" + UriEncode(value, false);
    }
    return text;
}

SEndpoint ReadEndpoint(std::string_view text) {
    const std::size_t colon = text.find("://");
    if (colon == std::string_view::npos) {
        throw exc::CRuntimeExc("an endpoint is written 'https://host[:port]'");
    }
    SEndpoint endpoint;
    endpoint.scheme = text.substr(0, colon + 3);
    if (endpoint.scheme != "https://" && endpoint.scheme != "http://") {
        throw exc::CRuntimeExc("an endpoint begins with 'https://' or 'http://'");
    }
    const std::string_view rest = text.substr(colon + 3);
    const std::size_t slash = std::min(rest.find('/'), rest.size());
    if (!IsPlain(rest) || !IsHost(rest.substr(0, slash))) {
        throw exc::CRuntimeExc("an endpoint is a host and perhaps a port, nothing else");
    }
    endpoint.host = ToLower(rest.substr(0, slash));
    const std::string_view own = endpoint.scheme == "https://" ? ":443" : ":80";
    if (endpoint.host.ends_with(own)) {  // libcurl leaves it out of the header, and a signature holds for the header
        endpoint.host.resize(endpoint.host.size() - own.size());
    }
    endpoint.path = rest.substr(slash);
    while (endpoint.path.ends_with('/')) {
        endpoint.path.pop_back();
    }
    return endpoint;
}

}  // namespace clients::http
