#pragma once

namespace io {

/// A host's limits on network traffic, handed through by the library.
class CNetworkTrottlingCtx;

}  // namespace io
