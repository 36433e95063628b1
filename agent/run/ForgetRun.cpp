#include "agent/run/ForgetRun.h"

#include <algorithm>
#include <map>
#include <set>

#include "common/exc.h"

namespace agent {

namespace backup = cloudbackuplib::backup;

namespace {

std::string Join(const std::vector<std::string>& texts) {
    std::string joined;
    for (const auto& text : texts) {
        joined += (joined.empty() ? "" : ", ") + text;
    }
    return joined;
}

std::string JoinIds(const std::vector<std::uint64_t>& ids) {
    std::vector<std::string> texts;
    for (const auto id : ids) {
        texts.push_back(std::to_string(id));
    }
    return Join(texts);
}

std::string GroupOf(const SSetDocument& document, const SGrouping& grouping) {
    std::vector<std::string> parts;
    if (grouping.byHost) {
        parts.push_back("host " + document.host);
    }
    if (grouping.byTags) {
        auto tags = document.tags;
        std::sort(tags.begin(), tags.end());
        parts.push_back(tags.empty() ? "no tags" : "tags " + Join(tags));
    }
    if (grouping.byPaths) {
        std::vector<std::string> paths;
        for (const auto& root : document.roots) {
            paths.push_back(root.path);
        }
        parts.push_back("paths " + Join(paths));
    }
    return Join(parts);
}

/// Where the last checkpoint that this machine made is to go, it is not to be missed: told before it goes, since behind
/// a deletion that was cut off the next backup would take the store for one that has lost it.
void ForgetLastMade(CSetUpkeep& upkeep, const std::vector<std::uint64_t>& remove) {
    const std::string& folder = upkeep.GetRepository().GetSetFolder();
    if (!std::binary_search(remove.begin(), remove.end(), ReadLastCheckpoint(folder))) {
        return;
    }
    std::uint64_t last = 0;
    for (const auto id : upkeep.GetBackup().EnumCheckpointsImpl(backup::CheckpointFilter::all)) {
        last = std::binary_search(remove.begin(), remove.end(), id) ? last : id;
    }
    WriteLastCheckpoint(folder, last);
}

/// Makes the plan of one forget.
class CForgetPlanner {
public:
    CForgetPlanner(CSetUpkeep& upkeep, const SForgetOptions& options) : upkeep_(upkeep), options_(options) {
        checkpoints_ = ListCheckpoints(upkeep.GetRepository(), upkeep.GetBackup(),
                                       [this](std::uint64_t id, const std::exception& failure) {
                                           unreadable_.emplace(id, exc::ChainText(failure));
                                       });
        for (const auto& checkpoint : checkpoints_) {
            ids_.insert(checkpoint.id);
        }
        for (const auto& [id, reason] : unreadable_) {
            ids_.insert(id);
        }
    }

    SForgetPlan Plan() {
        if (ids_.empty()) {
            throw exc::CRuntimeExc("Set '%1' has no checkpoint yet", upkeep_.GetSet());
        }
        options_.ids.empty() ? PlanByRules() : PlanByIds();
        std::sort(plan_.remove.begin(), plan_.remove.end());
        plan_.remove.erase(std::unique(plan_.remove.begin(), plan_.remove.end()), plan_.remove.end());
        CheckWhatRemains();
        return std::move(plan_);
    }

private:
    void PlanByIds() {
        const std::set<std::uint64_t> wanted(options_.ids.begin(), options_.ids.end());
        for (const auto id : wanted) {
            CheckMayGo(id);
            plan_.remove.push_back(id);
        }
        for (const auto& checkpoint : checkpoints_) {
            const bool remove = wanted.contains(checkpoint.id);
            plan_.decisions.insert(plan_.decisions.begin(),
                                   {checkpoint, "", !remove, {remove ? "named" : "not named"}});
        }
    }

    void CheckMayGo(std::uint64_t id) const {
        if (!ids_.contains(id)) {
            throw exc::CRuntimeExc("Set '%1' has no checkpoint %2; the last one is %3", upkeep_.GetSet(), id,
                                   *ids_.rbegin());
        }
        if (!upkeep_.GetRepository().IsOwnClient() && id == *ids_.rbegin()) {
            throw exc::CRuntimeExc(
                "Checkpoint %1 is the newest of the set: the client's next backup builds on it. Only its own machine "
                "may forget it",
                id);
        }
        for (const auto& checkpoint : checkpoints_) {
            if (checkpoint.id == id && checkpoint.isLongTerm) {
                throw exc::CRuntimeExc(
                    "Checkpoint %1 is kept for the long term: 'cloudbackup keep --remove %1' ends that", id);
            }
        }
    }

