#include "clients/azure/AzureStore.h"

#include "clients/azure/AzureDocuments.h"
#include "clients/azure/AzureFailure.h"

namespace clients {

namespace {

constexpr const char* operation = "OpenContainer";

std::string CodeOf(const http::SHttpResult& result) {
    if (result.failure) {
        return {};
    }
    const std::string code = azure::ReadError(result.answer.body).value_or(azure::SServiceError{}).code;
    return code.empty() ? result.answer.Header("x-ms-error-code") : code;
}

}  // namespace

std::shared_ptr<CAzureClient> OpenAzureContainer(SAzureClientOptions options, azure::SAccount account, bool make) {
    {
        azure::CAzureConnection connection(account, options.container, options.http, options.clock);
        azure::SRequest request;
        request.query = {{"restype", "container"}, {"comp", "list"}, {"maxresults", "1"}};
        auto result = connection.Run(request);
        if (make && CodeOf(result) == "ContainerNotFound") {
            request.method = "PUT";
            request.query = {{"restype", "container"}};
            result = connection.Run(request);
        }
        if (CodeOf(result) != "ContainerAlreadyExists") {  // somebody may have made it in the meantime
            azure::CheckSuccess(operation, options.container, result);
        }
    }
    return std::make_shared<CAzureClient>(std::move(options), std::move(account));
}

}  // namespace clients
