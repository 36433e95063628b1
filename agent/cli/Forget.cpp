#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/PruneForms.h"
#include "agent/retention/LocalTime.h"
#include "agent/run/ForgetRun.h"
#include "common/util.h"

namespace agent {

namespace {

using retention::EPeriod;

constexpr std::array<EPeriod, 5> allPeriods{EPeriod::hourly, EPeriod::daily, EPeriod::weekly, EPeriod::monthly,
                                            EPeriod::yearly};

std::uint64_t ParseCount(const std::string& text) {
    if (text == "unlimited") {
        return retention::keepAll;
    }
    try {
        return util::str_to_uint64(text);
    } catch (const std::exception&) {
        throw CLI::ValidationError("'" + text + "' is neither a number nor 'unlimited'");
    }
}

retention::SDuration ParseDuration(const std::string& text) {
    try {
        return retention::SDuration::FromText(text);
    } catch (const std::exception& failure) {
        throw CLI::ValidationError(failure.what());
    }
}

/// The parts between commas; none of them empty.
std::vector<std::string> Split(const std::string& text) {
    std::vector<std::string> parts = CLI::detail::split(text, ',');
    for (const auto& part : parts) {
        if (part.empty()) {
            throw CLI::ValidationError("'" + text + "' has an empty part");
        }
    }
    return parts;
}

class CForgetCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("forget", "Delete checkpoints: named ones, or what rules do not keep");
        command->add_option("CHECKPOINT", options_.ids, "The checkpoints to delete, instead of rules");
        AddRules(*command);
        AddPeriodRules(*command);
        AddChoice(*command);
        command->add_flag("--allow-remove-all", options_.allowRemoveAll, "Go on when the rules keep nothing");
        command->add_flag("-n,--dry-run", dryRun_, "Only say what would be kept, and why");
        command->add_flag("--prune", prune_, "Then delete what no checkpoint needs any more");
        AddMinAgeOption(*command, minAge_);
        return command;
    }

    [[nodiscard]] std::string DescribeInterruption() const override {
        return "Interrupted: the checkpoints that are still listed are whole.";
    }

    int Run(const SSettings& settings) override {
        CheckUse();
        options_.minAge = MinAgeOf(minAge_);
        CSetUpkeep upkeep(settings.repository, dryRun_ ? CSetUpkeep::EMode::look : CSetUpkeep::EMode::change);
        const SForgetPlan plan = PlanForget(upkeep, options_);
        if (settings.output == EOutput::text) {
            PrintTable(plan);
        }
        std::uint64_t troubles = 0;
        if (!dryRun_) {
            troubles = ExecuteForget(upkeep, plan, options_, TroublePrinter(settings.output));
        }
        PrintResult(settings.output, plan);
        const int pruned = prune_ ? Prune(upkeep, plan, settings.output) : exitDone;
        return troubles != 0 ? exitIncomplete : pruned;
    }

private:
    void AddRules(CLI::App& command) {
        command
            .add_option_function<std::string>(
                "-l,--keep-last", [this](const std::string& text) { options_.rules.last = ParseCount(text); },
                "Keep the newest N checkpoints (or 'unlimited', here and below)")
            ->type_name("N");
        command
            .add_option_function<std::string>(
                "--keep-within",
                [this](const std::string& text) { options_.rules.within.push_back(ParseDuration(text)); },
                "Keep all that are so much older than the newest at most: 1y6m, 2w, 36h")
            ->type_name("DURATION");
        command
            .add_option_function<std::vector<std::string>>(
                "--keep-tag", [this](const std::vector<std::string>& texts) { AddTags(texts, options_.rules.tags); },
                "Keep those with all these tags; may be given several times")
            ->type_name("TAG[,TAG...]")
            ->allow_extra_args(false);
    }

    void AddPeriodRules(CLI::App& command) {
        static const std::array<const char*, 5> options{"-H,--keep-hourly", "-d,--keep-daily", "-w,--keep-weekly",
                                                        "-m,--keep-monthly", "-y,--keep-yearly"};
        static const std::array<const char*, 5> nouns{"hours", "days", "weeks", "months", "years"};
        for (std::size_t i = 0; i < allPeriods.size(); ++i) {
            const EPeriod period = allPeriods[i];
            command
                .add_option_function<std::string>(
                    options[i],
                    [this, period](const std::string& text) { options_.rules.periods[period] = ParseCount(text); },
                    std::string("Keep the newest of each of the last N ") + nouns[i] + " that have one")
                ->type_name("N");
            command
                .add_option_function<std::string>(
                    std::string("--keep-within-") + retention::ToStr(period),
                    [this, period](const std::string& text) {
                        options_.rules.withinPeriods[period] = ParseDuration(text);
                    },
                    std::string("The same for all ") + nouns[i] + " so long before the newest checkpoint")
                ->type_name("DURATION");
        }
    }

