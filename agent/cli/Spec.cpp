#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/SpecOptions.h"
#include "agent/run/SetDocument.h"
#include "agent/store/OpenedStore.h"

namespace agent {

namespace {

/// What the document says, without the secrets.
nlohmann::json ToJson(const s3_spec_t& spec) {
    const auto& address = spec.bucketAddr;
    nlohmann::json value{{"kind", "s3"},
                         {"endpoint", address.apiEndpoint},
                         {"region", address.region},
                         {"bucket", address.bucketName},
                         {"virtualHosted", spec.options.useVirtualHostedStyle},
                         {"infrequentAccess", spec.options.useIAStorageClassForBlockObjects}};
    if (address.proxy.IsSet()) {
        value["proxy"] = {{"endpoint", address.proxy.Get().endpoint}, {"user", address.proxy.Get().userName}};
    }
    if (spec.credentials.IsSet()) {
        value["accessKey"] = spec.credentials.Get().accessKeyId;
        value["sessionToken"] = !spec.credentials.Get().sessionToken.empty();
    }
    if (spec.roleAuth.IsSet()) {
        value["role"] = {{"name", spec.roleAuth.Get().roleName}, {"metadataHost", spec.roleAuth.Get().metadataHost}};
    }
    return value;
}

nlohmann::json ToJson(const azure_spec_t& spec) { return {{"kind", "azure"}, {"container", spec.containerName}}; }

cloudbackuplib::backup::SCloudRepositoryInfo RepositoryOf(const connection_spec_t& spec) {
    if (const auto* const azure = std::get_if<azure_spec_t>(&spec)) {
        return azure->repository;
    }
    const auto& repository = std::get<s3_spec_t>(spec).repository;
    return repository.IsSet() ? repository.Get() : cloudbackuplib::backup::SCloudRepositoryInfo{};
}

nlohmann::json ToJson(const connection_spec_t& spec, const std::string& file) {
    nlohmann::json value = std::visit([](const auto& kind) { return ToJson(kind); }, spec);
    value["event"] = "specification";
    value["file"] = EscapePath(file);
    const auto repository = RepositoryOf(spec);
    if (!repository.folderName.empty()) {
        value["repository"] = repository.folderName;
    }
    if (repository.client.IsSet()) {
        value["client"] = repository.client.Get().clientId.ToAStr();
    }
    return value;
}

class CSpecCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("spec", "Write a connection specification, or look at one");
        command->require_subcommand(1);
        write_ = AddPart(*command, "write",
                         "Write a store's connection specification into a new file, which only you can read");
        options_.AddTo(*write_);
        show_ = AddPart(*command, "show", "Show what a specification says, without its secrets");
        check_ = AddPart(*command, "check", "Ask the store of a specification whether it answers");
        return command;
    }

    [[nodiscard]] bool NeedsRepository() const override { return false; }

    [[nodiscard]] std::string DescribeInterruption() const override { return {}; }

    int Run(const SSettings& settings) override {
        if (write_->parsed()) {
            Write(settings.output);
        } else if (show_->parsed()) {
            Show(settings.output);
        } else {
            Check(settings);
        }
        return exitDone;
    }

private:
    CLI::App* AddPart(CLI::App& command, const std::string& name, const std::string& description) {
        CLI::App* part = command.add_subcommand(name, description);
        part->add_option("FILE", file_, "A connection specification; 'spec:FILE' is the location of its store")
            ->required();
        return part;
    }

    void Write(EOutput output) const {
        const auto spec = options_.MakeSpec();
        WriteConnectionSpecFile(file_, spec);
        if (output == EOutput::text) {
            PrintLine("Wrote " + EscapePath(file_));
        }
        Print(output, spec);
    }

    void Show(EOutput output) const { Print(output, ReadConnectionSpecFile(file_)); }

    void Print(EOutput output, const connection_spec_t& spec) const {
        if (output == EOutput::json) {
            PrintJson(ToJson(spec, file_));
        } else if (output == EOutput::text) {
            PrintLine(Describe(spec));
        }
    }

    void Check(const SSettings& settings) const {
        static_cast<void>(OpenStore("spec:" + file_, clients::ELocation::existing, settings.repository.network));
        if (settings.output == EOutput::json) {
            PrintJson({{"event", "answer"}, {"file", EscapePath(file_)}});
        } else if (settings.output == EOutput::text) {
            PrintLine("The store answers");
        }
    }

    CLI::App* write_ = nullptr;  // the parser's, as the others
    CLI::App* show_ = nullptr;
    CLI::App* check_ = nullptr;
    CSpecOptions options_;
    std::string file_;
};

}  // namespace

std::unique_ptr<ICommand> MakeSpecCommand() { return std::make_unique<CSpecCommand>(); }

}  // namespace agent
