#pragma once

#include <exception>
#include <string>

namespace test {

/// The text of what the operation throws.
template <class F>
std::string ThrownBy(const F& operation) {
    try {
        operation();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "nothing thrown";
}

}  // namespace test
