#include "clients/azure/AzureCopy.h"

#include <algorithm>

#include "clients/azure/AzureFailure.h"
#include "cloudclientlib/CloudExc.h"
#include "common/exc.h"

namespace clients::azure {

namespace {

using cloudclientlib::CCloudExc;
using cloudclientlib::EFailure;

constexpr std::chrono::milliseconds firstDelay(100);
constexpr std::chrono::milliseconds longestDelay = std::chrono::seconds(5);
constexpr std::chrono::milliseconds patience = std::chrono::hours(1);

/// A copy that the service has begun.
class CPendingCopy {
public:
    CPendingCopy(CAzureConnection& connection, const SPlace& target, std::string id)
        : connection_(connection), target_(target), id_(std::move(id)) {}

    void Await(std::string status, const wait_t& wait) const {
        std::chrono::milliseconds waited(0);
        std::chrono::milliseconds delay = firstDelay;
        while (status == "pending") {
            if (waited >= patience) {
                throw Failure("the service did not finish the copy");
            }
            wait(delay);
            waited += delay;
            delay = std::min(2 * delay, longestDelay);
            status = Ask();
        }
        if (status != "success") {
            throw Failure("the copy came to nothing (" + status + ")");
        }
    }

    /// Ends it, and takes away the empty object that it leaves; not one that somebody else has put there since.
    void Abandon() const noexcept {
        try {
            SRequest request;
            request.method = "PUT";
            request.blob = target_.name;
            request.query = {{"comp", "copy"}, {"copyid", id_}};
            request.headers = {{"x-ms-copy-action", "abort"}};
            static_cast<void>(connection_.Run(request));  // it may have ended by itself
            const auto state = Head(connection_, target_);
            if (state && state->copyId == id_ && (state->copyStatus == "aborted" || state->copyStatus == "failed")) {
                DeleteOne(connection_, target_, state->etag);
            }
        } catch (const exc::CExc&) {  // the first failure is the one to tell; readers refuse what is left
        }
    }

private:
    [[nodiscard]] std::string Ask() const {
        const auto state = Head(connection_, target_);
        if (!state || state->copyId != id_) {
            throw CCloudExc({EFailure::conflict, true, target_.operation, target_.path,
                             "the object was written or deleted while it was copied"});
        }
        return state->copyStatus;
    }

    [[nodiscard]] CCloudExc Failure(std::string reason) const {
        return CCloudExc({EFailure::transient, true, target_.operation, target_.path, std::move(reason)});
    }

    CAzureConnection& connection_;
    const SPlace& target_;
    const std::string id_;
};

}  // namespace

void CopyObject(CAzureConnection& connection, const SPlace& source, const SPlace& target, const headers_t& headers,
                const wait_t& wait) {
    static_cast<void>(HeadExc(connection, source));  // one that is missing is told alike by all services
    if (source.name == target.name) {
        return;
    }
    SRequest request;
    request.method = "PUT";
    request.blob = target.name;
    request.headers = headers;
    request.headers.emplace_back("x-ms-copy-source", connection.SourceUrl(source.name));
    const auto result = connection.Run(request);
    CheckSuccess(source.operation, source.path, result);
    const CPendingCopy copy(connection, target, result.answer.Header("x-ms-copy-id"));
    try {
        copy.Await(result.answer.Header("x-ms-copy-status"), wait);
    } catch (...) {
        copy.Abandon();
        throw;
    }
}

}  // namespace clients::azure
