#pragma once

#include <string>

#include "clients/http/HttpEngine.h"

namespace clients::s3 {

/// Throws what a request's result means for the caller of an operation: CObjectNotFoundExc for an object that is not
/// there, CCloudExc else, with the HTTP status, the service's code, message and request id, and, for frequent ones,
/// what to do.
[[noreturn]] void ThrowFailure(const std::string& operation, const std::string& path, const http::SHttpResult& result);

/// Throws for anything but a success.
void CheckSuccess(const std::string& operation, const std::string& path, const http::SHttpResult& result);

}  // namespace clients::s3
