#include "clients/registry/AzureLocation.h"

#include "clients/registry/RefuseLocation.h"
#include "common/exc.h"

namespace clients {

namespace {

constexpr const char* variable = "AZURE_STORAGE_CONNECTION_STRING";

azure::SAccount ReadAccount(std::string text) {
    const crypto::erase_at_end_t erased(text);
    if (text.empty()) {
        RefuseLocation("azure:", std::string("the environment variable ") + variable + " is not set");
    }
    try {
        return azure::ReadConnectionString(text);
    } catch (const exc::CExc& failure) {
        RefuseLocation("azure:", std::string(variable) + ": " + failure.what());
    }
}

}  // namespace

SAzureLocation ReadAzureLocation(const std::string& container, const environment_t& environment) {
    const std::size_t slash = container.find('/');
    SAzureLocation location;
    location.options.container = container.substr(0, slash);
    if (location.options.container.empty()) {
        RefuseLocation("azure:", "the container's name is missing: it is written 'azure:CONTAINER'");
    }
    if (slash != std::string::npos) {
        location.options.prefix = container.substr(slash + 1);
        while (location.options.prefix.ends_with('/')) {
            location.options.prefix.pop_back();
        }
    }
    location.account = ReadAccount(environment(variable));
    return location;
}

}  // namespace clients
