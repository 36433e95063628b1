#pragma once

#include <pthread.h>

#include <csignal>
#include <initializer_list>

namespace posix {

/// Holds back, in the thread that makes it and as long as it lives, the signals by which a user or the system ends or
/// stops a program.
///
/// A thread that is started meanwhile holds them back for good. So threads of a library never take them: they come to
/// the threads of the program, which knows what to do, or holds them back itself while a terminal is not as it was.
class held_signals_t {
public:
    held_signals_t() {
        const sigset_t held = Signals();
        ::pthread_sigmask(SIG_BLOCK, &held, &before_);
    }
    held_signals_t(const held_signals_t&) = delete;
    held_signals_t& operator=(const held_signals_t&) = delete;
    ~held_signals_t() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

    [[nodiscard]] static sigset_t Signals() {
        sigset_t signals;
        ::sigemptyset(&signals);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP}) {
            ::sigaddset(&signals, signal);
        }
        return signals;
    }

private:
    sigset_t before_{};
};

}  // namespace posix
