#include <array>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/EntryForms.h"
#include "agent/look/StateDiff.h"
#include "agent/run/OpenedCheckpoint.h"
#include "agent/select/PathScope.h"

namespace agent {

namespace {

struct SChangeForm {
    const char* sign;
    const char* name;
};

constexpr std::array<SChangeForm, 4> changeForms{
    {{"+", "added"}, {"-", "removed"}, {"M", "modified"}, {"U", "attributes"}}};

const SChangeForm& FormOf(EDifference change) { return changeForms[static_cast<std::size_t>(change)]; }

class CDiffCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("diff", "Show what is different between two checkpoints");
        AddCheckpointArgument(*command, before_, "A");
        AddCheckpointArgument(*command, after_, "B");
        command->add_option("PATH", path_, "Only what lies at or under this path");
        command->add_flag("--metadata", showAttributes_,
                          "Name also what has only other owners, modes, times or extended attributes");
        return command;
    }

    int Run(const SSettings& settings) override {
        const std::string wanted = CleanPath(path_);
        output_ = settings.output;
        COpenedCheckpoint opened(settings.repository, before_);
        const std::uint64_t a = opened.GetId();
        const SSetDocument before = opened.GetDocument();
        opened.SwitchTo(after_);
        const std::uint64_t b = opened.GetId();
        const SSetDocument after = opened.GetDocument();
        for (const auto& root : before.roots) {
            CompareRoot(opened, wanted, a, &root, b, after.FindRoot(root.path));
        }
        for (const auto& root : after.roots) {
            if (before.FindRoot(root.path) == nullptr) {
                CompareRoot(opened, wanted, a, nullptr, b, &root);
            }
        }
        PrintTotals(a, b);
        return exitDone;
    }

private:
    struct STotal {
        std::uint64_t files = 0;
        std::uint64_t others = 0;
        std::uint64_t bytes = 0;
    };

    static CMetaState Load(COpenedCheckpoint& opened, std::uint64_t id, const SRoot* root) {
        if (root == nullptr) {
            return {};
        }
        opened.SwitchTo(std::to_string(id));
        return opened.LoadMetadata(*root);
    }

    void CompareRoot(COpenedCheckpoint& opened, const std::string& wanted, std::uint64_t a, const SRoot* before,
                     std::uint64_t b, const SRoot* after) {
        const std::string& rootPath = before != nullptr ? before->path : after->path;
        const auto begin = PathInRoot(rootPath, wanted);
        const bool isSame = before != nullptr && after != nullptr && before->storageId == after->storageId &&
                            before->headerSha256 == after->headerSha256;
        if (!begin || isSame) {
            return;
        }
        const CMetaState left = Load(opened, a, before);
        const CMetaState right = Load(opened, b, after);
        DiffStates(left, right, *begin, [&](const SDifference& difference) { Take(rootPath, difference); });
    }

    void Take(const std::string& root, const SDifference& difference) {
        const SEntry& entry = difference.after ? *difference.after : *difference.before;
        STotal& total = totals_[static_cast<std::size_t>(difference.change)];
        (entry.type == EEntryType::file ? total.files : total.others) += 1;
        total.bytes += entry.size;
        const bool isShown = difference.change != EDifference::attributes || showAttributes_;
        if (isShown && output_ == EOutput::json) {
            PrintJson(ToJson(root, difference, entry));
        } else if (isShown && output_ == EOutput::text) {
            PrintLine(ToText(root, difference, entry));
        }
    }

    std::string ToText(const std::string& root, const SDifference& difference, const SEntry& entry) const {
        std::string line = std::string(FormOf(difference.change).sign) + "    " +
                           EscapePath(FullPath(root, difference.path)) +
                           (entry.type == EEntryType::directory && !difference.path.empty() ? "/" : "");
        if (showAttributes_ && difference.before && difference.after) {
            std::string texts;
            for (const auto& text : DescribeAttributes(*difference.before, *difference.after)) {
                texts += (texts.empty() ? "" : ", ") + text;
            }
            line += texts.empty() ? "" : "  (" + texts + ")";
        }
        return line;
    }

    static nlohmann::json ToJson(const std::string& root, const SDifference& difference, const SEntry& entry) {
        nlohmann::json value{{"event", "difference"},
                             {"change", FormOf(difference.change).name},
                             {"path", EscapePath(FullPath(root, difference.path))},
                             {"type", TypeName(entry.type)}};
        if (difference.before) {
            value["sizeBefore"] = difference.before->size;
        }
        if (difference.after) {
            value["sizeAfter"] = difference.after->size;
        }
        if (difference.before && difference.after) {
            value["attributes"] = DescribeAttributes(*difference.before, *difference.after);
        }
        return value;
    }

    void PrintTotals(std::uint64_t a, std::uint64_t b) const {
        if (output_ == EOutput::json) {
            nlohmann::json value{{"event", "summary"}, {"before", a}, {"after", b}};
            for (std::size_t i = 0; i < totals_.size(); ++i) {
                value[changeForms[i].name] = {
                    {"files", totals_[i].files}, {"others", totals_[i].others}, {"bytes", totals_[i].bytes}};
            }
            PrintJson(value);
        } else if (output_ == EOutput::text) {
            PrintLine("Checkpoint " + std::to_string(a) + " to checkpoint " + std::to_string(b) + ":");
            for (std::size_t i = 0; i < totals_.size(); ++i) {
                const std::string name = i == 3 ? "attributes only" : changeForms[i].name;
                PrintLine("  " + name + ": " + FormatCount(totals_[i].files, "file") + " (" +
                          FormatBytes(totals_[i].bytes) + "), " + FormatCount(totals_[i].others) +
                          " folders and others");
            }
        }
    }

    std::string before_;
    std::string after_;
    std::string path_;
    bool showAttributes_ = false;
    EOutput output_ = EOutput::text;
    std::array<STotal, changeForms.size()> totals_;
};

}  // namespace

std::unique_ptr<ICommand> MakeDiffCommand() { return std::make_unique<CDiffCommand>(); }

}  // namespace agent
