#pragma once

#include <string>

namespace agent {

/// Whether somebody sits at standard input.
[[nodiscard]] bool CanAsk();

/// Asks for a secret: prints the prompt to standard error and reads a line from the terminal, which does not show it.
///
/// The terminal is as before when this returns or throws, and before a signal (Ctrl-C, Ctrl-Z, a hang-up) takes effect;
/// a program that was stopped asks again when it goes on. Empty when nothing is entered. To be called in the program's
/// main thread, while all others hold these signals back, as those of the libraries do (posix::held_signals_t).
[[nodiscard]] std::string AskSecret(const std::string& prompt);

}  // namespace agent
