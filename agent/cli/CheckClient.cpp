#include <array>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/Failure.h"
#include "agent/cli/Interrupt.h"
#include "agent/cli/ScratchClient.h"
#include "agent/run/SetDocument.h"
#include "agent/store/OpenedStore.h"
#include "cloudclientlib/conformance/Conformance.h"
#include "common/guid.h"

namespace agent {

namespace {

namespace conformance = cloudclientlib::conformance;
using cloudclientlib::ICloudClient;

enum class EVerdict { holds, deviates, fails };

/// What a store's kind forces upon it is not known beforehand: what may deviate does when it fails.
EVerdict VerdictOf(const conformance::SCheck& check, const conformance::SResult& result) {
    if (result.outcome == conformance::EOutcome::passed) {
        return EVerdict::holds;
    }
    return check.deviation != nullptr ? EVerdict::deviates : EVerdict::fails;
}

/// Prints what became of each check, and counts.
class CVerdictPrinter {
public:
    explicit CVerdictPrinter(const SSettings& settings) : output_(settings.output), verbose_(settings.verbose > 0) {}

    void Report(const conformance::SCheck& check, const conformance::SResult& result) {
        const EVerdict verdict = VerdictOf(check, result);
        ++counts_[static_cast<std::size_t>(verdict)];
        if (output_ == EOutput::json) {
            PrintJson(ToJson(check, result, verdict));
        } else if (output_ == EOutput::text && (verbose_ || verdict != EVerdict::holds)) {
            PrintLine(ToText(check, result, verdict));
        } else if (output_ == EOutput::quiet && verdict == EVerdict::fails) {
            PrintTrouble(ToText(check, result, verdict));
        }
    }

    void PrintSummary() const {
        if (output_ == EOutput::json) {
            PrintJson({{"event", "summary"},
                       {"hold", Count(EVerdict::holds)},
                       {"deviate", Count(EVerdict::deviates)},
                       {"fail", Count(EVerdict::fails)}});
        } else if (output_ == EOutput::text) {
            PrintLine("Hold: " + FormatCount(Count(EVerdict::holds)) + ", deviate: " +
                      FormatCount(Count(EVerdict::deviates)) + ", fail: " + FormatCount(Count(EVerdict::fails)));
        }
    }

    [[nodiscard]] std::uint64_t Count(EVerdict verdict) const { return counts_[static_cast<std::size_t>(verdict)]; }

private:
    static nlohmann::json ToJson(const conformance::SCheck& check, const conformance::SResult& result,
                                 EVerdict verdict) {
        static constexpr std::array<const char*, 3> names{"holds", "deviates", "fails"};
        nlohmann::json value{
            {"event", "check"}, {"name", check.name}, {"outcome", names[static_cast<std::size_t>(verdict)]}};
        if (verdict == EVerdict::deviates) {
            value["deviation"] = conformance::Name(check.deviation);
        }
        if (!result.text.empty()) {
            value["text"] = EscapePath(result.text);
        }
        return value;
    }

    static std::string ToText(const conformance::SCheck& check, const conformance::SResult& result, EVerdict verdict) {
        if (verdict == EVerdict::holds) {
            return "holds: " + check.name;
        }
        const std::string text = check.name + ": " + EscapePath(result.text);
        return verdict == EVerdict::fails
                   ? "fails: " + text
                   : "deviates: " + std::string(conformance::Name(check.deviation)) + ": " + text;
    }

    const EOutput output_;
    const bool verbose_;
    std::array<std::uint64_t, 3> counts_{};
};

/// Fails when the store cannot be written at all, rather than to let every check find out.
void TryToWrite(ICloudClient& client, const std::string& folder) {
    try {
        client.UploadFileAsync(folder + "/first", std::make_shared<cnt::array_t<char>>(1))->Wait();
    } catch (const std::exception& failure) {
        exc::RegenTraceExc(failure, "Cannot write to the store");
    }
}

void DeleteScratch(ICloudClient& client, const std::string& folder) {
    try {
        client.DeleteFolderAsync(folder, nullptr)->Wait();
        if (!client.QueryFolder(folder).empty()) {
            throw exc::CRuntimeExc("something is left in it");
        }
    } catch (const std::exception& failure) {
        exc::RegenTraceExc(failure, "Cannot delete '%1', which the checks worked in", folder);
    }
}

class CCheckClientCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command =
            app.add_subcommand("check-client", "Check that a store, and the client that reaches it, keep all promises");
        command->add_flag("--large", large_, "Also the checks that move tens of MiB and thousands of objects");
        command->add_option("--rounds", rounds_, "How often each thread of a check with several does its work")
            ->check(CLI::Range(1, 1000))
            ->capture_default_str()
            ->type_name("N");
        return command;
    }

    int Run(const SSettings& settings) override {
        const std::string folder = ".cloudbackup-check-" + guid::guid_t::CreateNew().ToAStr();
        const auto client = Open(settings);
        if (settings.output == EOutput::text) {
            PrintLine("Writes only below '" + folder + "', and deletes it afterwards");
        }
        CVerdictPrinter printer(settings);
        try {
            TryToWrite(*client, folder);
            RunChecks(settings, folder, printer);
        } catch (const std::exception&) {
            DeleteAfterFailure(*client, folder);
            throw;
        }
        printer.PrintSummary();
        DeleteScratch(*client, folder);
        return printer.Count(EVerdict::fails) == 0 ? exitDone : exitFailed;
    }

private:
    static std::shared_ptr<ICloudClient> Open(const SSettings& settings) {
        const auto& repository = settings.repository;
        return OpenStore(repository.location, clients::ELocation::existing, repository.network).client;
    }

    void RunChecks(const SSettings& settings, const std::string& folder, CVerdictPrinter& printer) const {
        conformance::SSettings suite;
        suite.large = large_;
        suite.rounds = rounds_;
        const auto freshPlace = [&settings, &folder, number = 0]() mutable -> conformance::place_t {
            const std::string place = folder + "/" + std::to_string(++number);
            return [&settings, place] { return MakeScratchClient(Open(settings), place); };
        };
        conformance::RunConformance(freshPlace, suite, [&](const auto& check, const auto& result) {
            printer.Report(check, result);
            if (IsInterrupted()) {
                throw exc::CRuntimeExc("%1", GetInterruptMessage());
            }
        });
    }

    /// What failed first is what the user is told in the end; that something is left is told beside it.
    static void DeleteAfterFailure(ICloudClient& client, const std::string& folder) {
        try {
            DeleteScratch(client, folder);
        } catch (const std::exception& failure) {
            PrintTrouble(FailureText(failure));
        }
    }

    bool large_ = false;
    unsigned rounds_ = 5;
};

}  // namespace

std::unique_ptr<ICommand> MakeCheckClientCommand() { return std::make_unique<CCheckClientCommand>(); }

}  // namespace agent
