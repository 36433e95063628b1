#include "agent/cli/FilterOptions.h"

#include "agent/cli/Command.h"
#include "agent/look/TimeText.h"

namespace agent {

void CFilterOptions::AddTo(CLI::App& command) {
    command.add_option("--host", filter_.hosts, "Only checkpoints of this host (several times: of any of them)")
        ->type_name("NAME")
        ->take_all()
        ->expected(1);
    command.add_option("--tag", filter_.tags, "Only checkpoints with all these tags, separated by commas")
        ->type_name("TAG[,TAG...]")
        ->take_all()
        ->expected(1);
    command.add_option("--path", filter_.paths, "Only checkpoints with a folder that holds this path or lies under it")
        ->type_name("PATH")
        ->take_all()
        ->expected(1);
    command.add_option("--since", since_, "Only checkpoints from then on: 2026-11-21, 2026-11-21T08:15:00 (UTC)")
        ->type_name("TIME");
    command.add_option("--until", until_, "Only checkpoints up to then; a day counts whole")->type_name("TIME");
    command.add_option("--last", last_, "Of those the newest N")->type_name("N")->check([](const std::string& text) {
        return text == "0" || text.starts_with('-') ? "it must be 1 or more" : std::string();
    });
}

SCheckpointFilter CFilterOptions::MakeFilter() const {
    SCheckpointFilter filter = filter_;
    filter.since = TimeOption(since_, false);
    filter.until = TimeOption(until_, true);
    if (last_ != 0) {
        filter.last = last_;
    }
    return filter;
}

std::optional<STime> TimeOption(const std::string& text, bool isEnd) {
    if (text.empty()) {
        return std::nullopt;
    }
    try {
        return ParseTime(text, isEnd ? ETimeEnd::end : ETimeEnd::begin);
    } catch (const exc::CExc& failure) {
        throw CWrongUseExc(failure.GetMessage());
    }
}

}  // namespace agent
