#include "cloudclientlib/CloudExc.h"

#include <algorithm>

namespace cloudclientlib {

namespace {

std::string MessageOf(const SFailure& failure) {
    return exc::Format("%1 '%2': %3", failure.operation, failure.path, failure.reason);
}

}  // namespace

std::string_view ToStr(EFailure kind) {
    switch (kind) {
        case EFailure::notFound:
            return "not found";
        case EFailure::accessDenied:
            return "access denied";
        case EFailure::quota:
            return "quota";
        case EFailure::conflict:
            return "conflict";
        case EFailure::transient:
            return "transient";
        case EFailure::corrupt:
            return "corrupt";
        case EFailure::other:
            break;
    }
    return "other";
}

CCloudExc::CCloudExc(SFailure failure)
    : CExc(MessageOf(failure)), failure_(std::make_shared<const SFailure>(std::move(failure))) {}
CCloudExc::CCloudExc(SFailure failure, const std::exception& cause)
    : CCloudExc(std::move(failure), std::string_view(exc::ChainText(cause))) {}
CCloudExc::CCloudExc(SFailure failure, std::string_view causeText)
    : CExc(MessageOf(failure), causeText), failure_(std::make_shared<const SFailure>(std::move(failure))) {}

CCloudExc CCloudExc::WithRemark(std::string_view remark) const {
    SFailure remarked = *failure_;
    remarked.reason.append(" ").append(remark);
    if (!HasCauseText()) {
        return CCloudExc(std::move(remarked));
    }
    // what() is the message, in which each NUL takes two characters, ": " and the cause's text.
    const std::string& message = GetMessage();
    const auto shown = message.size() + static_cast<std::size_t>(std::count(message.begin(), message.end(), '\0'));
    return {std::move(remarked), std::string_view(what()).substr(shown + 2)};
}

std::unique_ptr<exc::CExc> CCloudExc::Clone() const { return std::make_unique<CCloudExc>(*this); }
void CCloudExc::Generate() const { throw CCloudExc(*this); }

CObjectNotFoundExc::CObjectNotFoundExc(std::string operation, std::string path)
    : CCloudExc({EFailure::notFound, false, std::move(operation), std::move(path), "object not found"}) {}

std::unique_ptr<exc::CExc> CObjectNotFoundExc::Clone() const { return std::make_unique<CObjectNotFoundExc>(*this); }
void CObjectNotFoundExc::Generate() const { throw CObjectNotFoundExc(*this); }

}  // namespace cloudclientlib
