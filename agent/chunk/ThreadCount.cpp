#include "agent/chunk/ThreadCount.h"

#include <algorithm>
#include <thread>

namespace agent {

std::size_t ThreadCount(unsigned wanted) {
    constexpr unsigned most = 16;
    return wanted != 0 ? wanted : std::clamp(std::thread::hardware_concurrency(), 1U, most);
}

}  // namespace agent
