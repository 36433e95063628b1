#pragma once

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>

#include "agent/cli/Output.h"
#include "agent/run/Progress.h"

namespace agent {

enum class EProgressMode { automatic, always, never };

/// Shows how far a run is: on a terminal a line that is written over, at most ten times a second, and taken away at the
/// end; elsewhere a line a minute; as JSON an event a second. To standard error, but for JSON. For one thread.
class CProgressPrinter {
public:
    using clock_t = std::chrono::steady_clock;
    enum class EForm { none, line, log, json };

    CProgressPrinter(EOutput output, EProgressMode mode);
    /// For tests: writes to `stream`, and asks `now` for the time; `width` in letters.
    CProgressPrinter(EForm form, std::FILE* stream, std::size_t width, std::function<clock_t::time_point()> now);
    CProgressPrinter(const CProgressPrinter&) = delete;
    CProgressPrinter& operator=(const CProgressPrinter&) = delete;
    ~CProgressPrinter() { Clear(); }

    void Tell(const SProgress& progress);
    /// Takes the line away; to be called before anything else is printed.
    void Clear();
    /// Prints troubles, the line being out of their way.
    [[nodiscard]] trouble_sink_t WrapTroubles(trouble_sink_t print);

private:
    void Print(const SProgress& progress, double seconds);

    const EForm form_;
    std::FILE* const stream_;
    const std::size_t width_;
    const std::function<clock_t::time_point()> now_;
    const clock_t::time_point begin_;
    clock_t::time_point next_;
    bool isShown_ = false;
};

/// "1,234 of 5,000 files, 1.2 GiB of 3.0 GiB, 120.0 MiB/s, 0:15 left, 2 errors".
[[nodiscard]] std::string FormatProgress(const SProgress& progress, double seconds);
/// "0:07", "12:34", "1:02:03".
[[nodiscard]] std::string FormatDuration(double seconds);

}  // namespace agent
