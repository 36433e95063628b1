#include "agent/cli/App.h"

#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "agent/cli/Command.h"
#include "agent/cli/CommandLine.h"
#include "agent/cli/ConfigFile.h"
#include "agent/cli/Failure.h"
#include "agent/cli/HelpFormatter.h"
#include "agent/cli/Interrupt.h"
#include "agent/cli/Output.h"
#include "agent/cli/PasswordOptions.h"
#include "common/logging.h"

namespace agent {

namespace {

struct SFlags {
    bool json = false;
    bool quiet = false;
    int verbose = 0;
    std::string configFile;  // read before, since the others depend on it
};

const std::vector<std::pair<std::string, EProgressMode>> progressModes{
    {"auto", EProgressMode::automatic}, {"always", EProgressMode::always}, {"never", EProgressMode::never}};

/// A deep source keeps a folder open at each level.
void RaiseOpenFilesLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

void AddGlobalOptions(CLI::App& app, SSettings& settings, SFlags& flags) {
    auto& repository = settings.repository;
    app.add_option("--repo", repository.location,
                   "Where the repository is: dir:PATH or a plain path,\n"
                   "s3:https://HOST[:PORT]/BUCKET[/FOLDER], azure:CONTAINER[/FOLDER], or spec:FILE")
        ->envname("CLOUDBACKUP_REPO")
        ->type_name("LOCATION");
    app.add_option("--repo-name", repository.repositoryName,
                   "Which repository of that place\n(default: what a specification says, else cloudbackup)")
        ->envname("CLOUDBACKUP_REPO_NAME")
        ->type_name("NAME");
    app.add_option("--set", repository.set, "Which backup set of the client")
        ->envname("CLOUDBACKUP_SET")
        ->capture_default_str()
        ->type_name("NAME");
    app.add_option("--client", repository.client, "Whose backups to read, when they are not this machine's")
        ->envname("CLOUDBACKUP_CLIENT")
        ->type_name("ID");
    app.add_option("--state-dir", repository.stateFolder,
                   "Where the client's id and copies of metadata are kept on this machine\n"
                   "(default: $XDG_STATE_HOME/cloudbackup or ~/.local/state/cloudbackup)")
        ->envname("CLOUDBACKUP_STATE_DIR")
        ->type_name("DIR");
    app.add_option("--connections", repository.network.connections, "How many connections to a store at once")
        ->envname("CLOUDBACKUP_CONNECTIONS")
        ->check(CLI::Range(1, 256))
        ->capture_default_str()
        ->type_name("N");
    app.add_option("--limit-upload", repository.network.bytesPerSecondUp, "At most so many bytes a second up: 500K, 2M")
        ->envname("CLOUDBACKUP_LIMIT_UPLOAD")
        ->transform(CLI::AsSizeValue(false))
        ->type_name("BYTES");
    app.add_option("--limit-download", repository.network.bytesPerSecondDown, "The same for what comes down")
        ->envname("CLOUDBACKUP_LIMIT_DOWNLOAD")
        ->transform(CLI::AsSizeValue(false))
        ->type_name("BYTES");
    app.add_option("--timeout", repository.network.timeoutSeconds,
                   "Give a connection up on which next to nothing moves for so many seconds,\n"
                   "and try again what it was for")
        ->envname("CLOUDBACKUP_TIMEOUT")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str()
        ->type_name("SECONDS");
    app.add_option("--ca-file", repository.network.caFile, "Certificates to trust instead of the system's")
        ->envname("CLOUDBACKUP_CA_FILE")
        ->type_name("FILE");
    app.add_option("--threads", repository.threads,
                   "How many threads compress, encrypt and check, and write files; 0 for as many as the machine runs")
        ->envname("CLOUDBACKUP_THREADS")
        ->check(CLI::Range(0, 256))
        ->capture_default_str()
        ->type_name("N");
    SetChoices(app.add_option("--progress", settings.progress,
                              "Show how far a run is; auto: a line on a terminal, else one a minute"),
               progressModes)
        ->envname("CLOUDBACKUP_PROGRESS");
    app.add_flag("--json", flags.json, "Print results as JSON, one object a line")->envname("CLOUDBACKUP_JSON");
    app.add_flag("-q,--quiet", flags.quiet, "Print nothing but troubles")->envname("CLOUDBACKUP_QUIET");
    app.add_flag("-v,--verbose", flags.verbose, "Say why something failed, with all causes; twice: log every step")
        ->envname("CLOUDBACKUP_VERBOSE");
    app.add_option("--config", flags.configFile,
                   "Where these options may stand as well, one \"name = value\" a line\n"
                   "(default: $XDG_CONFIG_HOME/cloudbackup/config.toml or ~/.config/cloudbackup/config.toml)")
        ->envname("CLOUDBACKUP_CONFIG")
        ->type_name("FILE");
}

void CompleteRepository(SRepositoryOptions& repository) {
    if (repository.location.empty()) {
        throw CWrongUseExc("--repo (or CLOUDBACKUP_REPO) is required (see 'cloudbackup --help')");
    }
    if (repository.stateFolder.empty()) {
        repository.stateFolder = CLocalState::DefaultFolder();
    }
}

/// What is logged may hold texts of stores, and goes to a terminal.
class CEscapingSink : public logging::ISink {
public:
    explicit CEscapingSink(logging::level_t minimum) : inner_(logging::MakeStderrSink(minimum)) {}

