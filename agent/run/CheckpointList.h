#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <vector>

#include "agent/run/OpenedRepository.h"
#include "agent/run/SetDocument.h"
#include "cloudbackuplib/CloudBackup.h"

namespace agent {

/// One checkpoint of a set, with all that its document says.
struct SCheckpointInfo {
    std::uint64_t id = 0;
    /// A long-term copy of it is kept.
    bool isLongTerm = false;
    SSetDocument document;
    /// Which metadata of which storages belongs to it.
    std::shared_ptr<const cloudbackuplib::backup::checkpoint::CCloudCheckpoint> checkpoint;
};

/// Is told of a checkpoint that cannot be read.
using unreadable_sink_t = std::function<void(std::uint64_t id, const std::exception& failure)>;

/// All checkpoints of the set by ascending ids, their documents read with as many downloads in flight as the store
/// allows. Changes nothing in the store. One that cannot be read is told to the sink and left out; without a sink it
/// ends the call with exc::CRuntimeExc.
[[nodiscard]] std::vector<SCheckpointInfo> ListCheckpoints(COpenedRepository& repository,
                                                           const cloudbackuplib::backup::CCloudBackup& cloudBackup,
                                                           const unreadable_sink_t& onUnreadable = {});
/// The same for the repository's set, opened for reading.
[[nodiscard]] std::vector<SCheckpointInfo> ListCheckpoints(COpenedRepository& repository,
                                                           const unreadable_sink_t& onUnreadable = {});

}  // namespace agent
