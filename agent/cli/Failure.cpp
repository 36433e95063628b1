#include "agent/cli/Failure.h"

#include "common/exc.h"

namespace agent {

namespace {

std::string OwnMessage(const std::exception& failure) {
    const auto* known = dynamic_cast<const exc::CExc*>(&failure);
    return known != nullptr ? known->GetMessage() : failure.what();
}

std::string InnermostMessage(const std::exception& failure) {
    try {
        std::rethrow_if_nested(failure);
    } catch (const std::exception& cause) {
        return InnermostMessage(cause);
    } catch (...) {
        return "unknown error";
    }
    return OwnMessage(failure);
}

}  // namespace

std::string FailureText(const std::exception& failure) {
    const std::string outer = OwnMessage(failure);
    const std::string inner = InnermostMessage(failure);
    return inner.starts_with(outer) ? inner : outer + ": " + inner;
}

}  // namespace agent
