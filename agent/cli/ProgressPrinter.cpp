#include "agent/cli/ProgressPrinter.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "agent/run/SetDocument.h"

namespace agent {

namespace {

using form_t = CProgressPrinter::EForm;

constexpr std::size_t usualWidth = 80;

form_t ChooseForm(EOutput output, EProgressMode mode) {
    if (output == EOutput::quiet || mode == EProgressMode::never) {
        return form_t::none;
    }
    if (output == EOutput::json) {
        return form_t::json;
    }
    return ::isatty(STDERR_FILENO) == 1 || mode == EProgressMode::always ? form_t::line : form_t::log;
}

std::size_t TerminalWidth() {
    winsize size{};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : usualWidth;
}

std::chrono::milliseconds IntervalOf(form_t form) {
    return std::chrono::milliseconds(form == form_t::line ? 100 : form == form_t::json ? 1000 : 60'000);
}

/// No more bytes than `size`, no letter cut in two; the end of the path says more than its begin.
std::string LastPart(const std::string& text, std::size_t size) {
    if (text.size() <= size) {
        return text;
    }
    if (size < 4) {
        return {};
    }
    std::size_t begin = text.size() - (size - 3);
    while (begin < text.size() && (static_cast<unsigned char>(text[begin]) & 0xC0U) == 0x80U) {
        ++begin;
    }
    return "..." + text.substr(begin);
}

double RateOf(const SProgress& progress, double seconds) {
    return seconds > 0 ? static_cast<double>(progress.bytesDone) / seconds : 0;
}

/// Nothing to say: less than 0.
double SecondsLeft(const SProgress& progress, double seconds) {
    const double rate = RateOf(progress, seconds);
    const bool isKnown = progress.totalsKnown && rate > 0 && progress.bytesTotal >= progress.bytesDone;
    return isKnown ? static_cast<double>(progress.bytesTotal - progress.bytesDone) / rate : -1;
}

nlohmann::json ToJson(const SProgress& progress, double seconds) {
    nlohmann::json value{{"event", "progress"},
                         {"path", EscapePath(progress.currentPath)},
                         {std::string(progress.thing) + "sDone", progress.filesDone},
                         {"bytesDone", progress.bytesDone},
                         {"errors", progress.errors},
                         {"seconds", seconds},
                         {"bytesPerSecond", static_cast<std::uint64_t>(RateOf(progress, seconds))}};
    if (progress.totalsKnown) {
        value[std::string(progress.thing) + "sTotal"] = progress.filesTotal;
        value["bytesTotal"] = progress.bytesTotal;
    }
    if (const double left = SecondsLeft(progress, seconds); left >= 0) {
        value["secondsLeft"] = left;
    }
    return value;
}

}  // namespace

std::string FormatDuration(double seconds) {
    const auto whole = static_cast<unsigned long>(std::clamp(seconds, 0.0, 1e9));
    char text[48];
    if (whole >= 3600) {
        std::snprintf(text, sizeof(text), "%lu:%02lu:%02lu", whole / 3600, whole / 60 % 60, whole % 60);
    } else {
        std::snprintf(text, sizeof(text), "%lu:%02lu", whole / 60, whole % 60);
    }
    return text;
}

std::string FormatProgress(const SProgress& progress, double seconds) {
    const bool known = progress.totalsKnown;
    std::string text =
        known ? FormatCount(progress.filesDone) + " of " + FormatCount(progress.filesTotal, std::string(progress.thing))
              : FormatCount(progress.filesDone, std::string(progress.thing));
    text += ", " + FormatBytes(progress.bytesDone);
    text += known ? " of " + FormatBytes(progress.bytesTotal) : "";
    text += ", " + FormatBytes(static_cast<std::uint64_t>(RateOf(progress, seconds))) + "/s";
    if (const double left = SecondsLeft(progress, seconds); left >= 0) {
        text += ", " + FormatDuration(left) + " left";
    }
    return progress.errors == 0 ? text : text + ", " + FormatCount(progress.errors, "error");
}

CProgressPrinter::CProgressPrinter(EOutput output, EProgressMode mode)
    : CProgressPrinter(ChooseForm(output, mode), output == EOutput::json ? stdout : stderr, TerminalWidth(),
                       clock_t::now) {}

CProgressPrinter::CProgressPrinter(EForm form, std::FILE* stream, std::size_t width,
                                   std::function<clock_t::time_point()> now)
    : form_(form),
      stream_(stream),
      width_(width),
      now_(std::move(now)),
      begin_(now_()),
      next_(begin_ + IntervalOf(form)) {}

void CProgressPrinter::Tell(const SProgress& progress) {
    if (form_ == EForm::none) {
        return;
    }
    const auto now = now_();
    if (now >= next_) {
        next_ = now + IntervalOf(form_);
        Print(progress, std::chrono::duration<double>(now - begin_).count());
    }
}

void CProgressPrinter::Print(const SProgress& progress, double seconds) {
    if (form_ == EForm::json) {
        std::fprintf(stream_, "%s\n", JsonLine(ToJson(progress, seconds)).c_str());
        std::fflush(stream_);
        return;
    }
    std::string text = FormatProgress(progress, seconds);
    if (form_ == EForm::log) {
        std::fprintf(stream_, "cloudbackup: %s\n", text.c_str());
        std::fflush(stream_);
        return;
    }
    if (text.size() + 3 < width_) {
        text += "  " + LastPart(EscapePath(progress.currentPath), width_ - text.size() - 3);
    }
    // To the line's begin, the text, and what is left of the one before is erased.
    std::fprintf(stream_, "\r%s\x1b[K", LastPart(text, width_ - 1).c_str());
    std::fflush(stream_);
    isShown_ = true;
}

void CProgressPrinter::Clear() {
    if (isShown_) {
        std::fputs("\r\x1b[K", stream_);
        std::fflush(stream_);
        isShown_ = false;
    }
}

trouble_sink_t CProgressPrinter::WrapTroubles(trouble_sink_t print) {
    return [this, print = std::move(print)](const STrouble& trouble) {
        Clear();
        print(trouble);
    };
}

}  // namespace agent
