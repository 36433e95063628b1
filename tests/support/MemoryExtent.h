#pragma once

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/stg_extent.h"

namespace test {

/// A writer's extent over bytes in memory, which the test may change at any time. Remembers its reads. Safe from any
/// thread.
class MemoryExtent : public io::stg::IStgExtent {
public:
    struct SRead {
        std::uint64_t offset;
        std::size_t size;

        friend bool operator==(const SRead&, const SRead&) = default;
    };

    explicit MemoryExtent(std::string bytes = {}) : bytes_(std::move(bytes)) {}

    std::size_t Read(std::uint64_t offset, void* buffer, std::size_t size) override {
        const std::lock_guard lock(mutex_);
        reads_.push_back({offset, size});
        const std::size_t begin = std::min<std::size_t>(offset, bytes_.size());
        return bytes_.copy(static_cast<char*>(buffer), size, begin);
    }

    std::uint64_t GetSize() override {
        const std::lock_guard lock(mutex_);
        return bytes_.size() + overstated_;
    }

    void SetBytes(std::string bytes) {
        const std::lock_guard lock(mutex_);
        bytes_ = std::move(bytes);
    }

    /// Claims that many bytes more than can be read.
    void Overstate(std::uint64_t bytes) {
        const std::lock_guard lock(mutex_);
        overstated_ = bytes;
    }

    [[nodiscard]] std::vector<SRead> GetReads() const {
        const std::lock_guard lock(mutex_);
        return reads_;
    }

private:
    mutable std::mutex mutex_;
    std::string bytes_;             // guarded by mutex_
    std::uint64_t overstated_ = 0;  // guarded by mutex_
    std::vector<SRead> reads_;      // guarded by mutex_
};

}  // namespace test
