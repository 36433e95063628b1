#include "agent/cli/Completion.h"

#include <vector>

#include "agent/cli/Command.h"
#include "agent/cli/DefinitionForms.h"

namespace agent {

namespace {

std::string Join(const std::vector<std::string>& words, const char* separator) {
    std::string text;
    for (const auto& word : words) {
        text += (text.empty() ? "" : separator) + word;
    }
    return text;
}

/// What may follow in a command: its own commands and options, then those of the program.
std::vector<std::string> WordsOf(const CLI::App& app, const CLI::App* command) {
    std::vector<std::string> words;
    const auto add = [&](const CLI::App& of) {
        for (const CLI::App* sub : CommandsOf(of)) {
            words.push_back(sub->get_name());
        }
    };
    const auto addOptions = [&](const CLI::App& of) {
        for (const CLI::Option* option : NamedOptionsOf(of)) {
            words.push_back("--" + option->get_lnames().front());
        }
    };
    add(command == nullptr ? app : *command);
    if (command != nullptr) {
        addOptions(*command);
        for (const CLI::App* sub : CommandsOf(*command)) {
            addOptions(*sub);
        }
    }
    addOptions(app);
    return words;
}

std::vector<std::string> NamesOfCommands(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : CommandsOf(app)) {
        names.push_back(command->get_name());
    }
    return names;
}

std::string MakeBash(const CLI::App& app) {
    std::string text =
        "# Completes cloudbackup in bash.\n"
        "_cloudbackup() {\n"
        "    local current=${COMP_WORDS[COMP_CWORD]} command= words= word\n"
        "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
        "        case $word in\n"
        "            " +
        Join(NamesOfCommands(app), "|") +
        ") command=$word; break ;;\n"
        "        esac\n"
        "    done\n"
        "    case $command in\n"
        "        '') words='" +
        Join(WordsOf(app, nullptr), " ") + "' ;;\n";
    for (const CLI::App* command : CommandsOf(app)) {
        text += "        " + command->get_name() + ") words='" + Join(WordsOf(app, command), " ") + "' ;;\n";
    }
    return text +
           "    esac\n"
           "    local IFS=$'\\n'\n"
           "    COMPREPLY=($(compgen -W \"${words// /$'\\n'}\" -- \"$current\"))\n"
           "    if [[ $current != -* && -n $command ]]; then\n"
           "        COMPREPLY+=($(compgen -f -- \"$current\"))\n"
           "    fi\n"
           "}\n"
           "complete -o filenames -F _cloudbackup cloudbackup\n";
}

std::string MakeZsh(const CLI::App& app) {
    std::string text =
        "#compdef cloudbackup\n"
        "# Completes cloudbackup in zsh.\n"
        "_cloudbackup() {\n"
        "    local command= word\n"
        "    for word in ${words[2,CURRENT-1]}; do\n"
        "        case $word in\n"
        "            (" +
        Join(NamesOfCommands(app), "|") +
        ") command=$word; break ;;\n"
        "        esac\n"
        "    done\n"
        "    [[ $words[CURRENT] != -* && -n $command ]] && _files\n"
        "    case $command in\n"
        "        ('') compadd -- " +
        Join(WordsOf(app, nullptr), " ") + " ;;\n";
    for (const CLI::App* command : CommandsOf(app)) {
        text += "        (" + command->get_name() + ") compadd -- " + Join(WordsOf(app, command), " ") + " ;;\n";
    }
    return text +
           "    esac\n"
           "}\n"
           "# Loaded by its name it is asked at once; sourced, it is made known.\n"
           "if [[ $funcstack[1] == _cloudbackup ]]; then\n"
           "    _cloudbackup \"$@\"\n"
           "else\n"
           "    compdef _cloudbackup cloudbackup\n"
           "fi\n";
}

/// In single quotes, as fish reads them.
std::string Quote(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' || c == '\\' ? std::string("\\") + c : std::string(1, c == '\n' ? ' ' : c);
    }
    return quoted + "'";
}

std::string FishOptions(const CLI::App& app, const std::string& condition) {
    std::string text;
    for (const CLI::Option* option : NamedOptionsOf(app)) {
        text += "complete -c cloudbackup" + condition + " -l " + option->get_lnames().front();
        text += option->get_snames().empty() ? "" : " -s " + option->get_snames().front();
        text += option->get_expected_min() != 0 ? " -r" : "";
        text += " -d " + Quote(option->get_description()) + "\n";
    }
    return text;
}

std::string MakeFish(const CLI::App& app) {
    std::string text = "# Completes cloudbackup in fish.\n" + FishOptions(app, "");
    for (const CLI::App* command : CommandsOf(app)) {
        text += "complete -c cloudbackup -f -n __fish_use_subcommand -a " + command->get_name() + " -d " +
                Quote(command->get_description()) + "\n";
        const std::string condition = " -n '__fish_seen_subcommand_from " + command->get_name() + "'";
        text += FishOptions(*command, condition);
        for (const CLI::App* sub : CommandsOf(*command)) {
            text += "complete -c cloudbackup -f" + condition + " -a " + sub->get_name() + " -d " +
                    Quote(sub->get_description()) + "\n";
            text += FishOptions(*sub, condition);
        }
    }
    return text;
}

class CCompletionCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        app_ = &app;
        CLI::App* command = app.add_subcommand("completion", "Print a script that completes commands in a shell");
        command->add_option("SHELL", shell_, "bash, zsh or fish")
            ->required()
            ->check(CLI::IsMember({"bash", "zsh", "fish"}));
        return command;
    }
    [[nodiscard]] std::string DescribeInterruption() const override { return {}; }

    int Run(const SSettings&) override {
        std::fputs(MakeCompletion(*app_, shell_).c_str(), stdout);
        return exitDone;
    }
    [[nodiscard]] bool NeedsRepository() const override { return false; }

private:
    const CLI::App* app_ = nullptr;
    std::string shell_;
};

class CManualCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        app_ = &app;
        return app.add_subcommand("manual", "Print the manual page, for man(1): cloudbackup manual | man -l -");
    }
    [[nodiscard]] std::string DescribeInterruption() const override { return {}; }

    int Run(const SSettings&) override {
        std::fputs(MakeManPage(*app_, app_->version()).c_str(), stdout);
        return exitDone;
    }
    [[nodiscard]] bool NeedsRepository() const override { return false; }

private:
    const CLI::App* app_ = nullptr;
};

}  // namespace

std::string MakeCompletion(const CLI::App& app, const std::string& shell) {
    return shell == "bash" ? MakeBash(app) : shell == "zsh" ? MakeZsh(app) : MakeFish(app);
}

std::unique_ptr<ICommand> MakeCompletionCommand() { return std::make_unique<CCompletionCommand>(); }
std::unique_ptr<ICommand> MakeManualCommand() { return std::make_unique<CManualCommand>(); }

}  // namespace agent
