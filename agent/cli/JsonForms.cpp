#include "agent/cli/JsonForms.h"

#include "agent/cli/EntryForms.h"

namespace agent {

namespace {

nlohmann::json DocumentToJson(std::uint64_t id, const SSetDocument& document) {
    nlohmann::json tags = nlohmann::json::array();
    for (const auto& tag : document.tags) {
        tags.push_back(EscapePath(tag));
    }
    return {{"event", "checkpoint"},
            {"id", id},
            {"host", EscapePath(document.host)},
            {"user", EscapePath(document.user)},
            {"program", EscapePath(document.programVersion)},
            {"tags", tags},
            {"description", EscapePath(document.description)},
            {"started", ToIsoText(document.started)},
            {"finished", ToIsoText(document.finished)}};
}

}  // namespace

nlohmann::json StatisticsToJson(const SRootStatistics& statistics) {
    nlohmann::json value;
    for (const auto& [name, field] : StatisticsFields()) {
        value[name] = statistics.*field;
    }
    return value;
}

nlohmann::json CheckpointToJson(std::uint64_t id, const SSetDocument& document) {
    nlohmann::json roots = nlohmann::json::array();
    for (const auto& root : document.roots) {
        roots.push_back({{"path", EscapePath(root.path)},
                         {"storage", root.storageId.ToAStr()},
                         {"readByCheckpoint", root.checkpoint},
                         {"statistics", StatisticsToJson(root.statistics)}});
    }
    nlohmann::json value = DocumentToJson(id, document);
    value["roots"] = roots;
    return value;
}

nlohmann::json ChangeToJson(const char* word, const SChange& change) {
    return {{"event", "change"},
            {"change", word},
            {"path", EscapePath(change.path)},
            {"type", TypeName(change.type)},
            {"size", change.size}};
}

nlohmann::json DryRunToJson(const SSetDocument& document, std::uint64_t newBytes, std::uint64_t changedBytes,
                            std::uint64_t removedBytes) {
    nlohmann::json value = CheckpointToJson(0, document);
    value["event"] = "dryRun";
    value.erase("id");
    value["newBytes"] = newBytes;
    value["changedBytes"] = changedBytes;
    value["removedBytes"] = removedBytes;
    return value;
}

}  // namespace agent
