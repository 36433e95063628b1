#include "common/logging.h"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <exception>
#include <mutex>

namespace logging {

namespace {

std::mutex g_sinkMutex;
std::shared_ptr<ISink> g_sink;       // guarded by g_sinkMutex
std::atomic<bool> g_hasSink{false};  // lets a silent process log without a lock

std::shared_ptr<ISink> GetSink() {
    if (!g_hasSink.load(std::memory_order_acquire)) {
        return nullptr;
    }
    const std::lock_guard lock(g_sinkMutex);
    return g_sink;
}

spdlog::level::level_enum ToSpdlog(level_t level) {
    switch (level) {
        case level_t::dbg:
            return spdlog::level::trace;
        case level_t::tr:
            return spdlog::level::debug;
        case level_t::info:
            return spdlog::level::info;
        case level_t::warn:
            break;
    }
    return spdlog::level::warn;
}

class CStderrSink : public ISink {
public:
    explicit CStderrSink(level_t minimum) : minimum_(minimum), logger_("cloudbackup", MakeTarget()) {
        logger_.set_level(ToSpdlog(minimum));
        logger_.set_pattern("%H:%M:%S.%e %v");
    }

    bool IsEnabled(std::string_view, level_t level) const override { return level >= minimum_; }

    void Write(const SRecord& record) override {
        const char* mark = record.kind == kind_t::open ? "> " : record.kind == kind_t::close ? "< " : "";
        // The levels bear our own names: spdlog's "debug" and "trace" stand in the other order.
        logger_.log(ToSpdlog(record.level), "[{}] {}: {}{}", ToStr(record.level), record.section, mark, record.text);
    }

private:
    static std::shared_ptr<spdlog::sinks::sink> MakeTarget() {
        return std::make_shared<spdlog::sinks::stderr_sink_mt>();
    }

    const level_t minimum_;
    spdlog::logger logger_;
};

}  // namespace

std::string_view ToStr(level_t level) {
    switch (level) {
        case level_t::dbg:
            return "dbg";
        case level_t::tr:
            return "tr";
        case level_t::info:
            return "info";
        case level_t::warn:
            break;
    }
    return "warn";
}

void SetSink(std::shared_ptr<ISink> sink) {
    const std::lock_guard lock(g_sinkMutex);
    g_hasSink.store(sink != nullptr, std::memory_order_release);
    g_sink.swap(sink);
}

std::shared_ptr<ISink> MakeStderrSink(level_t minimum) { return std::make_shared<CStderrSink>(minimum); }

bool section_t::IsEnabled(level_t level) const {
    const auto sink = GetSink();
    return sink && sink->IsEnabled(name_, level);
}

void section_t::Write(level_t level, kind_t kind, std::string_view text) const {
    // Asked again, for the sink may have been replaced since the message was built.
    if (const auto sink = GetSink(); sink && sink->IsEnabled(name_, level)) {
        sink->Write({name_, level, kind, text});
    }
}

const section_t& Library() {
    static constexpr section_t section("library");
    return section;
}

const section_t& Storage() {
    static constexpr section_t section("storage");
    return section;
}

trace_t::trace_t(const section_t& section, SOpen, std::string_view message)
    : section_(section), uncaught_(std::uncaught_exceptions()) {
    section_.Write(level_t::tr, kind_t::open, message);
}

trace_t::~trace_t() {
    if (open_) {
        try {
            CloseWith(std::uncaught_exceptions() > uncaught_ ? "failed" : "");
        } catch (...) {  // a sink must not throw; one that does costs a log line, not the process
        }
    }
}

void trace_t::Ok() { CloseWith("ok"); }
void trace_t::Close() { CloseWith(""); }

void trace_t::CloseWith(std::string_view text) {
    if (open_) {
        open_ = false;
        section_.Write(level_t::tr, kind_t::close, text);
    }
}

}  // namespace logging
