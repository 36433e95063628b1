#include "agent/cli/App.h"

#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <nlohmann/json.hpp>
#include <vector>

#include "agent/cli/Command.h"
#include "agent/cli/Failure.h"
#include "agent/cli/Output.h"
#include "common/logging.h"

namespace agent {

namespace {

struct SFlags {
    bool json = false;
    bool quiet = false;
    int verbose = 0;
};

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
    app.add_option("--repo", repository.location, "Where the repository is: dir:PATH, or a plain path")
        ->envname("CLOUDBACKUP_REPO")
        ->type_name("LOCATION");
    app.add_option("--repo-name", repository.repositoryName, "Which repository of that place")
        ->envname("CLOUDBACKUP_REPO_NAME")
        ->capture_default_str()
        ->type_name("NAME");
    app.add_option("--set", repository.set, "Which backup set of the client")
        ->envname("CLOUDBACKUP_SET")
        ->capture_default_str()
        ->type_name("NAME");
    app.add_option("--client", repository.client, "Whose backups to read, when they are not this machine's")
        ->type_name("ID");
    app.add_option("--state-dir", repository.stateFolder,
                   "Where the client's id and copies of metadata are kept on this machine\n"
                   "(default: $XDG_STATE_HOME/cloudbackup or ~/.local/state/cloudbackup)")
        ->envname("CLOUDBACKUP_STATE_DIR")
        ->type_name("DIR");
    app.add_flag("--json", flags.json, "Print results as JSON, one object a line");
    app.add_flag("-q,--quiet", flags.quiet, "Print nothing but troubles");
    app.add_flag("-v,--verbose", flags.verbose, "Say why something failed, with all causes; twice: log every step");
}

void ApplyFlags(const SFlags& flags, SSettings& settings) {
    if (settings.repository.location.empty()) {
        throw CLI::RequiredError("--repo (or CLOUDBACKUP_REPO)");
    }
    if (settings.repository.stateFolder.empty()) {
        settings.repository.stateFolder = CLocalState::DefaultFolder();
    }
    settings.output = flags.json ? EOutput::json : flags.quiet ? EOutput::quiet : EOutput::text;
    if (flags.verbose > 1) {
        logging::SetSink(logging::MakeStderrSink(logging::level_t::dbg));
    } else if (!flags.quiet) {
        logging::SetSink(logging::MakeStderrSink(logging::level_t::warn));
    }
}

void ReportFailure(const std::exception& failure, const SFlags& flags) {
    const std::string text = flags.verbose > 0 ? failure.what() : FailureText(failure);
    if (flags.json) {
        PrintJson({{"event", "failure"}, {"message", text}});
    }
    PrintTrouble(text);
}

}  // namespace

int RunApp(int argc, const char* const* argv) {
    CLI::App app("Keeps backups of folders in a repository and brings them back.", "cloudbackup");
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", "cloudbackup " CLOUDBACKUP_VERSION);
    app.footer("Exit codes: 0 done, 1 failed, 2 wrong use, 3 finished but some files could not be read.");

    SSettings settings;
    SFlags flags;
    AddGlobalOptions(app, settings, flags);

    std::vector<std::pair<CLI::App*, std::unique_ptr<ICommand>>> commands;
    for (auto make : {MakeInitCommand, MakeBackupCommand, MakeCheckpointsCommand, MakeLsCommand, MakeRestoreCommand}) {
        auto command = make();
        CLI::App* const parser = command->Register(app);
        commands.emplace_back(parser, std::move(command));
    }

    try {
        app.parse(argc, argv);
        ApplyFlags(flags, settings);
    } catch (const CLI::ParseError& failure) {
        if (failure.get_exit_code() == 0) {  // --help, --version
            return app.exit(failure);
        }
        PrintTrouble(std::string(failure.what()) + " (see 'cloudbackup --help')");
        return exitWrongUse;
    } catch (const std::exception& failure) {
        ReportFailure(failure, flags);
        return exitWrongUse;
    }

    RaiseOpenFilesLimit();
    try {
        for (const auto& [parser, command] : commands) {
            if (parser->parsed()) {
                return command->Run(settings);
            }
        }
    } catch (const std::exception& failure) {
        ReportFailure(failure, flags);
    }
    return exitFailed;
}

}  // namespace agent
