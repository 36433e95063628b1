#include "agent/cli/Prompt.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>

#include "agent/cli/Interrupt.h"
#include "common/exc.h"
#include "common/posix.h"
#include "common/signals.h"
#include "common/util.h"

namespace agent {

namespace {

[[noreturn]] void ThrowErrno(const char* operation) { throw posix::CPosixExc(operation, "terminal", errno); }

/// Holds back the signals that would end or stop the program, until it is let go, and knows of them.
class CHeldSignals {
public:
    CHeldSignals() {
        const sigset_t held = posix::held_signals_t::Signals();
        arrivals_ = posix::fd_t(::signalfd(-1, &held, SFD_CLOEXEC));
        if (!arrivals_) {
            ThrowErrno("signalfd");
        }
    }

    /// Waits for input; false when one of the signals came first.
    [[nodiscard]] bool WaitForInput() const {
        std::array<pollfd, 2> sources{pollfd{arrivals_.Get(), POLLIN, 0}, pollfd{STDIN_FILENO, POLLIN, 0}};
        while (::poll(sources.data(), sources.size(), -1) < 0) {
            if (errno != EINTR) {
                ThrowErrno("poll");
            }
        }
        return sources[0].revents == 0;
    }

private:
    const posix::held_signals_t held_;
    posix::fd_t arrivals_;
};

/// Lets the terminal show nothing but the end of the line, until it is let go.
class CEchoOff {
public:
    CEchoOff() {
        if (::tcgetattr(STDIN_FILENO, &before_) != 0) {
            ThrowErrno("tcgetattr");
        }
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_lflag |= ICANON | ECHONL;
        if (::tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) != 0) {
            ThrowErrno("tcsetattr");
        }
    }
    CEchoOff(const CEchoOff&) = delete;
    CEchoOff& operator=(const CEchoOff&) = delete;
    ~CEchoOff() { ::tcsetattr(STDIN_FILENO, TCSADRAIN, &before_); }

private:
    termios before_{};
};

/// What there is of the line; empty at the end of the input.
std::string ReadPiece() {
    std::array<char, 4096> piece{};
    const ssize_t count = ::read(STDIN_FILENO, piece.data(), piece.size());
    if (count < 0) {
        ThrowErrno("read");
    }
    std::string text(piece.data(), static_cast<std::size_t>(count));
    util::SecureErase(piece.data(), piece.size());
    return text;
}

/// Nothing when a signal came in between.
std::optional<std::string> ReadLine(const CHeldSignals& signals) {
    std::string line;
    while (!line.ends_with('\n')) {
        if (!signals.WaitForInput()) {
            return std::nullopt;
        }
        const std::string piece = ReadPiece();
        if (piece.empty()) {
            return line;
        }
        line += piece;
    }
    line.pop_back();
    return line;
}

std::optional<std::string> TryToAsk(const std::string& prompt) {
    // In this order: the terminal is itself again before the signals come through.
    const CHeldSignals signals;
    const CEchoOff silence;
    std::fputs(prompt.c_str(), stderr);
    std::fflush(stderr);
    return ReadLine(signals);
}

}  // namespace

bool CanAsk() { return ::isatty(STDIN_FILENO) == 1; }

std::string AskSecret(const std::string& prompt) {
    std::optional<std::string> line;
    while (!line) {
        line = TryToAsk(prompt);
        if (!line && IsInterrupted()) {
            throw exc::CRuntimeExc("%1", GetInterruptMessage());
        }
    }
    return *line;
}

}  // namespace agent
