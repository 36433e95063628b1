#include <functional>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/Confirm.h"
#include "agent/cli/OwnershipForms.h"
#include "agent/run/SetDocument.h"

namespace agent {

namespace {

class CDeleteCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("delete", "Delete a whole set, client or repository");
        command->require_subcommand(1);
        set_ = Add(*command, "set", "Delete a set with all its checkpoints (of this machine's client, or of --client)");
        client_ = Add(*command, "client", "Delete a client with all its sets, by its ID (see 'clients')");
        repository_ = Add(*command, "repository", "Delete a repository with all its clients, by its name");
        return command;
    }

    [[nodiscard]] std::string DescribeInterruption() const override {
        return "Interrupted: run it again to delete the rest.";
    }

    int Run(const SSettings& settings) override {
        SRepositoryOptions options = settings.repository;
        if (set_->parsed()) {
            options.set = name_;
            return Delete(settings, DescribeSet(options), "set '" + EscapePath(name_) + "'",
                          [&] { DeleteSet(options); });
        }
        if (client_->parsed()) {
            const guid::guid_t id = ParseId();
            return Delete(settings, DescribeClient(options, id), "client " + id.ToAStr(),
                          [&] { DeleteClient(options, id); });
        }
        options.repositoryName = name_;
        return Delete(settings, DescribeRepository(options), "repository '" + EscapePath(name_) + "'",
                      [&] { DeleteRepository(options); });
    }

private:
    CLI::App* Add(CLI::App& command, const std::string& what, const std::string& help) {
        CLI::App* sub = command.add_subcommand(what, help);
        sub->add_option(what == "client" ? "ID" : "NAME", name_)->required();
        sub->add_flag("--yes", yes_, "Do not ask");
        return sub;
    }

    guid::guid_t ParseId() const {
        try {
            return guid::guid_t::FromStr(name_);
        } catch (const std::exception& failure) {
            throw CWrongUseExc("Not a client's ID: %1", failure.what());
        }
    }

    int Delete(const SSettings& settings, const SDeletion& deletion, const std::string& what,
               const std::function<void()>& remove) const {
        if (settings.output == EOutput::text || !yes_) {
            Describe(settings.output, deletion, what);
        }
        if (!yes_ && !Confirm("This cannot be undone.")) {
            PrintTrouble("Nothing was deleted");
            return exitFailed;
        }
        remove();
        if (settings.output == EOutput::json) {
            PrintJson({{"event", "deleted"},
                       {"what", what},
                       {"objects", deletion.objects},
                       {"repositoryGone", deletion.repositoryGoes}});
        } else if (settings.output == EOutput::text) {
            PrintLine("Deleted " + what);
        }
        return exitDone;
    }

    /// To standard error when standard output is for a program.
    static void Describe(EOutput output, const SDeletion& deletion, const std::string& what) {
        std::vector<std::string> lines{"This deletes " + what + ":"};
        for (const auto& client : deletion.clients) {
            lines.push_back("  client " + ToText(client.identity));
            for (const auto& set : client.sets) {
                lines.push_back("    " + ToText(set));
            }
        }
        lines.push_back("  " + FormatCount(deletion.objects, "object") + " in the store");
        if (deletion.repositoryGoes) {
            lines.emplace_back("  and the repository itself, since nobody else is in it");
        }
        for (const auto& line : lines) {
            output == EOutput::text ? PrintLine(line) : PrintTrouble(line);
        }
    }

    CLI::App* set_ = nullptr;
    CLI::App* client_ = nullptr;
    CLI::App* repository_ = nullptr;
    std::string name_;
    bool yes_ = false;
};

}  // namespace

std::unique_ptr<ICommand> MakeDeleteCommand() { return std::make_unique<CDeleteCommand>(); }

}  // namespace agent
