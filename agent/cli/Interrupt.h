#pragma once

#include <memory>
#include <string>

#include "cloudclientlib/ICloudClient.h"

namespace agent {

/// Lets a run end at its next safe point when the user interrupts it (Ctrl-C, SIGTERM, SIGHUP), as long as it lives; a
/// second time ends the program at once. Without one the system ends the program at once.
///
/// One at a time; Check is for the run's thread.
class CInterruptScope {
public:
    /// `message` says what becomes of the work done.
    explicit CInterruptScope(std::string message);
    CInterruptScope(const CInterruptScope&) = delete;
    CInterruptScope& operator=(const CInterruptScope&) = delete;
    ~CInterruptScope();

    /// Throws exc::CRuntimeExc with the message once the user has interrupted.
    void Check() const;

private:
    const std::string message_;
};

/// A client that ends with the run: each call that begins after the user has interrupted it fails. What was begun
/// before is finished.
[[nodiscard]] std::shared_ptr<cloudclientlib::ICloudClient> MakeInterruptible(
    std::shared_ptr<cloudclientlib::ICloudClient> client);

/// Whether the user has interrupted a run: whatever failed since, failed because of that.
[[nodiscard]] bool IsInterrupted();
/// The message of the run that was interrupted.
[[nodiscard]] const std::string& GetInterruptMessage();

}  // namespace agent
