#include <filesystem>
#include <system_error>
#include <utility>

#include "agent/meta/BankWriter.h"
#include "agent/meta/FileExtent.h"
#include "agent/meta/MetaFile.h"
#include "agent/meta/MetaLimits.h"
#include "agent/meta/MetaSource.h"
#include "common/exc.h"
#include "common/logging.h"
#include "common/util.h"

namespace agent {

namespace {

const logging::section_t writerLog("agent.meta");

/// So many dead records are carried along before they are worth a rewrite.
constexpr std::uint64_t minDeadRecords = 4096;

bool IsRewriteDue(std::uint64_t live, std::uint64_t dead) { return dead > minDeadRecords && dead > live; }

/// Writes one new version. Used once.
class CMetaWriter {
public:
    CMetaWriter(const SMetaTarget& target, posix::posix_file_t& file, CMetaState& state)
        : target_(target), file_(file), state_(state) {
        header_.storageId = target.storageId;
        header_.version = target.version;
        if (target.key) {
            header_.keySetId = target.key->GetId();
            seal_.emplace(*target.key, target.storageId);
        }
    }

    SMetaLayout Write(SMetaChanges&& changes) {
        bool appended = false;
        if (target_.oldPath) {
            appended = Append(std::move(changes));
        } else {
            Apply(std::move(changes));
        }
        if (!appended) {
            Rewrite();
        }
        // The header comes last: a file that is cut off while it is written has none.
        file_.WriteAt(0, meta::SerializeHeader(header_));
        state_.SetOrigin(header_.sha256);
        return MakeLayout(!appended);
    }

private:
    /// Copies the old banks and puts the changes behind them. False when the file is to be rewritten instead; the state
    /// has the changes either way.
    bool Append(SMetaChanges&& changes) {
        CFileExtent oldFile(*target_.oldPath);
        const SMetaHeader old = meta::ReadWholeHeader(oldFile);
        CheckOld(old);
        header_.previousVersion = old.version;
        if (old.keySetId != header_.keySetId) {
            Apply(std::move(changes));
            return false;
        }
        CopyBanks(oldFile, old);
        meta::CBankWriter writer(file_, old.banks, seal_);
        writer.AddChanges(changes);
        writer.Finish();
        firstNew_ = old.banks.size();
        Apply(std::move(changes));
        header_.banks = writer.GetBanks();
        header_.deadRecords = old.CountLive() + old.deadRecords + writer.CountRecords() - header_.CountLive();
        return !writer.IsTableFull() && !IsRewriteDue(header_.CountLive(), header_.deadRecords);
    }

    void CheckOld(const SMetaHeader& old) const {
        if (!(old.storageId == target_.storageId)) {
            throw exc::CRuntimeExc("'%1' belongs to storage %2, not %3", *target_.oldPath, old.storageId,
                                   target_.storageId);
        }
        if (old.version >= target_.version) {
            throw exc::CRuntimeExc("version %1 cannot follow version %2", target_.version, old.version);
        }
        if (state_.GetOrigin() != old.sha256) {
            throw exc::CRuntimeExc("the state is not the one of '%1'", *target_.oldPath);
        }
    }

    /// The digests are checked on the way: damage is not carried along.
    void CopyBanks(CFileExtent& oldFile, const SMetaHeader& old) {
        for (const auto& bank : old.banks) {
            std::uint64_t offset = bank.offset;
            meta::ReadBankBytes(oldFile, bank, [&](std::span<const char> piece) {
                file_.WriteAt(offset, piece);
                offset += piece.size();
            });
        }
    }

    void Apply(SMetaChanges&& changes) {
        state_.Apply(std::move(changes));
        usage_ = state_.Check();
        header_.streamEnd = state_.GetStreamEnd();
        header_.entries = state_.GetEntries().size();
        header_.chunks = usage_.chunkCount;
        header_.blocks = usage_.blockCount;
        state_.DropUnusedChunks(usage_);
        usage_.chunks.assign(state_.GetChunks().size(), true);
    }

    void Rewrite() {
        state_.Compact(usage_);
        file_.Truncate(0);
        meta::CBankWriter writer(file_, {}, seal_);
        writer.AddAll(state_);
        writer.Finish();
        if (writer.IsTableFull()) {
            throw exc::CRuntimeExc("%1 records are more than one file can hold", writer.CountRecords());
        }
        header_.banks = writer.GetBanks();
        header_.deadRecords = 0;
        firstNew_ = 0;
    }

    [[nodiscard]] SMetaLayout MakeLayout(bool isRewritten) const {
        SMetaLayout layout{header_.version, meta::headerSize, {}, isRewritten};
        for (std::size_t i = 0; i < header_.banks.size(); ++i) {
            layout.banks.push_back({header_.banks[i].offset, header_.banks[i].storedSize, i >= firstNew_});
        }
        writerLog.Tr("Metadata version %1: %2 banks, %3 of them new, %4 live records, %5 dead", header_.version,
                     layout.banks.size(), layout.banks.size() - firstNew_, header_.CountLive(), header_.deadRecords);
        return layout;
    }

    const SMetaTarget& target_;
    posix::posix_file_t& file_;
    CMetaState& state_;
    SMetaHeader header_;
    std::optional<meta::SBankSeal> seal_;
    SMetaUsage usage_;
    std::size_t firstNew_ = 0;
};

void CheckTarget(const SMetaTarget& target) {
    if (target.version == 0) {
        throw exc::CRuntimeExc("version 0 stands for no version");
    }
    // The old file would be emptied before it is read. (What cannot be looked at is no file yet.)
    std::error_code ignored;
    if (target.oldPath && std::filesystem::equivalent(*target.oldPath, target.newPath, ignored)) {
        throw exc::CRuntimeExc("it is the old file");
    }
}

SMetaLayout WriteFile(const SMetaTarget& target, CMetaState& state, SMetaChanges&& changes) {
    auto file = posix::posix_file_t::OpenOrCreate4Write(target.newPath, false, 0);
    try {
        file.Truncate(0);
        return CMetaWriter(target, file, state).Write(std::move(changes));
    } catch (...) {
        try {
            util::fs_file_delete(target.newPath);
        } catch (const exc::CExc& failure) {
            writerLog.Warn("Unfinished metadata file stays: %1", failure.what());
        }
        throw;
    }
}

}  // namespace

SMetaLayout WriteMeta(const SMetaTarget& target, CMetaState& state, SMetaChanges changes) {
    try {
        CheckTarget(target);
        return WriteFile(target, state, std::move(changes));
    } catch (const exc::CExc& failure) {
        exc::RegenTraceExc(failure, "Cannot write metadata file '%1'", target.newPath);
    }
}

SPartsMaps MakePartsMaps(const SMetaLayout& layout) {
    SPartsMaps maps;
    for (const auto& bank : layout.banks) {
        cloudbackuplib::backup::SMetaLocationDescr part;
        part.Size = bank.size;
        part.SkipUnlessUpdated = true;
        maps.metaParts.emplace(bank.offset, part);
        if (bank.isNew) {
            maps.updatedParts.emplace(bank.offset, part);
        }
    }
    return maps;
}

}  // namespace agent
