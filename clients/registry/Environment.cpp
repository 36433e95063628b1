#include "clients/registry/Environment.h"

#include <cstdlib>

namespace clients {

std::string ProcessEnvironment(const std::string& name) {
    const char* const value = std::getenv(name.c_str());  // NOLINT(concurrency-mt-unsafe): nobody here sets any
    return value == nullptr ? std::string() : value;
}

}  // namespace clients
