#include "agent/cli/SpecOptions.h"

#include "agent/cli/Command.h"
#include "agent/cli/Secrets.h"
#include "clients/azure/Account.h"
#include "clients/http/Uri.h"
#include "clients/registry/Environment.h"

namespace agent {

using clients::ProcessEnvironment;

namespace {

std::string CheckNotEmpty(const std::string& text) { return text.empty() ? "it is empty" : ""; }

/// The address itself is not told: somebody may have written a password into it.
std::string CheckAddress(const std::string& text) {
    try {
        return clients::http::ReadEndpoint(text).path.empty() ? "" : "an endpoint has no path; a bucket has --bucket";
    } catch (const exc::CRuntimeExc& failure) {
        return failure.GetMessage();
    }
}

CLI::Option* AddText(CLI::App& command, const std::string& name, std::string& value, const std::string& type,
                     const std::string& description) {
    return command.add_option(name, value, description)
        ->type_name(type)
        ->check(CLI::Validator(CheckNotEmpty, std::string()));
}

CLI::Option* AddAddress(CLI::App& command, const std::string& name, std::string& value, const std::string& type,
                        const std::string& description) {
    return command.add_option(name, value, description)
        ->type_name(type)
        ->check(CLI::Validator(CheckAddress, std::string()));
}

void CheckConnectionString(const std::string& text) {
    try {
        static_cast<void>(clients::azure::ReadConnectionString(text));
    } catch (const exc::CRuntimeExc& failure) {
        throw CWrongUseExc("%1", failure.GetMessage());
    }
}

std::string DefaultRegion() {
    for (const char* name : {"AWS_REGION", "AWS_DEFAULT_REGION"}) {
        if (std::string region = ProcessEnvironment(name); !region.empty()) {
            return region;
        }
    }
    return "us-east-1";
}

}  // namespace

void CSpecOptions::AddTo(CLI::App& command) {
    AddS3Options(command);
    AddAzureOptions(command);
    AddText(command, "--repository", repository_, "NAME",
            "Which repository of the place\n(default: what --repo-name says when it is used)");
    command.get_option("--s3")->excludes(command.get_option("--azure"));
    command.footer(
        "A secret is no option, since every user of the machine can see those. It comes from the file of its option\n"
        "(the first line), else from the environment (AWS_SECRET_ACCESS_KEY, with AWS_SESSION_TOKEN when that is set;\n"
        "CLOUDBACKUP_PROXY_PASSWORD; AZURE_STORAGE_CONNECTION_STRING), else it is asked for on the terminal.");
}

void CSpecOptions::AddS3Options(CLI::App& command) {
    CLI::Option* const s3 = AddAddress(command, "--s3", endpoint_, "ENDPOINT", "An S3 store: https://HOST[:PORT]");
    CLI::Option* const bucket = AddText(command, "--bucket", bucket_, "NAME", "Its bucket");
    s3->needs(bucket);
    bucket->needs(s3);
    AddText(command, "--region", region_, "REGION",
            "Its region\n(default: AWS_REGION, else AWS_DEFAULT_REGION, else us-east-1)")
        ->needs(s3);
    AddKeyOptions(command, *s3);
    CLI::Option* const proxy = AddAddress(command, "--proxy", proxy_, "URL", "The proxy before it: http://HOST:PORT");
    CLI::Option* const user = AddText(command, "--proxy-user", proxyUser_, "NAME", "Who one is to the proxy");
    proxy->needs(s3);
    user->needs(proxy);
    AddText(command, "--proxy-password-file", proxyPasswordFile_, "FILE", "Where the proxy's password stands")
        ->needs(user);
    command.add_flag("--virtual-hosted", virtualHosted_, "The bucket is part of the host's name")->needs(s3);
    command.add_flag("--infrequent-access", infrequentAccess_, "Keep blocks in the infrequent-access storage class")
        ->needs(s3);
}

void CSpecOptions::AddKeyOptions(CLI::App& command, CLI::Option& s3) {
    CLI::Option* const accessKey =
        AddText(command, "--access-key", accessKey_, "ID", "The access key's ID\n(default: AWS_ACCESS_KEY_ID)");
    CLI::Option* const secretFile =
        AddText(command, "--secret-file", secretFile_, "FILE", "Where the secret access key stands");
    CLI::Option* const role = AddText(command, "--role", role_, "NAME",
                                      "No keys: the machine gets its credentials by this role from the cloud");
    accessKey->needs(&s3);
    secretFile->needs(&s3);
    role->needs(&s3)->excludes(accessKey)->excludes(secretFile);
    AddText(command, "--metadata-host", metadataHost_, "HOST", "Who hands out a role's credentials")
        ->capture_default_str()
        ->needs(role);
}

void CSpecOptions::AddAzureOptions(CLI::App& command) {
    CLI::Option* const azure = command.add_flag("--azure", azure_, "A store of Azure Blob Storage");
    CLI::Option* const container = AddText(command, "--container", container_, "NAME", "Its container");
    azure->needs(container);
    container->needs(azure);
    AddText(command, "--connection-string-file", connectionStringFile_, "FILE",
            "Where the account's connection string stands")
        ->needs(azure);
}

connection_spec_t CSpecOptions::MakeSpec() const {
    if (azure_) {
        return MakeAzureSpec();
    }
    if (!endpoint_.empty()) {
        return MakeS3Spec();
    }
    throw CWrongUseExc("The kind of store is missing: --s3 ENDPOINT or --azure");
}

connection_spec_t CSpecOptions::MakeS3Spec() const {
    s3_spec_t spec;
    spec.bucketAddr.apiEndpoint = endpoint_;
    spec.bucketAddr.bucketName = bucket_;
    spec.bucketAddr.region = region_.empty() ? DefaultRegion() : region_;
    if (role_.empty()) {
        spec.credentials = ReadKeys();
    } else {
        spec.roleAuth = cloudclientlib::s3::SS3RoleAuth{role_, metadataHost_};
    }
    if (!proxy_.empty()) {
        spec.bucketAddr.proxy = ReadProxy();
    }
    if (!repository_.empty()) {
        spec.repository.Set({repository_, {}});
    }
    spec.options.useVirtualHostedStyle = virtualHosted_;
    spec.options.useIAStorageClassForBlockObjects = infrequentAccess_;
    return spec;
}

cloudclientlib::s3::SS3CredentialsKeys CSpecOptions::ReadKeys() const {
    const std::string id = accessKey_.empty() ? ProcessEnvironment("AWS_ACCESS_KEY_ID") : accessKey_;
    if (id.empty()) {
        throw CWrongUseExc("The access key's ID is missing: it comes from --access-key ID or from AWS_ACCESS_KEY_ID");
    }
    return {id, ReadSecret({"secret access key", "--secret-file", secretFile_, "AWS_SECRET_ACCESS_KEY"}),
            ProcessEnvironment("AWS_SESSION_TOKEN")};
}

cloudclientlib::s3::SS3ProxyConfig CSpecOptions::ReadProxy() const {
    if (proxyUser_.empty()) {
        return {proxy_, {}, {}};
    }
    return {
        proxy_, proxyUser_,
        ReadSecret({"proxy's password", "--proxy-password-file", proxyPasswordFile_, "CLOUDBACKUP_PROXY_PASSWORD"})};
}

connection_spec_t CSpecOptions::MakeAzureSpec() const {
    azure_spec_t spec;
    spec.connectionString = ReadSecret(
        {"connection string", "--connection-string-file", connectionStringFile_, "AZURE_STORAGE_CONNECTION_STRING"});
    CheckConnectionString(spec.connectionString);
    spec.containerName = container_;
    spec.repository.folderName = repository_;
    return spec;
}

}  // namespace agent
