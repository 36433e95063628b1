#include "agent/cli/OwnershipForms.h"

#include <nlohmann/json.hpp>

#include "agent/cli/Output.h"
#include "agent/retention/LocalTime.h"
#include "agent/run/SetDocument.h"

namespace agent {

namespace {

STime ToTime(std::chrono::system_clock::time_point time) { return {std::chrono::system_clock::to_time_t(time), 0}; }

nlohmann::json ToJson(const SSetSummary& set) {
    nlohmann::json value{{"name", EscapePath(set.name)}, {"damaged", set.isDamaged}, {"checkpoints", set.checkpoints}};
    if (set.lastCheckpoint != 0) {
        value["lastCheckpoint"] = set.lastCheckpoint;
        value["lastStored"] = ToIsoText(ToTime(set.lastTime));
    }
    return value;
}

}  // namespace

std::string ToText(const SCloudRepoIdentity& identity) {
    return identity.id.ToAStr() + "  " + EscapePath(identity.description.empty() ? "(no name)" : identity.description) +
           (identity.type.empty() ? "" : " (" + EscapePath(identity.type) + ")");
}

std::string ToText(const SSetSummary& set) {
    const std::string name = "set '" + EscapePath(set.name) + "': ";
    if (set.isDamaged) {
        return name + "cannot be read";
    }
    if (set.lastCheckpoint == 0) {
        return name + "no checkpoint yet";
    }
    return name + FormatCount(set.checkpoints, "checkpoint") + ", the last one " + std::to_string(set.lastCheckpoint) +
           " of " + retention::ToLocalText(ToTime(set.lastTime));
}

void PrintClient(const SClientSummary& client) {
    PrintLine(ToText(client.identity) + (client.isOwn ? ", this machine" : ""));
    for (const auto& set : client.sets) {
        PrintLine("  " + ToText(set));
    }
    if (client.sets.empty()) {
        PrintLine("  no sets");
    }
}

nlohmann::json ToJson(const SCloudRepoIdentity& identity) {
    return {{"id", identity.id.ToAStr()},
            {"type", EscapePath(identity.type)},
            {"description", EscapePath(identity.description)}};
}

nlohmann::json ToJson(const SClientSummary& client) {
    nlohmann::json value = ToJson(client.identity);
    value["event"] = "client";
    value["own"] = client.isOwn;
    value["sets"] = nlohmann::json::array();
    for (const auto& set : client.sets) {
        value["sets"].push_back(ToJson(set));
    }
    return value;
}

}  // namespace agent
