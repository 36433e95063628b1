#pragma once

#include <chrono>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "common/exc.h"
#include "common/export.h"

namespace cloudclientlib {

/// What kind of failure a cloud operation met; callers branch on it, never on a text.
enum class EFailure { notFound, accessDenied, quota, conflict, transient, corrupt, other };

[[nodiscard]] CB_EXPORT std::string_view ToStr(EFailure kind);

/// What a failed operation says of itself.
struct CB_EXPORT SFailure {
    EFailure kind = EFailure::other;
    /// Trying the same again may succeed.
    bool retryable = false;
    /// The client operation, as the interface names it ("UploadFile").
    std::string operation;
    /// The object or folder, as the caller named it.
    std::string path;
    /// What happened, in words.
    std::string reason;
    /// How long the service asks to wait before the next attempt; 0 when it does not.
    std::chrono::milliseconds retryAfter{0};
};

/// A failure of a cloud client. The message is "<operation> '<path>': <reason>".
class CB_EXPORT CCloudExc : public exc::CExc {
public:
    explicit CCloudExc(SFailure failure);
    CCloudExc(SFailure failure, const std::exception& cause);

    [[nodiscard]] EFailure GetKind() const noexcept { return failure_->kind; }
    [[nodiscard]] bool IsRetryable() const noexcept { return failure_->retryable; }
    [[nodiscard]] const std::string& GetOperation() const noexcept { return failure_->operation; }
    [[nodiscard]] const std::string& GetPath() const noexcept { return failure_->path; }
    [[nodiscard]] std::chrono::milliseconds GetRetryAfter() const noexcept { return failure_->retryAfter; }

    /// The same failure with a remark behind its reason ("UploadFile 'a': busy (after 3 attempts)").
    [[nodiscard]] CCloudExc WithRemark(std::string_view remark) const;

    [[nodiscard]] std::unique_ptr<exc::CExc> Clone() const override;
    [[noreturn]] void Generate() const override;

private:
    CCloudExc(SFailure failure, std::string_view causeText);

    std::shared_ptr<const SFailure> failure_;  // shared, so that copying an exception cannot throw
};

/// The object is not there. Its own class, for it is what a caller most often handles.
class CB_EXPORT CObjectNotFoundExc : public CCloudExc {
public:
    CObjectNotFoundExc(std::string operation, std::string path);

    [[nodiscard]] std::unique_ptr<exc::CExc> Clone() const override;
    [[noreturn]] void Generate() const override;
};

}  // namespace cloudclientlib
