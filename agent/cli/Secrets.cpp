#include "agent/cli/Secrets.h"

#include <array>

#include "agent/cli/Command.h"
#include "agent/cli/Prompt.h"
#include "clients/registry/Environment.h"
#include "common/exc.h"
#include "common/posix.h"

namespace agent {

namespace {

constexpr std::size_t longestLine = 1U << 16U;

/// Also from a pipe, which has no size.
std::string ReadFirstLine(const std::string& path) {
    auto file = posix::posix_file_t::Open4Read(path);
    std::string line;
    std::array<char, 1> next{};
    while (file.Read(next.data(), next.size()) == 1 && next[0] != '\n') {
        line += next[0];
        if (line.size() > longestLine) {
            throw exc::CRuntimeExc("the first line is longer than %1 bytes", longestLine);
        }
    }
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    if (line.empty()) {
        throw exc::CRuntimeExc("the first line is empty");
    }
    return line;
}

std::string ReadFromFile(const SSecretSource& source) {
    try {
        return ReadFirstLine(source.file);
    } catch (const std::exception& failure) {
        exc::RegenTraceExc(failure, "Cannot read the %1 from '%2'", source.name, source.file);
    }
}

}  // namespace

std::string ReadSecret(const SSecretSource& source) {
    if (!source.file.empty()) {
        return ReadFromFile(source);
    }
    std::string secret = clients::ProcessEnvironment(source.variable);
    if (secret.empty() && CanAsk()) {
        secret = AskSecret("Enter the " + source.name + ": ");
    }
    if (secret.empty()) {
        throw CWrongUseExc("The %1 is missing: it comes from %2 FILE, from %3, or is asked for on a terminal",
                           source.name, source.fileOption, source.variable);
    }
    return secret;
}

}  // namespace agent
