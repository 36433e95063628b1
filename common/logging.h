#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "common/export.h"
#include "common/format.h"

/// Logging by sections. A library is silent: nothing is logged until the host sets a sink.
namespace logging {

/// In order of weight: dbg for details, tr (trace) for steps, info, warn.
enum class level_t { dbg, tr, info, warn };

[[nodiscard]] CB_EXPORT std::string_view ToStr(level_t level);

/// What a record is: a line, or the opening or closing of a scope (trace_t).
enum class kind_t { line, open, close };

struct SRecord {
    std::string_view section;
    level_t level;
    kind_t kind;
    std::string_view text;
};

/// Receives the log. Called from any thread, also from several at once; must not throw.
class CB_EXPORT ISink {
public:
    virtual ~ISink() = default;
    /// False makes the caller not even build the message.
    [[nodiscard]] virtual bool IsEnabled(std::string_view section, level_t level) const = 0;
    virtual void Write(const SRecord& record) = 0;
};

/// Sets the process's sink; an empty pointer silences. Safe at any time: the old sink is kept until the last record
/// being written to it is written.
CB_EXPORT void SetSink(std::shared_ptr<ISink> sink);

/// A sink that prints to standard error, through spdlog, what has at least the given level.
[[nodiscard]] CB_EXPORT std::shared_ptr<ISink> MakeStderrSink(level_t minimum);

/// One part of the system that logs under its own name. Safe from any thread.
class CB_EXPORT section_t {
public:
    explicit constexpr section_t(const char* name) : name_(name) {}

    [[nodiscard]] std::string_view GetName() const { return name_; }
    [[nodiscard]] bool IsEnabled(level_t level) const;

    template <class... Args>
    void Log(level_t level, std::string_view message, const Args&... args) const {
        if (IsEnabled(level)) {
            Write(level, kind_t::line, exc::Format(message, args...));
        }
    }
    template <class... Args>
    void Dbg(std::string_view message, const Args&... args) const {
        Log(level_t::dbg, message, args...);
    }
    template <class... Args>
    void Tr(std::string_view message, const Args&... args) const {
        Log(level_t::tr, message, args...);
    }
    template <class... Args>
    void Info(std::string_view message, const Args&... args) const {
        Log(level_t::info, message, args...);
    }
    template <class... Args>
    void Warn(std::string_view message, const Args&... args) const {
        Log(level_t::warn, message, args...);
    }

    void Write(level_t level, kind_t kind, std::string_view text) const;

private:
    const char* name_;
};

/// The library's own section, and the one of storages and their data.
[[nodiscard]] CB_EXPORT const section_t& Library();
[[nodiscard]] CB_EXPORT const section_t& Storage();

/// A scope in the log, at trace level: opened with a message, closed with "ok", with a message of its own, or, when it
/// is left by an exception, with "failed". A scope that ends otherwise, or is closed without a message, closes with an
/// empty text. For one thread.
class CB_EXPORT trace_t {
public:
    template <class... Args>
    explicit trace_t(const section_t& section, std::string_view message, const Args&... args)
        : trace_t(section, SOpen{}, section.IsEnabled(level_t::tr) ? exc::Format(message, args...) : std::string()) {}
    trace_t(const trace_t&) = delete;
    trace_t& operator=(const trace_t&) = delete;
    ~trace_t();

    /// Closes the scope as successful ("ok").
    void Ok();
    /// Closes the scope without a message.
    void Close();
    /// Closes the scope with a message.
    template <class... Args>
    void Close(std::string_view message, const Args&... args) {
        CloseWith(section_.IsEnabled(level_t::tr) ? exc::Format(message, args...) : std::string());
    }

private:
    struct SOpen {};
    trace_t(const section_t& section, SOpen, std::string_view message);
    void CloseWith(std::string_view text);

    const section_t& section_;
    int uncaught_;
    bool open_ = true;
};

}  // namespace logging
