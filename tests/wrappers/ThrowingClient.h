#pragma once

#include <string>

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/wrappers/ForwardingClient.h"

namespace cloudclientlib {

/// Fails a deletion in the call itself, not in its task.
class CThrowingClient : public CForwardingClient {
public:
    using CForwardingClient::CForwardingClient;
    task::task_ptr DeleteFileAsync(const std::string& path) override { throw CObjectNotFoundExc("DeleteFile", path); }
};

}  // namespace cloudclientlib
