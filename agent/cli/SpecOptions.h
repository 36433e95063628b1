#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "agent/store/ConnectionSpec.h"

namespace agent {

/// What a user says of a store to have its specification written; secrets are no options.
class CSpecOptions {
public:
    void AddTo(CLI::App& command);
    /// The connection specification, with the secrets from where they come. Throws CWrongUseExc that names what is
    /// missing.
    [[nodiscard]] connection_spec_t MakeSpec() const;

private:
    void AddS3Options(CLI::App& command);
    void AddKeyOptions(CLI::App& command, CLI::Option& s3);
    void AddAzureOptions(CLI::App& command);

    [[nodiscard]] connection_spec_t MakeS3Spec() const;
    [[nodiscard]] connection_spec_t MakeAzureSpec() const;
    [[nodiscard]] cloudclientlib::s3::SS3CredentialsKeys ReadKeys() const;
    [[nodiscard]] cloudclientlib::s3::SS3ProxyConfig ReadProxy() const;

    std::string endpoint_;
    std::string bucket_;
    std::string region_;
    std::string accessKey_;
    std::string secretFile_;
    std::string role_;
    std::string metadataHost_ = "169.254.169.254";
    std::string proxy_;
    std::string proxyUser_;
    std::string proxyPasswordFile_;
    bool virtualHosted_ = false;
    bool infrequentAccess_ = false;

    bool azure_ = false;
    std::string container_;
    std::string connectionStringFile_;

    std::string repository_;
};

}  // namespace agent
