#include "agent/meta/EntryTable.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "agent/model/PathOrder.h"
#include "common/exc.h"

namespace agent {

namespace {

/// Of a run, in records: moving so many places costs less than finding the place.
constexpr std::size_t runLimit = 512;

/// What stands before the path in a record.
struct SSizes {
    std::uint32_t path;
    std::uint32_t entry;
};

SSizes SizesOf(const char* record) {
    SSizes sizes;
    std::memcpy(&sizes, record, sizeof(sizes));
    return sizes;
}

std::string_view PathOf(const char* record) { return {record + sizeof(SSizes), SizesOf(record).path}; }

std::unique_ptr<char[]> MakeRecord(std::string_view path, std::string_view entry) {
    constexpr std::size_t limit = std::numeric_limits<std::uint32_t>::max();
    if (path.size() > limit || entry.size() > limit) {
        throw exc::CRuntimeExc("an entry of %1 bytes is too large", path.size() + entry.size());
    }
    const SSizes sizes{static_cast<std::uint32_t>(path.size()), static_cast<std::uint32_t>(entry.size())};
    auto record = std::make_unique_for_overwrite<char[]>(sizeof(sizes) + path.size() + entry.size());
    std::memcpy(record.get(), &sizes, sizeof(sizes));
    std::copy(path.begin(), path.end(), record.get() + sizeof(sizes));
    std::copy(entry.begin(), entry.end(), record.get() + sizeof(sizes) + path.size());
    return record;
}

}  // namespace

std::string_view CEntryRef::GetPath() const { return PathOf(record_); }

CPackedView CEntryRef::GetEntry() const {
    const SSizes sizes = SizesOf(record_);
    return CPackedView::FromBytes({record_ + sizeof(sizes) + sizes.path, sizes.entry});
}

CEntryTable::CEntryTable(const CEntryTable& other) {
    for (const auto& [path, entry] : other) {
        Put(path, entry);
    }
}

CEntryTable::CEntryTable(CEntryTable&& other) noexcept
    : runs_(std::exchange(other.runs_, {})), size_(std::exchange(other.size_, 0)) {}

CEntryTable& CEntryTable::operator=(CEntryTable other) noexcept {
    runs_.swap(other.runs_);
    std::swap(size_, other.size_);
    return *this;
}

CEntryTable::const_iterator CEntryTable::LowerBound(std::string_view path) const {
    const SPathLess less;
    const auto run = std::partition_point(runs_.begin(), runs_.end(),
                                          [&](const run_t& one) { return less(PathOf(one.back().get()), path); });
    if (run == runs_.end()) {
        return end();
    }
    const auto place = std::partition_point(run->begin(), run->end(),
                                            [&](const record_t& one) { return less(PathOf(one.get()), path); });
    return {runs_, static_cast<std::size_t>(run - runs_.begin()), static_cast<std::size_t>(place - run->begin())};
}

bool CEntryTable::IsAt(const const_iterator& place, std::string_view path) const {
    return place != end() && (*place).GetPath() == path;
}

CEntryRef CEntryTable::Find(std::string_view path) const {
    const const_iterator place = LowerBound(path);
    return IsAt(place, path) ? *place : CEntryRef();
}

CEntryRef CEntryTable::Put(std::string_view path, CPackedView entry) {
    record_t record = MakeRecord(path, entry.GetBytes());
    const CEntryRef put(record.get());
    Put(std::move(record));
    return put;
}

void CEntryTable::Put(record_t record) {
    const std::string_view path = PathOf(record.get());
    // Most come in order: then the place is known.
    if (runs_.empty() || SPathLess()(PathOf(runs_.back().back().get()), path)) {
        if (runs_.empty() || runs_.back().size() >= runLimit) {
            runs_.emplace_back();
            runs_.back().reserve(runs_.size() == 1 ? 1 : runLimit);
        }
        runs_.back().push_back(std::move(record));
        ++size_;
        return;
    }
    const const_iterator place = LowerBound(path);
    run_t& run = runs_[place.run_];
    if (IsAt(place, path)) {
        run[place.at_] = std::move(record);
        return;
    }
    run.insert(run.begin() + static_cast<std::ptrdiff_t>(place.at_), std::move(record));
    ++size_;
    if (run.size() > runLimit) {
        const auto half = run.begin() + runLimit / 2;
        run_t second(std::make_move_iterator(half), std::make_move_iterator(run.end()));
        run.erase(half, run.end());
        runs_.insert(runs_.begin() + static_cast<std::ptrdiff_t>(place.run_) + 1, std::move(second));
    }
}

void CEntryTable::PutAll(CEntryTable&& other) {
    if (empty()) {
        *this = std::move(other);
        return;
    }
    for (auto& run : other.runs_) {
        for (auto& record : run) {
            Put(std::move(record));
        }
        run_t().swap(run);
    }
    other = {};
}

bool CEntryTable::Erase(std::string_view path) {
    const const_iterator place = LowerBound(path);
    if (!IsAt(place, path)) {
        return false;
    }
    run_t& run = runs_[place.run_];
    run.erase(run.begin() + static_cast<std::ptrdiff_t>(place.at_));
    if (run.empty()) {
        runs_.erase(runs_.begin() + static_cast<std::ptrdiff_t>(place.run_));
    }
    --size_;
    return true;
}

bool operator==(const CEntryTable& a, const CEntryTable& b) {
    return a.size_ == b.size_ && std::equal(a.begin(), a.end(), b.begin(), [](CEntryRef left, CEntryRef right) {
               return left.GetPath() == right.GetPath() && left.GetEntry() == right.GetEntry();
           });
}

}  // namespace agent