    [[nodiscard]] bool IsEnabled(std::string_view section, logging::level_t level) const override {
        return inner_->IsEnabled(section, level);
    }
    void Write(const logging::SRecord& record) override {
        const std::string text = EscapeText(std::string(record.text));
        inner_->Write({record.section, record.level, record.kind, text});
    }

private:
    const std::shared_ptr<logging::ISink> inner_;
};

void ApplyFlags(const SFlags& flags, SSettings& settings) {
    settings.verbose = flags.verbose;
    settings.output = flags.json ? EOutput::json : flags.quiet ? EOutput::quiet : EOutput::text;
    if (flags.verbose > 1) {
        logging::SetSink(std::make_shared<CEscapingSink>(logging::level_t::dbg));
    } else if (!flags.quiet) {
        logging::SetSink(std::make_shared<CEscapingSink>(logging::level_t::warn));
    }
}

void ReportFailure(const std::exception& failure, const SFlags& flags) {
    const std::string text = flags.verbose > 0 ? failure.what() : FailureText(failure);
    if (flags.json) {
        PrintJson({{"event", "failure"}, {"message", EscapeText(text)}});
    }
    PrintTrouble(text);
}

void ReportInterruption(const SFlags& flags) {
    if (flags.json) {
        PrintJson({{"event", "interrupted"}, {"message", GetInterruptMessage()}});
    }
    PrintTrouble(GetInterruptMessage());
}

using commands_t = std::vector<std::pair<CLI::App*, std::unique_ptr<ICommand>>>;

commands_t RegisterCommands(CLI::App& app) {
    commands_t commands;
    for (auto make :
         {MakeInitCommand,        MakeBackupCommand,       MakeCheckpointsCommand, MakeLsCommand,    MakeFindCommand,
          MakeDiffCommand,        MakeCatCommand,          MakeStatsCommand,       MakeCheckCommand, MakeRepairCommand,
          MakeRestoreCommand,     MakeForgetCommand,       MakePruneCommand,       MakeKeepCommand,  MakeClientsCommand,
          MakeOwnerCommand,       MakeRepositoriesCommand, MakeDeleteCommand,      MakeKeyCommand,   MakeSpecCommand,
          MakeCheckClientCommand, MakeCompletionCommand,   MakeManualCommand}) {
        auto command = make();
        CLI::App* const parser = command->Register(app);
        commands.emplace_back(parser, std::move(command));
    }
    return commands;
}

/// The one that the user asks for; the command line has been read, and has exactly one.
ICommand& ChosenCommand(const commands_t& commands) {
    for (const auto& [parser, command] : commands) {
        if (parser->parsed()) {
            return *command;
        }
    }
    throw CLI::RequiredError("A subcommand");
}

int RunInterruptibly(ICommand& command, SSettings settings) {
    const std::string message = command.DescribeInterruption();
    if (message.empty()) {
        return command.Run(settings);
    }
    const CInterruptScope interrupt(message);
    settings.repository.wrapStore = MakeInterruptible;
    return command.Run(settings);
}

int RunCommand(ICommand& command, const SSettings& settings, const SFlags& flags) {
    try {
        return RunInterruptibly(command, settings);
    } catch (const CWrongUseExc& failure) {
        ReportFailure(failure, flags);
        return exitWrongUse;
    } catch (const CForeignClientExc& failure) {
        ReportFailure(failure, flags);
        return exitWrongUse;
    } catch (const std::exception& failure) {
        if (IsInterrupted()) {  // whatever failed since then, failed for that
            ReportInterruption(flags);
            return exitInterrupted;
        }
        ReportFailure(failure, flags);
        return exitFailed;
    }
}

/// What a run printed is its result: one that nobody got is no success.
int WithOutput(int code) {
    const bool isSuccess = code == exitDone || code == exitIncomplete;
    return isSuccess && !FinishOutput() ? exitFailed : code;
}

}  // namespace

int RunApp(int argc, const char* const* argv) {
    CLI::App app("Keeps backups of folders in a repository and brings them back.", "cloudbackup");
    app.formatter(std::make_shared<CHelpFormatter>());
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", "cloudbackup " CLOUDBACKUP_VERSION);
    app.footer(
        "Exit codes: 0 done, 1 failed, 2 wrong use, 3 finished but some files could not be read\n"
        "or restored, 130 interrupted.");

    SSettings settings;
    SFlags flags;
    CPasswordOptions passwords;
    AddGlobalOptions(app, settings, flags);
    passwords.Register(app, settings.repository.keys);

    const commands_t commands = RegisterCommands(app);
    FinishDefinition(app);
    ICommand* chosen = nullptr;
    try {
        const std::string configFile = GivenConfigFile(argc, argv);
        LoadConfigFile(app, configFile.empty() ? DefaultConfigFile() : configFile, !configFile.empty());
        const std::vector<std::string> words = GuardWords(argc, argv);
        ReadCommandVariables(app, words);
        ParseWords(app, words);
        chosen = &ChosenCommand(commands);
        if (chosen->NeedsRepository()) {
            CompleteRepository(settings.repository);
        }
        ApplyFlags(flags, settings);
    } catch (const CLI::ParseError& failure) {
        if (failure.get_exit_code() == 0) {  // --help, --version
            return WithOutput(app.exit(failure));
        }
        PrintTroubleLines(DescribeWrongUse(app, failure));
        return exitWrongUse;
    } catch (const std::exception& failure) {
        ReportFailure(failure, flags);
        return exitWrongUse;
    }

    RaiseOpenFilesLimit();
    return WithOutput(RunCommand(*chosen, settings, flags));
}

}  // namespace agent
