#pragma once

#include <functional>
#include <string>

namespace agent {

/// Something of a source, or of a checkpoint, that could not be read or restored while the run went on.
struct STrouble {
    /// The full path.
    std::string path;
    std::string reason;
};

/// Is told of each trouble as it comes up, in the run's thread.
using trouble_sink_t = std::function<void(const STrouble&)>;

}  // namespace agent
