#pragma once

namespace agent {

/// The whole program: reads the command line, runs the command, prints what failed. Returns the exit code.
int RunApp(int argc, const char* const* argv);

}  // namespace agent
