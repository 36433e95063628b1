#include "agent/cli/CheckForms.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/look/Versions.h"
#include "agent/run/SetDocument.h"

namespace agent {

namespace {

constexpr std::size_t mostFilesNamed = 10;

bool IsOf(const SFinding& finding, std::initializer_list<EDamage> kinds) {
    return std::find(kinds.begin(), kinds.end(), finding.damage) != kinds.end();
}

bool HasAny(const SCheckResult& result, std::initializer_list<EDamage> kinds) {
    return std::any_of(result.findings.begin(), result.findings.end(),
                       [&](const SFinding& finding) { return IsOf(finding, kinds); });
}

std::string StructureText(const SCheckResult& result) {
    const auto& c = result.counts;
    if (HasAny(result, {EDamage::checkpoint, EDamage::metadata, EDamage::blockMissing, EDamage::blockSize})) {
        return "Structure: damaged; what was named above is missing or cannot be read, the rest is there.";
    }
    return "Structure: sound. " + FormatCount(c.checkpoints, "checkpoint") + ", " +
           FormatCount(c.metadataObjects, "metadata object") + " and " + FormatCount(c.blocks, "block") +
           " are there with the sizes recorded, and all metadata is whole. This says nothing of the bytes in the "
           "blocks.";
}

std::string DigestText(const SCheckResult& result) {
    const auto& c = result.counts;
    if (HasAny(result, {EDamage::blockDigest})) {
        return "Digests: damaged; the blocks named above are not what was stored.";
    }
    if (c.digestsCompared == 0 && c.blocks != 0) {
        return "Digests: nothing proven. This store records no MD5 of its objects; use --read-data.";
    }
    return "Digests: sound. The MD5 that the store recorded is the name of " + FormatCount(c.digestsCompared) + " of " +
           FormatCount(c.blocks, "block") + ". This proves what the store received, not what it would send now.";
}

std::string DataText(const SCheckOptions& options, const SCheckResult& result) {
    const auto& c = result.counts;
    const std::string what = options.readData->ToText();
    if (HasAny(result, {EDamage::blockData})) {
        return "Data (" + what + "): damaged; the blocks named above do not give their content.";
    }
    return "Data (" + what + "): sound. " + FormatCount(c.blocksRead) + " of " + FormatCount(c.blocks, "block") +
           (c.blocksRead == 1 ? " was" : " were") + " read: " + FormatCount(c.chunksRead, "chunk") + " gave " +
           FormatBytes(c.bytesRead) + " with the right SHA-256." +
           (options.readData->IsAll() ? " All content can be restored." : " This says nothing of the other blocks.");
}

std::string UnneededText(const SCheckResult& result) {
    const auto& c = result.counts;
    return "Note: " + FormatCount(c.unneededObjects, "block object") + " of " + FormatBytes(c.unneededBytes) +
           " that no checkpoint needs, left by deleted checkpoints or a run that was cut off (or is under way): "
           "'prune' removes them.";
}

nlohmann::json CountsToJson(const SCheckCounts& c) {
    return {{"checkpoints", c.checkpoints},    {"metadataObjects", c.metadataObjects},
            {"versions", c.versions},          {"blocks", c.blocks},
            {"blockBytes", c.blockBytes},      {"digestsCompared", c.digestsCompared},
            {"blocksRead", c.blocksRead},      {"chunksRead", c.chunksRead},
            {"bytesRead", c.bytesRead},        {"unneededObjects", c.unneededObjects},
            {"unneededBytes", c.unneededBytes}};
}

}  // namespace

void CCheckOptions::AddTo(CLI::App& command) {
    command.add_flag("--digests", digests_,
                     "Compare each block's name with the MD5 that the store recorded; nothing is downloaded");
    readData_ = command
                    .add_option("--read-data", share_,
                                "Read the blocks, decode them and compare the SHA-256 of their content: all, or\n"
                                "--read-data=5% for a share, --read-data=2/7 for one of seven parts")
                    ->type_name("[SHARE]")
                    ->expected(0, 1);
    command.add_option("--seed", seed_, "Which blocks a share has (default: others each time)")->type_name("N");
}

SCheckOptions CCheckOptions::MakeOptions() const {
    SCheckOptions options;
    options.digests = digests_;
    if (readData_->count() != 0) {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        const std::uint64_t seed =
            seed_ != 0 ? seed_
                       : static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(now).count());
        try {
            options.readData = CBlockSample::FromText(share_, seed);
        } catch (const exc::CExc& failure) {
            throw CWrongUseExc(failure.GetMessage());
        }
    }
    return options;
}

std::string NameCheckpoints(const std::vector<std::uint64_t>& ids) {
    return (ids.size() == 1 ? "checkpoint " : "checkpoints ") + FormatIds(ids);
}

void PrintFinding(EOutput output, const SFinding& finding) {
    const std::vector<std::uint64_t> checkpoints(finding.checkpoints.begin(), finding.checkpoints.end());
    if (output == EOutput::json) {
        nlohmann::json files = nlohmann::json::array();
        for (const auto& file : finding.files) {
            files.push_back(EscapePath(file));
        }
        PrintJson({{"event", "finding"},
                   {"kind", ToStr(finding.damage)},
                   {"object", EscapePath(finding.object)},
                   {"reason", EscapeText(finding.reason)},
                   {"checkpoints", checkpoints},
                   {"files", files}});
        return;
    }
    PrintTrouble(std::string(ToStr(finding.damage)) + ": '" + EscapePath(finding.object) + "': " + finding.reason +
                 (checkpoints.empty() ? "" : " (" + NameCheckpoints(checkpoints) + ")"));
    std::size_t named = 0;
    for (const auto& file : finding.files) {
        if (++named > mostFilesNamed) {
            PrintTrouble("  and " + FormatCount(finding.files.size() - mostFilesNamed) + " more");
            break;
        }
        PrintTrouble("  affects " + EscapePath(file));
    }
}

void PrintCheck(EOutput output, const SCheckOptions& options, const SCheckResult& result) {
    std::vector<std::string> statements{StructureText(result)};
    if (options.digests) {
        statements.push_back(DigestText(result));
    }
    if (options.readData) {
        statements.push_back(DataText(options, result));
    }
    if (output == EOutput::json) {
        PrintJson({{"event", "checked"},
                   {"damaged", !result.findings.empty()},
                   {"findings", result.findings.size()},
                   {"statements", statements},
                   {"counts", CountsToJson(result.counts)}});
    } else if (output == EOutput::text) {
        for (const auto& statement : statements) {
            PrintLine(statement);
        }
        if (result.counts.unneededObjects != 0) {
            PrintLine(UnneededText(result));
        }
        if (!result.findings.empty()) {
            PrintLine(FormatCount(result.findings.size(), "object") +
                      " damaged. 'cloudbackup repair --dry-run' tells what can be done.");
        }
    }
}

}  // namespace agent
