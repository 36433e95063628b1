#include "agent/cli/PasswordOptions.h"

#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>

#include "agent/cli/Command.h"
#include "agent/cli/Prompt.h"
#include "agent/cli/Secrets.h"
#include "clients/registry/Environment.h"
#include "common/posix.h"

namespace agent {

namespace {

constexpr std::size_t longestPassword = 1U << 16U;

crypto::sec_bytes_t Keep(std::string&& password) {
    crypto::sec_bytes_t kept(password.begin(), password.end());
    util::SecureErase(password.data(), password.size());
    return kept;
}

/// The first line that a command prints.
std::string RunPasswordCommand(const std::string& command) {
    struct SClose {
        void operator()(std::FILE* pipe) const { static_cast<void>(::pclose(pipe)); }
    };
    std::unique_ptr<std::FILE, SClose> pipe(::popen(command.c_str(), "re"));
    if (!pipe) {
        throw posix::CPosixExc("run", "password command", errno);
    }
    std::string text;
    std::array<char, 512> buffer{};
    while (text.size() < longestPassword && std::fgets(buffer.data(), buffer.size(), pipe.get()) != nullptr) {
        text += buffer.data();
    }
    util::SecureErase(buffer.data(), buffer.size());
    const int status = ::pclose(pipe.release());
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw exc::CRuntimeExc("The password command '%1' failed", command);
    }
    text.resize(std::min(text.find_first_of("\r\n"), text.size()));
    if (text.empty()) {
        throw exc::CRuntimeExc("The password command '%1' printed no password", command);
    }
    return text;
}

std::string AskTwice(const std::string& what) {
    std::string password = AskSecret("Enter the " + what + ": ");
    std::string again = AskSecret("Enter it again: ");
    if (password != again) {
        throw CWrongUseExc("The two passwords are not the same");
    }
    util::SecureErase(again.data(), again.size());
    return password;
}

bool IsGiven(const std::string& variable) { return !clients::ProcessEnvironment(variable).empty(); }

}  // namespace

void CPasswordOptions::Register(CLI::App& app, SKeyOptions& keys) {
    app.add_option("--password-file", file_,
                   "Where the password stands, in the first line\n(else: $CLOUDBACKUP_PASSWORD, or it is asked for)")
        ->envname("CLOUDBACKUP_PASSWORD_FILE")
        ->type_name("FILE");
    app.add_option("--password-command", command_, "What prints the password")
        ->envname("CLOUDBACKUP_PASSWORD_COMMAND")
        ->type_name("COMMAND");
    app.add_option("--recovery-file", keys.recoveryFile,
                   "Read with the keys of this file, made by 'key export',\ninstead of a password and the repository's "
                   "key records")
        ->envname("CLOUDBACKUP_RECOVERY_FILE")
        ->type_name("FILE");
    keys.password = [this](EPasswordUse use) { return Get(use); };
}

crypto::sec_bytes_t CPasswordOptions::Get(EPasswordUse use) {
    auto& known = known_[use == EPasswordUse::next];
    if (known.empty()) {
        known = Keep(Read(use));
        if (known.empty()) {
            throw CWrongUseExc("An empty password protects nothing");
        }
    }
    return known;
}

std::string CPasswordOptions::Read(EPasswordUse use) const {
    if (use == EPasswordUse::next) {
        const char* const variable = "CLOUDBACKUP_NEW_PASSWORD";
        if (!IsGiven(variable) && CanAsk()) {
            return AskTwice("new password");
        }
        return ReadSecret({"new password", "--new-password-file", {}, variable});
    }
    if (file_.empty() && !command_.empty()) {
        return RunPasswordCommand(command_);
    }
    const char* const variable = "CLOUDBACKUP_PASSWORD";
    if (use == EPasswordUse::first && file_.empty() && !IsGiven(variable) && CanAsk()) {
        return AskTwice("password that is to protect your backups");
    }
    return ReadSecret({"password", "--password-file", file_, variable});
}

void AddPasswordCostOptions(CLI::App& command, SPasswordCost& cost) {
    command
        .add_option("--key-memory", cost.memoryKib,
                    "KiB of memory that each use of the password takes, and each guess at it")
        ->envname("CLOUDBACKUP_KEY_MEMORY")
        ->check(CLI::Range(8, 4 << 20))
        ->capture_default_str()
        ->type_name("KIB");
    command.add_option("--key-passes", cost.passes, "How often that memory is gone through")
        ->envname("CLOUDBACKUP_KEY_PASSES")
        ->check(CLI::Range(1, 100))
        ->capture_default_str()
        ->type_name("N");
}

void AddFirstKeyOptions(CLI::App& command, SKeyOptions& keys) {
    command.add_flag("--no-encryption", keys.noEncryption,
                     "Do not encrypt this client's backups:\nwho can read the store can read the files");
    AddPasswordCostOptions(command, keys.cost);
}

}  // namespace agent
