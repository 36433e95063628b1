#include <algorithm>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/Interrupt.h"
#include "agent/cli/PruneForms.h"
#include "agent/run/Ownership.h"

namespace agent {

namespace {

class CPruneCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command =
            app.add_subcommand("prune", "Delete blocks and metadata that no checkpoint of the set needs");
        command->add_flag("-n,--dry-run", dryRun_, "Only say what would be deleted");
        command->add_flag("--all-sets", allSets_, "Prune every set of the client");
        AddMinAgeOption(*command, minAge_);
        AddMaxUnusedOption(*command, maxUnused_);
        return command;
    }

    [[nodiscard]] std::string DescribeInterruption() const override {
        return "Interrupted: every checkpoint is whole; the next prune does the rest.";
    }

    int Run(const SSettings& settings) override {
        SPruneOptions options;
        options.minAge = MinAgeOf(minAge_);
        options.maxUnused = MaxUnusedOf(maxUnused_);
        return allSets_ ? PruneAll(settings, options) : PruneOne(settings, options);
    }

private:
    int PruneOne(const SSettings& settings, const SPruneOptions& options) const {
        CSetUpkeep upkeep(settings.repository, dryRun_ ? CSetUpkeep::EMode::look : CSetUpkeep::EMode::change);
        return PruneAndPrint(upkeep, options, dryRun_, settings.output);
    }

    /// A set that cannot be pruned, since a run of it is under way perhaps, keeps no other from it.
    int PruneAll(const SSettings& settings, const SPruneOptions& options) const {
        int result = exitDone;
        for (const auto& set : SetsOf(settings.repository)) {
            SSettings one = settings;
            one.repository.set = set;
            try {
                result = std::max(result, PruneOne(one, options));
            } catch (const std::exception& failure) {
                if (IsInterrupted()) {
                    throw;
                }
                TroublePrinter(settings.output)({"set " + set, exc::ChainText(failure)});
                result = exitIncomplete;
            }
        }
        return result;
    }

    static std::vector<std::string> SetsOf(const SRepositoryOptions& options) {
        std::vector<std::string> sets;
        for (const auto& client : ListClients(options)) {
            const bool isMeant = options.client.empty() ? client.isOwn : client.identity.id.ToAStr() == options.client;
            for (const auto& set : client.sets) {
                if (isMeant) {
                    sets.push_back(set.name);
                }
            }
        }
        if (sets.empty()) {
            throw exc::CRuntimeExc("The client has no sets in the repository ('cloudbackup clients' lists them)");
        }
        return sets;
    }

    bool dryRun_ = false;
    bool allSets_ = false;
    std::string minAge_;
    std::string maxUnused_;
};

}  // namespace

std::unique_ptr<ICommand> MakePruneCommand() { return std::make_unique<CPruneCommand>(); }

}  // namespace agent
