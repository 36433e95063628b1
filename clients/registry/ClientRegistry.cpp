#include "clients/registry/ClientRegistry.h"

#include <algorithm>
#include <map>
#include <string_view>

#include "clients/azure/AzureStore.h"
#include "clients/directory/DirectoryClient.h"
#include "clients/registry/AzureLocation.h"
#include "clients/registry/NetworkClient.h"
#include "clients/registry/RefuseLocation.h"
#include "clients/registry/S3Location.h"
#include "clients/s3/S3Store.h"
#include "cloudclientlib/CloudExc.h"

namespace clients {

using cloudclientlib::CCloudExc;
using cloudclientlib::EFailure;
using cloudclientlib::ICloudClient;

namespace {

using opener_t = std::shared_ptr<ICloudClient> (*)(const std::string& rest, ELocation mode,
                                                   const SNetworkOptions& network);

std::shared_ptr<ICloudClient> OpenDirectory(const std::string& rest, ELocation mode, const SNetworkOptions& network) {
    if (rest.empty()) {
        RefuseLocation("dir:", "the folder's path is missing");
    }
    // A folder may lie behind a network, too; how it is reached is the system's matter.
    return WithinLimits(std::make_shared<CDirectoryClient>(
                            rest, mode == ELocation::createMissing ? ERoot::createMissing : ERoot::existing),
                        network);
}

std::shared_ptr<ICloudClient> OpenS3(const std::string& rest, ELocation mode, const SNetworkOptions& network) {
    SS3Location location = ReadS3Location(rest, &ProcessEnvironment);
    ApplyNetwork(network, location.options.http);
    return OpenOverNetwork(network, [&] {
        return OpenS3Bucket(location.options, location.credentials, mode == ELocation::createMissing);
    });
}

std::shared_ptr<ICloudClient> OpenAzure(const std::string& rest, ELocation mode, const SNetworkOptions& network) {
    SAzureLocation location = ReadAzureLocation(rest, &ProcessEnvironment);
    ApplyNetwork(network, location.options.http);
    return OpenOverNetwork(network, [&] {
        return OpenAzureContainer(location.options, location.account, mode == ELocation::createMissing);
    });
}

/// Every scheme that a location may have; a further client is a further line.
const std::map<std::string, opener_t, std::less<>>& Openers() {
    static const std::map<std::string, opener_t, std::less<>> openers{
        {"dir", &OpenDirectory}, {"s3", &OpenS3}, {"azure", &OpenAzure}};
    return openers;
}

bool IsSchemeCharacter(char c) {
    const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    const bool isDigit = c >= '0' && c <= '9';
    return isLetter || isDigit || c == '+' || c == '-' || c == '.' || c == '_';
}

/// What stands before the first colon, when it can be a scheme; else empty, and the location is a plain path.
std::string SchemeOf(const std::string& location) {
    const auto colon = location.find(':');
    if (colon == std::string::npos) {
        return {};
    }
    auto scheme = location.substr(0, colon);
    return std::ranges::all_of(scheme, IsSchemeCharacter) ? scheme : std::string();
}

std::string KnownSchemes() {
    std::string known;
    for (const auto& [scheme, opener] : Openers()) {
        known += (known.empty() ? "'" : ", '") + scheme + ":'";
    }
    return known;
}

}  // namespace

std::shared_ptr<ICloudClient> OpenLocation(const std::string& location, ELocation mode,
                                           const SNetworkOptions& network) {
    if (location.empty()) {
        RefuseLocation(location, "the location is empty");
    }
    const auto scheme = SchemeOf(location);
    if (scheme.empty()) {
        return OpenDirectory(location, mode, network);
    }
    const auto opener = Openers().find(scheme);
    if (opener == Openers().end()) {
        RefuseLocation(scheme + ":", "unknown kind of location; known are " + KnownSchemes() +
                                         " and plain paths (a path with a colon is written 'dir:PATH')");
    }
    return opener->second(location.substr(scheme.size() + 1), mode, network);
}

}  // namespace clients
