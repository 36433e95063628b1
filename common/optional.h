#pragma once

#include <optional>
#include <utility>

#include "common/exc.h"

/// An optional value whose reading fails when it is absent. A plain value, on std::optional.
template <class T>
class COptionalParameter {
public:
    COptionalParameter() = default;
    COptionalParameter(T value) : value_(std::move(value)) {}  // NOLINT: a value stands for itself

    [[nodiscard]] bool IsSet() const { return value_.has_value(); }
    /// Throws exc::CRuntimeExc when absent.
    [[nodiscard]] const T& Get() const {
        if (!value_) {
            throw exc::CRuntimeExc("Parameter is not available.");
        }
        return *value_;
    }
    void Set(T value) { value_ = std::move(value); }
    void Reset() { value_.reset(); }

    friend bool operator==(const COptionalParameter&, const COptionalParameter&) = default;

private:
    std::optional<T> value_;
};
