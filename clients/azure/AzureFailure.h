#pragma once

#include <string>

#include "clients/azure/AzureBatch.h"
#include "clients/http/HttpEngine.h"

namespace clients::azure {

/// Throws what a request's result means for the caller of an operation: CObjectNotFoundExc for an object that is not
/// there, CCloudExc else, with the HTTP status, the service's code, message and request id, and, for frequent ones,
/// what to do.
[[noreturn]] void ThrowFailure(const std::string& operation, const std::string& path, const http::SHttpResult& result);

/// The same for a request of a batch, of which `what` says which one.
[[noreturn]] void ThrowBatchFailure(const std::string& operation, const std::string& path, const SBatchAnswer& answer,
                                    const std::string& what);

/// Throws for anything but a success.
void CheckSuccess(const std::string& operation, const std::string& path, const http::SHttpResult& result);

/// Whether the object is not there; a container that is not there is another failure.
[[nodiscard]] bool IsNotFound(const http::SHttpResult& result);

/// An object that a request of a batch was to delete is gone.
[[nodiscard]] bool IsGone(const SBatchAnswer& answer);

}  // namespace clients::azure
