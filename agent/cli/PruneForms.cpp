#include "agent/cli/PruneForms.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "agent/retention/Policy.h"

namespace agent {

namespace {

nlohmann::json ToJson(const SObjectCount& count) { return {{"objects", count.objects}, {"bytes", count.bytes}}; }

std::string CountText(const SObjectCount& count, const std::string& noun) {
    return FormatCount(count.objects, noun) + ", " + FormatBytes(count.bytes);
}

nlohmann::json ToJson(const SRepackPlan& repack) {
    return {{"blocks", repack.blockCount},
            {"bytesMoved", repack.movedBytes},
            {"bytesFreed", repack.freedBytes},
            {"metadata", repack.versions.size()},
            {"checkpoints", repack.checkpoints.size()}};
}

void PrintRepack(const SRepackPlan& repack, bool dryRun) {
    if (!repack.IsEmpty()) {
        PrintLine("  written anew: " + std::string(dryRun ? "would read and write " : "read and wrote ") +
                  FormatBytes(repack.movedBytes) + " of " + FormatCount(repack.blockCount, "block") + ", which " +
                  (dryRun ? "would free " : "freed ") + FormatBytes(repack.freedBytes) + "; metadata of " +
                  FormatCount(repack.checkpoints.size(), "checkpoint"));
    }
}

void PrintPlan(const std::string& set, const SPrunePlan& plan, bool dryRun) {
    const std::string verb = dryRun ? "would remove " : "removed ";
    PrintLine("Set '" + set + "' with " + FormatCount(plan.checkpoints.size(), "checkpoint") + ":");
    PrintLine("  blocks: kept " + CountText(plan.blocksKept, "block") + "; " + verb +
              CountText(plan.blocksRemoved, "block"));
    PrintLine("  metadata: kept " + CountText(plan.metadataKept, "object") + "; " + verb +
              CountText(plan.metadataRemoved, "object"));
    if (plan.othersRemoved.objects != 0) {
        PrintLine("  among the blocks: " + verb + CountText(plan.othersRemoved, "object") + " that are no blocks");
    }
    if (plan.young.objects != 0) {
        PrintLine("  unused, but too young to go (--min-age): " + CountText(plan.young, "object"));
    }
    PrintRepack(plan.repack, dryRun);
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
            {"repacked", ToJson(plan.repack)},
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

void AddMinAgeOption(CLI::App& command, std::string& text, const std::string& description) {
    command
        .add_option("--min-age", text,
                    description +
                        "\n"
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

void AddMaxUnusedOption(CLI::App& command, std::string& text) {
    command
        .add_option("--max-unused", text,
                    "Write blocks anew when more than that of what is kept is waste in\n"
                    "blocks that are needed in part: 10%, 500M, 0, unlimited (default: 10%)")
        ->type_name("LIMIT");
}

SUnusedLimit MaxUnusedOf(const std::string& text) {
    try {
        return text.empty() ? SUnusedLimit() : SUnusedLimit::FromText(text);
    } catch (const exc::CRuntimeExc& failure) {
        throw CWrongUseExc("%1", failure.what());
    }
}

int PruneAndPrint(CSetUpkeep& upkeep, const SPruneOptions& options, bool dryRun, EOutput output) {
    std::uint64_t troubles = 0;
    const trouble_sink_t onTrouble = [&, print = TroublePrinter(output)](const STrouble& trouble) {
        ++troubles;
        print(trouble);
    };
    const SPrunePlan plan = dryRun ? PlanPrune(upkeep, options, onTrouble) : RunPrune(upkeep, options, onTrouble);
    if (output == EOutput::json) {
        PrintJson(ToJson(upkeep.GetSet(), plan, dryRun));
    } else if (output == EOutput::text) {
        PrintPlan(upkeep.GetSet(), plan, dryRun);
    }
    return troubles == 0 ? exitDone : exitIncomplete;
}

}  // namespace agent
