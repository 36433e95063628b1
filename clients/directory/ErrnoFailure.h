#pragma once

#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "cloudclientlib/CloudExc.h"
#include "common/posix.h"

namespace clients::directory {

/// What a caller was about to do when a system call failed.
struct SOperation {
    /// As the client interface names it.
    std::string_view name;
    /// As the caller named the object or folder.
    std::string path;
    /// Reading an object: what is missing is then reported as CObjectNotFoundExc.
    bool isRead = false;
};

/// What an error number means to a user of the client; the one place where error numbers are judged.
struct SErrnoMeaning {
    cloudclientlib::EFailure kind;
    bool retryable;
    std::string_view reason;
};
[[nodiscard]] SErrnoMeaning MeaningOf(int errorNumber);

/// Throws the client's failure for a failed system call, with the call's own text as its cause.
[[noreturn]] void ThrowCloudFailure(const SOperation& operation, const posix::CPosixExc& failure);
/// Throws a failure that no system call reported.
[[noreturn]] void ThrowCloudFailure(const SOperation& operation, cloudclientlib::EFailure kind, std::string reason);
/// Throws for memory that could not be had.
[[noreturn]] void ThrowOutOfMemory(const SOperation& operation);

/// Runs `work`; failed system calls leave it as CCloudExc.
template <class TWork>
auto Translated(const SOperation& operation, TWork&& work) -> decltype(work()) {
    try {
        return std::forward<TWork>(work)();
    } catch (const posix::CPosixExc& failure) {
        ThrowCloudFailure(operation, failure);
    } catch (const std::bad_alloc&) {
        ThrowOutOfMemory(operation);
    } catch (const std::length_error&) {
        ThrowOutOfMemory(operation);
    }
}

}  // namespace clients::directory