    void AddChoice(CLI::App& command) {
        command
            .add_option_function<std::vector<std::string>>(
                "--tag",
                [this](const std::vector<std::string>& texts) {
                    for (const auto& text : texts) {
                        static_cast<void>(Split(text));
                        options_.filter.tags.push_back(text);
                    }
                },
                "Look only at checkpoints with all these tags; may be given several times")
            ->type_name("TAG[,TAG...]")
            ->allow_extra_args(false);
        command.add_option("--host", options_.filter.hosts, "Look only at checkpoints of this host; several times")
            ->type_name("HOST")
            ->allow_extra_args(false);
        command
            .add_option("--path", options_.filter.paths,
                        "Look only at checkpoints with a folder that holds this path or lies under it; several times")
            ->type_name("PATH")
            ->allow_extra_args(false);
        command
            .add_option_function<std::string>(
                "-g,--group-by", [this](const std::string& text) { SetGrouping(text); },
                "Apply the rules to each host, tags or paths by themselves")
            ->type_name("host,tags,paths");
    }

    static void AddTags(const std::vector<std::string>& texts, std::vector<std::vector<std::string>>& lists) {
        for (const auto& text : texts) {
            lists.push_back(Split(text));
        }
    }

    void SetGrouping(const std::string& text) {
        for (const auto& part : Split(text)) {
            if (part == "host") {
                options_.grouping.byHost = true;
            } else if (part == "tags") {
                options_.grouping.byTags = true;
            } else if (part == "paths") {
                options_.grouping.byPaths = true;
            } else {
                throw CLI::ValidationError("'" + part + "' is neither host, tags nor paths");
            }
        }
    }

    void CheckUse() const {
        if (options_.ids.empty() && options_.rules.IsEmpty() && !options_.allowRemoveAll) {
            throw CWrongUseExc("Say what to keep (--keep-last N, --keep-daily N, ...), or which checkpoints to forget");
        }
        if (!options_.ids.empty() && !options_.rules.IsEmpty()) {
            throw CWrongUseExc("Either name checkpoints or give rules, not both");
        }
    }

    void PrintTable(const SForgetPlan& plan) const {
        const std::string* group = nullptr;
        for (const auto& decision : plan.decisions) {
            if (group == nullptr || *group != decision.group) {
                if (!decision.group.empty()) {
                    PrintLine("For " + EscapePath(decision.group) + ":");
                }
                PrintLine("    ID  TIME                 HOST                    REASONS");
                group = &decision.group;
            }
            PrintRow(decision);
        }
    }

    static void PrintRow(const SForgetDecision& decision) {
        const auto& document = decision.checkpoint.document;
        std::array<char, 120> row{};
        std::snprintf(row.data(), row.size(), "%6lu  %s  %-14.14s  %-6s  ", decision.checkpoint.id,
                      retention::ToLocalText(document.started).c_str(), EscapePath(document.host).c_str(),
                      decision.keep ? "keep" : "remove");
        std::string reasons;
        for (const auto& reason : decision.reasons) {
            reasons += (reasons.empty() ? "" : "; ") + EscapePath(reason);
        }
        std::string line = row.data() + reasons;
        line.erase(line.find_last_not_of(' ') + 1);
        PrintLine(line);
    }

    void PrintResult(EOutput output, const SForgetPlan& plan) const {
        const auto kept = static_cast<std::uint64_t>(
            std::count_if(plan.decisions.begin(), plan.decisions.end(), [](const auto& d) { return d.keep; }));
        if (output == EOutput::json) {
            for (const auto& decision : plan.decisions) {
                PrintJson(ToJson(decision));
            }
            PrintJson({{"event", "forgotten"}, {"dryRun", dryRun_}, {"removed", plan.remove}, {"kept", kept}});
        } else if (output == EOutput::text) {
            PrintLine((dryRun_ ? "Would forget " : "Forgot ") + FormatCount(plan.remove.size(), "checkpoint") + ", " +
                      FormatCount(kept) + " kept");
        }
    }

    static nlohmann::json ToJson(const SForgetDecision& decision) {
        const auto& document = decision.checkpoint.document;
        nlohmann::json tags = nlohmann::json::array();
        for (const auto& tag : document.tags) {
            tags.push_back(EscapePath(tag));
        }
        nlohmann::json reasons = nlohmann::json::array();
        for (const auto& reason : decision.reasons) {
            reasons.push_back(EscapeText(reason));
        }
        return {{"event", "decision"},
                {"id", decision.checkpoint.id},
                {"started", ToIsoText(document.started)},
                {"host", EscapePath(document.host)},
                {"tags", tags},
                {"group", EscapePath(decision.group)},
                {"action", decision.keep ? "keep" : "remove"},
                {"reasons", reasons}};
    }

    int Prune(CSetUpkeep& upkeep, const SForgetPlan& plan, EOutput output) const {
        SPruneOptions options;
        options.minAge = options_.minAge;
        if (dryRun_) {
            options.without = {plan.remove.begin(), plan.remove.end()};
        }
        return PruneAndPrint(upkeep, options, dryRun_, output);
    }

    SForgetOptions options_;
    bool dryRun_ = false;
    bool prune_ = false;
    std::string minAge_;
};

}  // namespace

std::unique_ptr<ICommand> MakeForgetCommand() { return std::make_unique<CForgetCommand>(); }

}  // namespace agent
