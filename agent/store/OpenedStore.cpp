#include "agent/store/OpenedStore.h"

#include "agent/store/ConnectionSpec.h"
#include "clients/azure/AzureStore.h"
#include "clients/registry/NetworkClient.h"
#include "clients/s3/RoleCredentials.h"
#include "clients/s3/S3Store.h"
#include "common/exc.h"

namespace agent {

namespace backup = cloudbackuplib::backup;

namespace {

constexpr std::string_view specScheme = "spec:";

void TakeRepository(const backup::SCloudRepositoryInfo& info, SOpenedStore& store) {
    store.repositoryName = info.folderName;
    if (info.client.IsSet()) {
        store.identity = info.client.Get();
    }
}

/// Keys before a role when both are there: they cannot fail.
std::shared_ptr<clients::s3::ICredentials> CredentialsOf(const s3_spec_t& spec) {
    if (!spec.credentials.IsSet()) {
        const auto& role = spec.roleAuth.Get();
        return std::make_shared<clients::s3::CRoleCredentials>(role.metadataHost, role.roleName,
                                                               [] { return std::chrono::system_clock::now(); });
    }
    const auto& keys = spec.credentials.Get();
    return std::make_shared<clients::s3::CStaticCredentials>(
        clients::s3::SCredentials{keys.accessKeyId,
                                  {keys.secretAccessKey.begin(), keys.secretAccessKey.end()},
                                  {keys.sessionToken.begin(), keys.sessionToken.end()}});
}

clients::SS3ClientOptions OptionsOf(const s3_spec_t& spec, const clients::SNetworkOptions& network) {
    clients::SS3ClientOptions options;
    const auto& address = spec.bucketAddr;
    options.bucket = {address.apiEndpoint, address.region, address.bucketName, spec.options.useVirtualHostedStyle};
    clients::ApplyNetwork(network, options.http);
    if (address.proxy.IsSet()) {
        options.http.proxy = address.proxy.Get().endpoint;
        options.http.proxyUser = address.proxy.Get().userName;
        options.http.proxyPassword = address.proxy.Get().password;
    }
    if (spec.options.useIAStorageClassForBlockObjects) {
        options.isInfrequentlyAccessed = &IsBlockPath;
    }
    return options;
}

SOpenedStore Open(const s3_spec_t& spec, bool make, const clients::SNetworkOptions& network) {
    SOpenedStore store;
    const auto credentials = CredentialsOf(spec);
    const auto options = OptionsOf(spec, network);
    store.client = clients::OpenOverNetwork(network, [&] { return clients::OpenS3Bucket(options, credentials, make); });
    if (spec.repository.IsSet()) {
        TakeRepository(spec.repository.Get(), store);
    }
    return store;
}

SOpenedStore Open(const azure_spec_t& spec, bool make, const clients::SNetworkOptions& network) {
    SOpenedStore store;
    const auto account = clients::azure::ReadConnectionString(spec.connectionString);
    clients::SAzureClientOptions options;
    options.container = spec.containerName;
    clients::ApplyNetwork(network, options.http);
    store.client =
        clients::OpenOverNetwork(network, [&] { return clients::OpenAzureContainer(options, account, make); });
    TakeRepository(spec.repository, store);
    return store;
}

}  // namespace

SOpenedStore OpenStore(const std::string& location, clients::ELocation mode, const clients::SNetworkOptions& network) {
    if (!location.starts_with(specScheme)) {
        return {clients::OpenLocation(location, mode, network), {}, {}};
    }
    const auto spec = ReadConnectionSpecFile(location.substr(specScheme.size()));
    const bool make = mode == clients::ELocation::createMissing;
    return std::visit([&](const auto& kind) { return Open(kind, make, network); }, spec);
}

bool IsBlockPath(const std::string& path) { return path.find("/BlockStore/") != std::string::npos; }

}  // namespace agent
