#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <thread>

#include "cloudclientlib/wrappers/LimitClient.h"
#include "cloudclientlib/wrappers/TraceClient.h"
#include "tests/wrappers/RetryFixture.h"

namespace cloudclientlib {

namespace {

enum class EWrapper { retry, limit, trace };

std::shared_ptr<ICloudClient> Wrap(EWrapper wrapper, std::shared_ptr<ICloudClient> inner) {
    switch (wrapper) {
        case EWrapper::retry:
            return std::make_shared<CRetryClient>(std::move(inner), FastRetries());
        case EWrapper::limit:
            return std::make_shared<CLimitClient>(
                std::move(inner), SLimits{.operationsInFlight = 2, .bytesPerSecondUp = 100, .bytesPerSecondDown = 100},
                std::make_shared<CFakeTimer>());
        case EWrapper::trace:
            break;
    }
    return std::make_shared<CTraceClient>(std::move(inner));
}

/// Runs the test with the three around a store, from the innermost out, in every order.
void InEveryOrder(const std::function<void(clients::CMemoryClient& store, const std::shared_ptr<CFaultClient>& faults,
                                           std::shared_ptr<ICloudClient> client)>& test) {
    std::array order{EWrapper::retry, EWrapper::limit, EWrapper::trace};
    do {
        const auto store = std::make_shared<clients::CMemoryClient>();
        store->UploadFileAsync("a/object", Share("0123456789"))->Wait();
        const auto faults = std::make_shared<CFaultClient>(store);
        std::shared_ptr<ICloudClient> client = faults;
        for (const EWrapper wrapper : order) {
            client = Wrap(wrapper, std::move(client));
        }
        test(*store, faults, std::move(client));
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST(WrapperComposition, EveryOperationPassesInEveryOrder) {
    InEveryOrder([](auto&, const auto& faults, const std::shared_ptr<ICloudClient>& client) {
        for (const auto& call : OneCallOfEach()) {
            faults->Arm({.call = 1, .mode = EFaultMode::doneButFailed, .kinds = {call.operation}});
            EXPECT_EQ(MessageOf([&] { call.run(*client); }), "") << ToStr(call.operation);
            EXPECT_EQ(faults->IsReached(), true);
        }
        EXPECT_EQ(Read(*client, "a/object"), "0123456789");
        EXPECT_EQ(client->GetConcurrentTaskLimit(), 2U);
    });
}

TEST(WrapperComposition, TasksLetGoAreDoneInEveryOrder) {
    InEveryOrder([](auto& store, const auto&, std::shared_ptr<ICloudClient> client) {
        for (int i = 0; i < 20; ++i) {
            client->UploadFileAsync(std::to_string(i), Share("text"));
        }
        client.reset();
        EXPECT_EQ(store.GetObjectCount(""), 21U);
    });
}

TEST(WrapperComposition, ManyThreadsInEveryOrder) {
    InEveryOrder([](auto& store, const auto&, const std::shared_ptr<ICloudClient>& client) {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&, thread] {
                for (int i = 0; i < 20; ++i) {
                    const std::string path = exc::Format("t%1/%2", thread, i);
                    client->UploadFileAsync(path, Share(path))->Wait();
                    EXPECT_EQ(Read(*client, path), path);
                    client->QueryFolder(exc::Format("t%1", thread));
                }
            });
        }
        threads.clear();
        EXPECT_EQ(store.GetObjectCount(""), 81U);
    });
}

}  // namespace

}  // namespace cloudclientlib
