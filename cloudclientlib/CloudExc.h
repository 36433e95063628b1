#pragma once

#include <exception>
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

    [[nodiscard]] std::unique_ptr<exc::CExc> Clone() const override;
    [[noreturn]] void Generate() const override;

private:
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
