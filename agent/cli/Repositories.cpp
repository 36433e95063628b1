#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/OwnershipForms.h"
#include "agent/run/SetDocument.h"

namespace agent {

namespace {

class CRepositoriesCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        return app.add_subcommand("repositories", "List the repositories of the place that --repo names");
    }

    int Run(const SSettings& settings) override {
        int result = exitDone;
        for (const auto& repository : ListRepositories(settings.repository)) {
            if (!repository.failure.empty()) {
                TroublePrinter(settings.output)({"repository " + repository.name, repository.failure});
                result = exitIncomplete;
            } else if (settings.output == EOutput::json) {
                PrintJson(ToJson(repository));
            } else if (settings.output == EOutput::text) {
                PrintLine(EscapePath(repository.name) + "  " + repository.id.ToAStr() + "  " +
                          FormatCount(repository.clients, "client") +
                          (repository.owner.id.IsEmpty() ? "" : ", owned by " + ToText(repository.owner)));
            }
        }
        return result;
    }

private:
    static nlohmann::json ToJson(const SRepositorySummary& repository) {
        nlohmann::json value{{"event", "repository"},
                             {"name", EscapePath(repository.name)},
                             {"id", repository.id.ToAStr()},
                             {"clients", repository.clients}};
        if (!repository.owner.id.IsEmpty()) {
            value["owner"] = agent::ToJson(repository.owner);
        }
        return value;
    }
};

}  // namespace

std::unique_ptr<ICommand> MakeRepositoriesCommand() { return std::make_unique<CRepositoriesCommand>(); }

}  // namespace agent
