#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/OwnershipForms.h"

namespace agent {

namespace {

class COwnerCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("owner", "Show or set who owns the repository");
        CLI::Option* name = command->add_option("--name", description_, "Make this the owner's name or description");
        command->add_option("--id", id_, "The owner's id (default: as before, else a new one)")
            ->needs(name)
            ->type_name("ID");
        command->add_option("--type", type_, "What the owner is: user, company, ...")->needs(name);
        command->add_flag("--clear", clear_, "The repository has no owner any more")->excludes(name);
        name_ = name;
        return command;
    }

    int Run(const SSettings& settings) override {
        SCloudRepoIdentity owner = GetOwner(settings.repository);
        if (clear_ || name_->count() != 0) {
            owner = clear_ ? SCloudRepoIdentity{} : Changed(owner);
            SetOwner(settings.repository, owner);
        }
        if (settings.output == EOutput::json) {
            nlohmann::json value{{"event", "owner"}, {"owner", nullptr}};
            if (!owner.id.IsEmpty()) {
                value["owner"] = ToJson(owner);
            }
            PrintJson(value);
        } else if (settings.output == EOutput::text) {
            PrintLine(owner.id.IsEmpty() ? "The repository has no owner" : "Owner: " + ToText(owner));
        }
        return exitDone;
    }

private:
    SCloudRepoIdentity Changed(SCloudRepoIdentity owner) const {
        owner.description = description_;
        if (!type_.empty()) {
            owner.type = type_;
        }
        if (!id_.empty()) {
            owner.id = ParseId();
        } else if (owner.id.IsEmpty()) {
            owner.id = guid::guid_t::CreateNew();
        }
        return owner;
    }

    guid::guid_t ParseId() const {
        try {
            return guid::guid_t::FromStr(id_);
        } catch (const std::exception& failure) {
            throw CWrongUseExc("--id: %1", failure.what());
        }
    }

    CLI::Option* name_ = nullptr;
    std::string description_;
    std::string id_;
    std::string type_;
    bool clear_ = false;
};

}  // namespace

std::unique_ptr<ICommand> MakeOwnerCommand() { return std::make_unique<COwnerCommand>(); }

}  // namespace agent
