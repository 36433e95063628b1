#pragma once

#include <cstddef>
#include <iterator>
#include <memory>
#include <string_view>
#include <tuple>
#include <vector>

#include "agent/meta/EntryCodec.h"

namespace agent {

/// A path and its packed entry in a table, as long as it is there: whatever else comes or goes, it stays where it is.
class CEntryRef {
public:
    CEntryRef() = default;
    explicit CEntryRef(const char* record) : record_(record) {}

    [[nodiscard]] bool IsNull() const { return record_ == nullptr; }
    [[nodiscard]] std::string_view GetPath() const;
    [[nodiscard]] CPackedView GetEntry() const;
    /// Another one for each record.
    [[nodiscard]] const void* GetId() const { return record_; }

    /// For [path, entry].
    template <std::size_t I>
    [[nodiscard]] auto get() const {
        if constexpr (I == 0) {
            return GetPath();
        } else {
            return GetEntry();
        }
    }

    /// Whether it is the same one, not one that is equal.
    friend bool operator==(const CEntryRef&, const CEntryRef&) = default;

private:
    const char* record_ = nullptr;
};

/// Entries by their paths, in the order of a walk. A path and its entry are one allocation, and these stand in runs
/// that are well filled: of a large tree they are nearly all the memory. What comes in order is put in constant time,
/// else a run is moved.
///
/// A plain value. For one thread; const operations from several.
class CEntryTable {
    using record_t = std::unique_ptr<char[]>;
    using run_t = std::vector<record_t>;

public:
    class const_iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = CEntryRef;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = CEntryRef;

        const_iterator() = default;
        [[nodiscard]] CEntryRef operator*() const { return CEntryRef((*runs_)[run_][at_].get()); }
        [[nodiscard]] auto operator->() const {
            struct SArrow {
                CEntryRef entry;
                const CEntryRef* operator->() const { return &entry; }
            };
            return SArrow{**this};
        }
        const_iterator& operator++() {
            if (++at_ == (*runs_)[run_].size()) {
                at_ = 0;
                ++run_;
            }
            return *this;
        }
        const_iterator operator++(int) {
            const const_iterator before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(const const_iterator&, const const_iterator&) = default;

    private:
        friend class CEntryTable;
        const_iterator(const std::vector<run_t>& runs, std::size_t run, std::size_t at)
            : runs_(&runs), run_(run), at_(at) {}

        const std::vector<run_t>* runs_ = nullptr;
        std::size_t run_ = 0;
        std::size_t at_ = 0;
    };
    using iterator = const_iterator;
    using value_type = CEntryRef;

    CEntryTable() = default;
    CEntryTable(const CEntryTable& other);
    CEntryTable(CEntryTable&& other) noexcept;
    CEntryTable& operator=(CEntryTable other) noexcept;
    ~CEntryTable() = default;

    [[nodiscard]] const_iterator begin() const { return {runs_, 0, 0}; }
    [[nodiscard]] const_iterator end() const { return {runs_, runs_.size(), 0}; }
    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] bool empty() const { return size_ == 0; }

    /// A null one when there is none of that path.
    [[nodiscard]] CEntryRef Find(std::string_view path) const;
    /// The first that does not stand before the path.
    [[nodiscard]] const_iterator LowerBound(std::string_view path) const;

    /// In the place of the path's entry, if it has one.
    CEntryRef Put(std::string_view path, CPackedView entry);
    /// All of another table, in the places of those that have the same paths.
    void PutAll(CEntryTable&& other);
    /// False when there is none of that path.
    bool Erase(std::string_view path);

    friend bool operator==(const CEntryTable& a, const CEntryTable& b);

private:
    void Put(record_t record);
    [[nodiscard]] bool IsAt(const const_iterator& place, std::string_view path) const;

    std::vector<run_t> runs_;  // none of them empty
    std::size_t size_ = 0;
};

}  // namespace agent

template <>
struct std::tuple_size<agent::CEntryRef> : std::integral_constant<std::size_t, 2> {};
template <>
struct std::tuple_element<0, agent::CEntryRef> {
    using type = std::string_view;
};
template <>
struct std::tuple_element<1, agent::CEntryRef> {
    using type = agent::CPackedView;
};
