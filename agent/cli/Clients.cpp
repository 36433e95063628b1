#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/OwnershipForms.h"

namespace agent {

namespace {

class CClientsCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        return app.add_subcommand("clients", "List who keeps backups in the repository, with their sets");
    }

    int Run(const SSettings& settings) override {
        const auto clients = ListClients(settings.repository);
        for (const auto& client : clients) {
            if (settings.output == EOutput::json) {
                PrintJson(ToJson(client));
            } else if (settings.output == EOutput::text) {
                PrintClient(client);
            }
        }
        if (clients.empty() && settings.output == EOutput::text) {
            PrintLine("No client has backups in the repository");
        }
        return exitDone;
    }
};

}  // namespace

std::unique_ptr<ICommand> MakeClientsCommand() { return std::make_unique<CClientsCommand>(); }

}  // namespace agent