    void PlanByRules() {
        std::map<std::string, std::vector<const SCheckpointInfo*>> groups;
        for (const auto& checkpoint : checkpoints_) {
            if (Matches(options_.filter, checkpoint.document)) {
                groups[GroupOf(checkpoint.document, options_.grouping)].push_back(&checkpoint);
            }
        }
        for (const auto& [name, members] : groups) {
            PlanGroup(name, members);
        }
    }

    void PlanGroup(const std::string& name, const std::vector<const SCheckpointInfo*>& members) {
        std::map<std::uint64_t, const SCheckpointInfo*> byId;
        std::vector<retention::SItem> items;
        for (const auto* checkpoint : members) {
            byId[checkpoint->id] = checkpoint;
            items.push_back({checkpoint->id, checkpoint->document.started, checkpoint->document.tags});
        }
        const auto decisions = retention::Decide(options_.rules, std::move(items));
        const bool keepsNone = std::none_of(decisions.begin(), decisions.end(), [](const auto& d) { return d.keep; });
        if (keepsNone && !options_.allowRemoveAll) {
            throw exc::CRuntimeExc(
                "The rules keep none of the %1 checkpoint(s)%2 that they apply to; should all of them go, say so with "
                "--allow-remove-all",
                members.size(), name.empty() ? "" : " of " + name);
        }
        for (const auto& decision : decisions) {
            Take(name, *byId.at(decision.id), decision.reasons);
        }
    }

    void Take(const std::string& group, const SCheckpointInfo& checkpoint, std::vector<std::string> reasons) {
        if (checkpoint.isLongTerm) {
            reasons.emplace_back("long-term");
        }
        if (reasons.empty() && checkpoint.id == *ids_.rbegin()) {
            reasons.emplace_back("newest: the next backup builds on it");
        }
        const bool keep = !reasons.empty();
        if (!keep) {
            plan_.remove.push_back(checkpoint.id);
        }
        plan_.decisions.push_back({checkpoint, group, keep, std::move(reasons)});
    }

    /// The library deletes nothing while a remaining checkpoint cannot be read, and never a set's last one.
    void CheckWhatRemains() const {
        if (plan_.remove.empty()) {
            return;
        }
        if (plan_.remove.size() == ids_.size()) {
            throw exc::CRuntimeExc(
                "Checkpoint(s) %1 are all that set '%2' has, and a set keeps at least one: 'cloudbackup delete set %2' "
                "deletes it whole",
                JoinIds(plan_.remove), upkeep_.GetSet());
        }
        for (const auto& [id, reason] : unreadable_) {
            if (!std::binary_search(plan_.remove.begin(), plan_.remove.end(), id)) {
                throw exc::CRuntimeExc(
                    "Checkpoint %1 cannot be read, so nobody knows what it needs, and nothing is forgotten as long as "
                    "it is there ('cloudbackup forget %1' removes it): %2",
                    id, reason);
            }
        }
    }

    CSetUpkeep& upkeep_;
    const SForgetOptions& options_;
    std::vector<SCheckpointInfo> checkpoints_;
    std::map<std::uint64_t, std::string> unreadable_;
    std::set<std::uint64_t> ids_;
    SForgetPlan plan_;
};

}  // namespace

SForgetPlan PlanForget(CSetUpkeep& upkeep, const SForgetOptions& options) {
    return CForgetPlanner(upkeep, options).Plan();
}

std::uint64_t ExecuteForget(CSetUpkeep& upkeep, const SForgetPlan& plan, const SForgetOptions& options,
                            const trouble_sink_t& onTrouble) {
    if (plan.remove.empty()) {
        return 0;
    }
    upkeep.CheckClientIsGone(options.minAge.value_or(upkeep.DefaultMinAge()));
    ForgetLastMade(upkeep, plan.remove);
    upkeep.GetBackup().DeleteCheckpoints({plan.remove.begin(), plan.remove.end()});
    // A document that cannot be deleted is only logged there.
    const auto left = upkeep.GetBackup().EnumCheckpointsImpl(backup::CheckpointFilter::all);
    std::uint64_t troubles = 0;
    for (const auto id : plan.remove) {
        if (left.contains(id)) {
            ++troubles;
            onTrouble({"checkpoint " + std::to_string(id), "could not be deleted; forget it again"});
        }
    }
    return troubles;
}

}  // namespace agent
