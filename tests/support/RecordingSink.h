#pragma once

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/logging.h"

namespace test {

/// One record of the log, kept.
struct SEntry {
    std::string section;
    logging::level_t level;
    logging::kind_t kind;
    std::string text;

    friend bool operator==(const SEntry&, const SEntry&) = default;
};

/// Records what is logged while it lives; afterwards the log is silent again. One at a time. Safe from any thread.
class RecordingSink {
public:
    explicit RecordingSink(logging::level_t minimum = logging::level_t::dbg)
        : recorder_(std::make_shared<Recorder>(minimum)) {
        logging::SetSink(recorder_);
    }
    RecordingSink(const RecordingSink&) = delete;
    RecordingSink& operator=(const RecordingSink&) = delete;
    ~RecordingSink() { logging::SetSink(nullptr); }

    [[nodiscard]] std::vector<SEntry> GetEntries() const { return recorder_->GetEntries(); }

    /// The lines of exactly this level.
    [[nodiscard]] std::vector<std::string> GetTexts(logging::level_t level) const {
        std::vector<std::string> texts;
        for (SEntry& entry : GetEntries()) {
            if (entry.level == level && entry.kind == logging::kind_t::line) {
                texts.push_back(std::move(entry.text));
            }
        }
        return texts;
    }

    /// The scopes in order: "> text" for an opening, "< text" for a closing.
    [[nodiscard]] std::vector<std::string> GetScopes() const {
        std::vector<std::string> scopes;
        for (const SEntry& entry : GetEntries()) {
            if (entry.kind != logging::kind_t::line) {
                scopes.push_back((entry.kind == logging::kind_t::open ? "> " : "< ") + entry.text);
            }
        }
        return scopes;
    }

    /// Whether there is a record, of any kind, with exactly this text.
    [[nodiscard]] bool Has(std::string_view text) const {
        const std::vector<SEntry> entries = GetEntries();
        return std::any_of(entries.begin(), entries.end(), [&](const SEntry& entry) { return entry.text == text; });
    }

private:
    class Recorder : public logging::ISink {
    public:
        explicit Recorder(logging::level_t minimum) : minimum_(minimum) {}

        bool IsEnabled(std::string_view, logging::level_t level) const override { return level >= minimum_; }

        void Write(const logging::SRecord& record) override {
            const std::lock_guard lock(mutex_);
            entries_.push_back({std::string(record.section), record.level, record.kind, std::string(record.text)});
        }

        std::vector<SEntry> GetEntries() const {
            const std::lock_guard lock(mutex_);
            return entries_;
        }

    private:
        const logging::level_t minimum_;
        mutable std::mutex mutex_;
        std::vector<SEntry> entries_;
    };

    std::shared_ptr<Recorder> recorder_;
};

}  // namespace test
