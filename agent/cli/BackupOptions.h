#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "agent/run/BackupRun.h"

namespace agent {

/// What a user says of a backup run on the command line.
class CBackupOptions {
public:
    void AddTo(CLI::App& command);
    /// The run, to be asked for after the command line has been read. Reads the files that options name. Throws
    /// CWrongUseExc for what makes no sense, posix::CPosixExc for a file that cannot be read.
    [[nodiscard]] SBackupOptions Make() const;

private:
    /// One of the options that say what is left out: their order counts.
    enum class ERule { exclude, include, iexclude, excludeFile };

    void AddSelection(CLI::App& command);
    void AddSources(CLI::App& command);
    void AddDescription(CLI::App& command);
    void AddReading(CLI::App& command);
    void AddRule(CLI::App& command, ERule rule, const std::string& name, const std::string& text,
                 const std::string& type);

    [[nodiscard]] SSelection MakeSelection() const;
    [[nodiscard]] std::vector<std::pair<ERule, std::string>> RulesInOrder() const;
    [[nodiscard]] std::vector<std::string> ReadLists() const;
    [[nodiscard]] std::vector<std::string> MakeTags() const;
    void AddInput(SBackupOptions& options) const;
    void CheckUse(const SBackupOptions& options) const;

    CLI::App* command_ = nullptr;
    std::vector<std::pair<CLI::Option*, ERule>> rules_;

    std::vector<std::string> sources_;
    std::vector<std::string> filesFrom_;
    std::vector<std::string> filesFrom0_;
    bool stdin_ = false;
    std::string stdinName_ = "stdin";
    std::string stdinCommand_;
    std::vector<std::string> droppedRoots_;

    std::vector<std::string> markers_;
    bool excludeCaches_ = false;
    bool oneFileSystem_ = false;
    std::uint64_t largestFile_ = 0;
    CLI::Option* largestFileOption_ = nullptr;
    std::vector<std::string> ignoreFiles_;

    std::string host_;
    std::vector<std::string> tags_;
    std::string description_;
    bool longTerm_ = false;

    bool force_ = false;
    bool acceptOlderState_ = false;
    bool ignoreCtime_ = false;
    bool ignoreInode_ = false;
    bool dryRun_ = false;
};

}  // namespace agent
