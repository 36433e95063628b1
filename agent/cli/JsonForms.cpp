#include "agent/cli/JsonForms.h"

namespace agent {

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
    return {{"event", "checkpoint"},
            {"id", id},
            {"host", EscapePath(document.host)},
            {"started", ToIsoText(document.started)},
            {"finished", ToIsoText(document.finished)},
            {"roots", roots}};
}

}  // namespace agent
