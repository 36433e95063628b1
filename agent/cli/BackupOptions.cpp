#include "agent/cli/BackupOptions.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "agent/cli/Command.h"
#include "common/exc.h"
#include "common/posix.h"

namespace agent {

namespace {

/// Adds an option that is given once for each of its values.
CLI::Option* AddRepeated(CLI::App& command, const std::string& name, std::vector<std::string>& values,
                         const std::string& text, const std::string& type) {
    return command.add_option(name, values, text)->allow_extra_args(false)->type_name(type);
}

/// A whole file; "-" is standard input.
std::string ReadWhole(const std::string& path) {
    auto file = path == "-" ? posix::posix_file_t::Open4Read("/dev/stdin") : posix::posix_file_t::Open4Read(path);
    std::string text;
    std::array<char, 65536> buffer{};
    for (std::size_t size = file.Read(buffer.data(), buffer.size()); size > 0;
         size = file.Read(buffer.data(), buffer.size())) {
        text.append(buffer.data(), size);
    }
    return text;
}

std::vector<std::string> PathsOf(const std::string& text, char end) {
    std::vector<std::string> paths;
    for (auto line : SplitLines(text, end)) {
        if (end == '\n' && line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        if (!line.empty()) {
            paths.emplace_back(line);
        }
    }
    return paths;
}

SMarker ParseMarker(const std::string& text) {
    const auto colon = text.find(':');
    SMarker marker{text.substr(0, colon), colon == std::string::npos ? "" : text.substr(colon + 1)};
    if (marker.name.empty() || marker.name.find('/') != std::string::npos) {
        throw CWrongUseExc("--exclude-if-present takes a file's name, NAME or NAME:HEADER, not '%1'", text);
    }
    return marker;
}

}  // namespace

void CBackupOptions::AddTo(CLI::App& command) {
    command_ = &command;
    AddSources(command);
    AddSelection(command);
    AddDescription(command);
    AddReading(command);
}

void CBackupOptions::AddSources(CLI::App& command) {
    command.add_option("PATH", sources_, "What to back up: folders and files, each a root of its own");
    AddRepeated(command, "--files-from", filesFrom_,
                "Back up what the file lists, one path a line ('-': standard input); all under one root '/'", "FILE");
    AddRepeated(command, "--files-from0", filesFrom0_, "The same, with a NUL behind each path", "FILE");
    command.add_flag("--stdin", stdin_, "Back standard input up as one file");
    command.add_option("--stdin-filename", stdinName_, "The root that what comes in is kept as")
        ->capture_default_str()
        ->type_name("NAME");
    command
        .add_option("--stdin-command", stdinCommand_,
                    "Back up what this command writes; nothing is saved when it fails")
        ->type_name("COMMAND");
    AddRepeated(command, "--drop-root", droppedRoots_,
                "Leave a root of the last checkpoint out of this and later ones (those not named are carried on)",
                "PATH");
}

void CBackupOptions::AddRule(CLI::App& command, ERule rule, const std::string& name, const std::string& text,
                             const std::string& type) {
    CLI::Option* option = command.add_option(name, text)->type_name(type);
    option->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args(false);
    rules_.emplace_back(option, rule);
}

void CBackupOptions::AddSelection(CLI::App& command) {
    AddRule(command, ERule::exclude, "--exclude,-e",
            "Leave out what matches, as in .gitignore; of several the last decides", "PATTERN");
    AddRule(command, ERule::iexclude, "--iexclude", "The same, whatever the case of letters", "PATTERN");
    AddRule(command, ERule::include, "--include", "Take back what an --exclude before it leaves out", "PATTERN");
    AddRule(command, ERule::excludeFile, "--exclude-file", "The file's lines are patterns, as in .gitignore", "FILE");
    AddRepeated(command, "--exclude-if-present", markers_,
                "Leave out the content of folders that hold such a file (which begins with HEADER)", "NAME[:HEADER]");
    command.add_flag("--exclude-caches", excludeCaches_, "Leave out the content of folders marked by a CACHEDIR.TAG");
    AddRepeated(command, "--ignore-file", ignoreFiles_,
                "Files of this name, .gitignore say, hold patterns for the folders where they lie", "NAME");
    largestFileOption_ = command.add_option("--exclude-larger-than", largestFile_, "Leave out larger files: 500K, 2G")
                             ->transform(CLI::AsSizeValue(false))
                             ->type_name("SIZE");
    command.add_flag("-x,--one-file-system", oneFileSystem_, "Keep folders on which others are mounted empty");
}

void CBackupOptions::AddDescription(CLI::App& command) {
    command.add_option("--host", host_, "The machine that the checkpoint names (default: this one)")->type_name("NAME");
    AddRepeated(command, "--tag", tags_, "A tag, or several with commas between, for the checkpoint", "TAG");
    command.add_option("--description", description_, "A line that says what the checkpoint is")->type_name("TEXT");
    command.add_flag("--long-term", longTerm_,
                     "Keep the checkpoint for the long term: rules of 'forget' leave it alone");
}

void CBackupOptions::AddReading(CLI::App& command) {
    command.add_flag("--force", force_, "Read all files, also those that show no change");
    command.add_flag("--ignore-ctime", ignoreCtime_, "A new ctime alone is no change (for network file systems)");
    command.add_flag("--ignore-inode", ignoreInode_,
                     "A new inode number alone is no change (for network file systems)");
    command.add_flag("--accept-older-state", acceptOlderState_,
                     "Go on although the store has not the last checkpoint that was made here");
    command.add_flag("-n,--dry-run", dryRun_, "Say what would be added, changed and removed; write nothing");
}

SBackupOptions CBackupOptions::Make() const {
    SBackupOptions options;
    options.sources = sources_;
    options.listed = ReadLists();
    options.droppedRoots = droppedRoots_;
    options.selection = MakeSelection();
    options.host = host_;
    options.programVersion = "cloudbackup " CLOUDBACKUP_VERSION;
    options.tags = MakeTags();
    options.description = description_;
    options.longTerm = longTerm_;
    options.signs = {ignoreCtime_, ignoreInode_};
    options.force = force_;
    options.acceptOlderState = acceptOlderState_;
    options.dryRun = dryRun_;
    AddInput(options);
    CheckUse(options);
    return options;
}

void CBackupOptions::CheckUse(const SBackupOptions& options) const {
    const bool reads = !sources_.empty() || !filesFrom_.empty() || !filesFrom0_.empty() || options.input;
    if (!reads && droppedRoots_.empty()) {
        throw CWrongUseExc("Say what to back up: paths, --files-from, --stdin or --stdin-command");
    }
    if (dryRun_ && options.input) {
        throw CWrongUseExc("A dry run reads nothing: it does not go with --stdin or --stdin-command");
    }
    const bool listsStdin = std::count(filesFrom_.begin(), filesFrom_.end(), "-") +
                                std::count(filesFrom0_.begin(), filesFrom0_.end(), "-") + (stdin_ ? 1 : 0) >
                            1;
    if (listsStdin) {
        throw CWrongUseExc("Standard input can be read only once");
    }
    try {
        CheckPatterns(options.selection);
    } catch (const exc::CRuntimeExc& failure) {
        throw CWrongUseExc("%1", failure.what());
    }
}

void CBackupOptions::AddInput(SBackupOptions& options) const {
    if (!stdin_ && stdinCommand_.empty()) {
        return;
    }
    if (stdin_ && !stdinCommand_.empty()) {
        throw CWrongUseExc("--stdin and --stdin-command exclude each other");
    }
    const std::string path = stdinName_.starts_with('/') ? stdinName_ : "/" + stdinName_;
    if (path.ends_with('/') || path.find("//") != std::string::npos) {
        throw CWrongUseExc("--stdin-filename takes a file's name or path, not '%1'", stdinName_);
    }
    options.input = SInputOptions{path, 0, stdinCommand_};
}

std::vector<std::string> CBackupOptions::ReadLists() const {
    std::vector<std::string> paths;
    for (const auto& [files, end] : {std::pair(&filesFrom_, '\n'), std::pair(&filesFrom0_, '\0')}) {
        for (const auto& file : *files) {
            const auto listed = PathsOf(ReadWhole(file), end);
            if (listed.empty()) {
                throw exc::CRuntimeExc("'%1' lists nothing to back up", file);
            }
            paths.insert(paths.end(), listed.begin(), listed.end());
        }
    }
    return paths;
}

std::vector<std::string> CBackupOptions::MakeTags() const {
    std::vector<std::string> tags;
    for (const auto& list : tags_) {
        const std::string closed = list + ",";
        for (const auto tag : SplitLines(closed, ',')) {
            if (tag.empty()) {
                throw CWrongUseExc("'%1' has an empty tag", list);
            }
            if (std::find(tags.begin(), tags.end(), tag) == tags.end()) {
                tags.emplace_back(tag);
            }
        }
    }
    return tags;
}

/// As they stand on the command line; what comes from elsewhere (a configuration) goes before.
std::vector<std::pair<CBackupOptions::ERule, std::string>> CBackupOptions::RulesInOrder() const {
    std::map<const CLI::Option*, std::size_t> onCommandLine;
    for (const auto* option : command_->parse_order()) {
        ++onCommandLine[option];
    }
    std::vector<std::pair<ERule, std::string>> rules;
    std::map<const CLI::Option*, std::pair<ERule, std::size_t>> next;
    for (const auto& [option, rule] : rules_) {
        const auto& values = option->results();
        const std::size_t elsewhere = values.size() - std::min(values.size(), onCommandLine[option]);
        for (std::size_t i = 0; i < elsewhere; ++i) {
            rules.emplace_back(rule, values[i]);
        }
        next[option] = {rule, elsewhere};
    }
    for (const auto* option : command_->parse_order()) {
        if (const auto found = next.find(option); found != next.end()) {
            auto& [rule, index] = found->second;
            rules.emplace_back(rule, option->results().at(index++));
        }
    }
    return rules;
}

SSelection CBackupOptions::MakeSelection() const {
    SSelection selection;
    selection.ignoreFiles = ignoreFiles_;
    for (const auto& [rule, text] : RulesInOrder()) {
        if (rule == ERule::excludeFile) {
            const std::string lines = ReadWhole(text);
            for (const auto line : SplitLines(WithoutByteOrderMark(lines))) {
                if (CPattern::Parse(line)) {
                    selection.patterns.push_back({std::string(line), false, ECase::exact});
                }
            }
            continue;
        }
        if (rule == ERule::include && selection.patterns.empty() && ignoreFiles_.empty()) {
            throw CWrongUseExc(
                "--include takes back what an --exclude before it leaves out, and none stands before '%1'", text);
        }
        selection.patterns.push_back(
            {text, rule == ERule::include, rule == ERule::iexclude ? ECase::ignored : ECase::exact});
    }
    for (const auto& marker : markers_) {
        selection.markers.push_back(ParseMarker(marker));
    }
    if (excludeCaches_) {
        selection.markers.push_back(CacheMarker());
    }
    selection.oneFileSystem = oneFileSystem_;
    if (largestFileOption_->count() > 0) {
        selection.largestFile = largestFile_;
    }
    return selection;
}

}  // namespace agent
