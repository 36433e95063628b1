#include "agent/check/CheckRun.h"

#include "agent/cli/CheckForms.h"
#include "agent/cli/Command.h"

namespace agent {

namespace {

class CCheckCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand(
            "check", "Verify all checkpoints of the set: what is there, and with options what is in it");
        options_.AddTo(*command);
        return command;
    }

    [[nodiscard]] std::string DescribeInterruption() const override {
        return "Interrupted: what was looked at is not told; nothing was changed.";
    }

    int Run(const SSettings& settings) override {
        SCheckOptions options = options_.MakeOptions();
        CProgressPrinter progress(settings.output, settings.progress);
        options.onProgress = [&](const SProgress& now) { progress.Tell(now); };
        const SCheckResult result = RunCheck(COpenedRepository::Open4Read(settings.repository), options);
        progress.Clear();
        for (const auto& finding : result.findings) {
            PrintFinding(settings.output, finding);
        }
        PrintCheck(settings.output, options, result);
        return result.findings.empty() ? exitDone : exitFailed;
    }

private:
    CCheckOptions options_;
};

}  // namespace

std::unique_ptr<ICommand> MakeCheckCommand() { return std::make_unique<CCheckCommand>(); }

}  // namespace agent
