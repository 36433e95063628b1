#include "agent/cli/PruneForms.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "agent/retention/Policy.h"

namespace agent {

namespace {

nlohmann::json ToJson(const SObjectCount& count) { return {{"objects", count.objects}, {"bytes", count.bytes}}; }

std::string ToText(const SObjectCount& count, const std::string& noun) {
    return FormatCount(count.objects, noun) + ", " + FormatBytes(count.bytes);
}

void PrintPlan(const std::string& set, const SPrunePlan& plan, bool dryRun) {
    const std::string verb = dryRun ? "would remove " : "removed ";
    PrintLine("Set '" + set + "' with " + FormatCount(plan.checkpoints.size(), "checkpoint") + ":");
    PrintLine("  blocks: kept " + ToText(plan.blocksKept, "block") + "; " + verb + ToText(plan.blocksRemoved, "block"));
    PrintLine("  metadata: kept " + ToText(plan.metadataKept, "object") + "; " + verb +
              ToText(plan.metadataRemoved, "object"));
    if (plan.othersRemoved.objects != 0) {
        PrintLine("  among the blocks: " + verb + ToText(plan.othersRemoved, "object") + " that are no blocks");
    }
    if (plan.young.objects != 0) {
        PrintLine("  unused, but too young to go (--min-age): " + ToText(plan.young, "object"));
    }
    if (plan.unusedBytes != 0) {
        const double share = 100.0 * static_cast<double>(plan.unusedBytes) /
                             static_cast<double>(std::max<std::uint64_t>(plan.blocksKept.bytes, 1));
        char text[32];
        std::snprintf(text, sizeof(text), "%.1f %%", share);
        PrintLine("  unused in blocks that are kept for other content: " + FormatBytes(plan.unusedBytes) + " (" + text +
                  ")");
    }
}

nlohmann::json ToJson(const std::string& set, const SPrunePlan& plan, bool dryRun) {
    return {{"event", "pruned"},
            {"set", set},
            {"dryRun", dryRun},
            {"checkpoints", plan.checkpoints.size()},
            {"blocksKept", ToJson(plan.blocksKept)},
            {"blocksRemoved", ToJson(plan.blocksRemoved)},
            {"metadataKept", ToJson(plan.metadataKept)},
            {"metadataRemoved", ToJson(plan.metadataRemoved)},
            {"othersRemoved", ToJson(plan.othersRemoved)},
            {"tooYoung", ToJson(plan.young)},
            {"unusedBytes", plan.unusedBytes},
            {"missingBlocks", plan.missingBlocks}};
}

}  // namespace

std::chrono::seconds ParseAge(const std::string& text) {
    if (text.find_first_not_of('0') == std::string::npos && !text.empty()) {
        return std::chrono::seconds(0);
    }
    const auto age = retention::SDuration::FromText(text);
    return std::chrono::hours(age.hours) + std::chrono::hours(24) * (age.days + 30 * age.months + 365 * age.years);
}

void AddMinAgeOption(CLI::App& command, std::string& text) {
    command
        .add_option("--min-age", text,
                    "Leave what is younger alone: a run of the client may need it\n"
                    "(default: 0 for this machine's client, else 1d)")
        ->type_name("DURATION");
}

std::optional<std::chrono::seconds> MinAgeOf(const std::string& text) {
    if (text.empty()) {
        return std::nullopt;
    }
    try {
        return ParseAge(text);
    } catch (const exc::CRuntimeExc& failure) {
        throw CWrongUseExc("%1", failure.what());
    }
}

int PruneAndPrint(CSetUpkeep& upkeep, const SPruneOptions& options, bool dryRun, EOutput output) {
    const SPrunePlan plan = PlanPrune(upkeep, options, TroublePrinter(output));
    if (!dryRun) {
        ExecutePrune(upkeep, plan, options);
    }
    if (output == EOutput::json) {
        PrintJson(ToJson(upkeep.GetSet(), plan, dryRun));
    } else if (output == EOutput::text) {
        PrintPlan(upkeep.GetSet(), plan, dryRun);
    }
    return plan.missingBlocks == 0 ? exitDone : exitIncomplete;
}

}  // namespace agent
