#pragma once

#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "agent/chunk/ChunkReader.h"
#include "agent/fs/RestoreTarget.h"
#include "agent/meta/MetaState.h"
#include "agent/run/RestorePlan.h"
#include "agent/run/Trouble.h"

namespace agent {

struct SRestoreStatistics {
    std::uint64_t files = 0;
    std::uint64_t folders = 0;
    std::uint64_t others = 0;
    std::uint64_t bytes = 0;
    std::uint64_t errors = 0;
};

/// Brings one source back under a folder of the target.
///
/// A file appears when it is whole, with its attributes. What cannot be restored is told to the trouble sink, and the
/// rest goes on. For one thread; state and target must outlive it.
class CSourceRestore : private IChunkSink {
public:
    /// `prefix` is the folder in the target that gets what lies in the root.
    CSourceRestore(const CMetaState& state, CRestoreTarget& target, std::string prefix, trouble_sink_t onTrouble);

    void Run(const SChunkSource& source);
    [[nodiscard]] const SRestoreStatistics& GetStatistics() const { return statistics_; }

private:
    [[nodiscard]] std::string TargetPath(const std::string& path) const;
    void MakeFolders();
    void RestoreContent(const SChunkSource& source);
    void OnChunk(std::size_t index, std::span<const char> plain) override;
    void OnDamagedChunk(std::size_t index, const std::exception& reason) override;
    void WritePiece(const SRestorePlan::SPiece& piece, std::span<const char> plain);
    void FinishFile(std::size_t index, STargetFile file);
    void GiveUp(std::size_t index, const std::string& reason);
    void RestoreEmptyFiles();
    void RestoreCopies();
    void RestoreOthers();
    void RestoreOther(const std::string& path, const SEntry& entry);
    void FinishFolders();
    void Trouble(const std::string& path, const std::string& reason);

    template <class Action>
    bool Try(const std::string& path, const Action& action);

    CRestoreTarget& target_;
    const std::string prefix_;
    const trouble_sink_t onTrouble_;
    SRestorePlan plan_;
    std::map<std::size_t, STargetFile> open_;
    std::vector<bool> failed_;    // by file
    std::vector<bool> finished_;  // by file
    SRestoreStatistics statistics_;
};

}  // namespace agent
