#pragma once

#include "agent/run/Repack.h"
#include "agent/run/SetUpkeep.h"
#include "agent/run/Trouble.h"

namespace agent {

/// Writes the blocks of the plan anew, with what is needed of them alone; nothing names them afterwards, and they are
/// the prune's to delete.
///
/// First the new blocks, then metadata that names them, then each checkpoint's document is replaced under its own
/// number: at any cut each checkpoint restores, by its old metadata or by its new. What a cut leaves over nothing
/// names. Nothing is deleted. What of a block cannot be read is told, and stays where it is. Throws exc::CRuntimeExc
/// when the set's checkpoints are no longer these.
void ExecuteRepack(CSetUpkeep& upkeep, const SRepackPlan& plan, const std::vector<std::uint64_t>& checkpoints,
                   const trouble_sink_t& onTrouble);

}  // namespace agent
