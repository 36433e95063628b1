#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/PasswordOptions.h"
#include "agent/cli/Secrets.h"
#include "agent/keys/RecoveryFile.h"
#include "common/util.h"

namespace agent {

namespace {

class CKeyCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("key", "Keys that a client's backups are encrypted with");
        command->require_subcommand(1);
        list_ = command->add_subcommand("list", "List the key in use and those before it");
        change_ = command->add_subcommand("change", "Give a new password, and with it a new key");
        AddNewKeyOptions(*change_);
        change_
            ->add_option("--new-password-file", newPasswordFile_,
                         "Where the new password stands, in the first line\n(else: $CLOUDBACKUP_NEW_PASSWORD, or it is "
                         "asked for)")
            ->type_name("FILE");
        rotate_ = command->add_subcommand("rotate", "Make a new key of the same password");
        AddNewKeyOptions(*rotate_);
        export_ = command->add_subcommand("export",
                                          "Write the keys to a file that restores without password and key records");
        export_->add_option("FILE", file_, "A file that does not exist yet")->required();
        return command;
    }

    [[nodiscard]] std::string DescribeInterruption() const override {
        return "Interrupted: 'cloudbackup key list' shows what is in force.";
    }

    int Run(const SSettings& settings) override {
        SRepositoryOptions options = settings.repository;
        options.keys.cost = cost_;
        if (!newPasswordFile_.empty()) {
            options.keys.password = [this, others = options.keys.password](EPasswordUse use) {
                return use == EPasswordUse::next ? ReadNewPassword() : others(use);
            };
        }
        auto repository = COpenedRepository::Open4Upkeep(options);
        if (list_->parsed()) {
            List(settings.output, repository);
        } else if (export_->parsed()) {
            Export(settings, repository);
        } else {
            Replace(settings, repository);
        }
        return exitDone;
    }

private:
    void AddNewKeyOptions(CLI::App& command) {
        command.add_option("--hint", hint_, "A name for the new key, which everyone can read")->type_name("TEXT");
        AddPasswordCostOptions(command, cost_);
    }

    crypto::sec_bytes_t ReadNewPassword() const {
        const std::string password = ReadSecret({"new password", "--new-password-file", newPasswordFile_, {}});
        return {password.begin(), password.end()};
    }

    static void List(EOutput output, COpenedRepository& repository) {
        const key_ring_ptr& keys = repository.GetKeys();
        if (!keys->IsEmpty()) {
            Print(output, *keys);
            return;
        }
        const CClientKeys records = repository.GetClientKeys();
        if (output == EOutput::json) {
            PrintJson({{"event", "key"}, {"state", records.HasRecord() ? "none" : "no record"}});
        } else if (output == EOutput::text) {
            PrintLine("Client " + repository.GetClientId().ToAStr() + " " + records.DescribeNoKey());
        }
    }

    static void Print(EOutput output, const CKeyRing& keys) {
        for (const auto& key : keys.GetKeys()) {
            PrintKey(output, key->GetId(), key == keys.GetCurrent() ? "in use" : "former");
        }
        for (const auto& lost : keys.GetLost()) {
            PrintKey(output, lost.id, "lost: nothing opens it");
        }
    }

    static void PrintKey(EOutput output, const crypto::SRawKeySetId& id, const std::string& state) {
        if (output == EOutput::json) {
            PrintJson({{"event", "key"}, {"id", id.ToAStr()}, {"state", state}});
        } else if (output == EOutput::text) {
            PrintLine(id.ToAStr() + "  " + state);
        }
    }

    void Replace(const SSettings& settings, COpenedRepository& repository) const {
        const bool isNewPassword = change_->parsed();
        const CKeyRing keys = repository.GetClientKeys().Replace(
            isNewPassword ? EPasswordUse::next : EPasswordUse::existing, util::Utf8ToWide(hint_));
        if (settings.output == EOutput::text) {
            PrintLine("Key " + keys.GetCurrent()->GetId().ToAStr() + " is in use now; " +
                      FormatCount(keys.GetKeys().size() - 1, "former key") + " still read what came before");
        }
        if (settings.output == EOutput::json) {
            Print(settings.output, keys);
        }
    }

    void Export(const SSettings& settings, COpenedRepository& repository) const {
        const key_ring_ptr& keys = repository.GetKeys();
        if (keys->IsEmpty()) {
            throw exc::CRuntimeExc("There are no keys to export: client %1 %2", repository.GetClientId(),
                                   repository.GetClientKeys().DescribeNoKey());
        }
        WriteRecoveryFile(file_, {repository.GetRepositoryId(), repository.GetClientId(), *keys});
        if (settings.output == EOutput::text) {
            PrintLine("Wrote " + FormatCount(keys->GetKeys().size(), "key") + " of client " +
                      repository.GetClientId().ToAStr() + " to " + EscapePath(file_) +
                      ". Who has this file can read all its backups made so far: keep it safe.");
        } else if (settings.output == EOutput::json) {
            PrintJson({{"event", "exported"},
                       {"client", repository.GetClientId().ToAStr()},
                       {"file", EscapePath(file_)},
                       {"keys", keys->GetKeys().size()}});
        }
    }

    CLI::App* list_ = nullptr;
    CLI::App* change_ = nullptr;
    CLI::App* rotate_ = nullptr;
    CLI::App* export_ = nullptr;
    std::string newPasswordFile_;
    std::string hint_;
    std::string file_;
    SPasswordCost cost_;
};

}  // namespace

std::unique_ptr<ICommand> MakeKeyCommand() { return std::make_unique<CKeyCommand>(); }

}  // namespace agent
