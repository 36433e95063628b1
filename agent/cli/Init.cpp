#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"

namespace agent {

namespace {

class CInitCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override { return app.add_subcommand("init", "Make a new repository"); }

    int Run(const SSettings& settings) override {
        const guid::guid_t id = CreateRepository(settings.repository);
        if (settings.output == EOutput::json) {
            PrintJson({{"event", "repository"}, {"id", id.ToAStr()}, {"location", settings.repository.location}});
        } else if (settings.output == EOutput::text) {
            PrintLine("Made repository " + id.ToAStr() + " at " + settings.repository.location);
        }
        return exitDone;
    }
};

}  // namespace

std::unique_ptr<ICommand> MakeInitCommand() { return std::make_unique<CInitCommand>(); }

}  // namespace agent
