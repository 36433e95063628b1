#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/PasswordOptions.h"
#include "agent/run/SetDocument.h"

namespace agent {

namespace {

class CInitCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("init", "Make a new repository");
        AddFirstKeyOptions(*command, keys_);
        return command;
    }

    [[nodiscard]] std::string DescribeInterruption() const override { return {}; }

    int Run(const SSettings& settings) override {
        SRepositoryOptions options = settings.repository;
        options.keys.noEncryption = keys_.noEncryption;
        options.keys.cost = keys_.cost;
        const guid::guid_t id = CreateRepository(options);
        if (settings.output == EOutput::json) {
            PrintJson(
                {{"event", "repository"}, {"id", id.ToAStr()}, {"location", EscapePath(settings.repository.location)}});
        } else if (settings.output == EOutput::text) {
            PrintLine("Made repository " + id.ToAStr() + " at " + EscapePath(settings.repository.location));
            PrintLine(keys_.noEncryption ? "What this machine stores in it is not encrypted"
                                         : "What this machine stores in it is encrypted: without the password, or a "
                                           "file made by 'cloudbackup key export', nobody can read it, you neither");
        }
        return exitDone;
    }

private:
    SKeyOptions keys_;
};

}  // namespace

std::unique_ptr<ICommand> MakeInitCommand() { return std::make_unique<CInitCommand>(); }

}  // namespace agent
