// The contract, kept on a real server, and what is the service's own. Run by tests/servers/with_server.py, which tells
// where it is.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "clients/azure/AzureClient.h"
#include "clients/azure/AzureFailure.h"
#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/conformance/GTest.h"
#include "cloudclientlib/conformance/Tools.h"
#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "cloudclientlib/wrappers/GateClient.h"
#include "cloudclientlib/wrappers/LimitClient.h"
#include "cloudclientlib/wrappers/RetryClient.h"
#include "cloudclientlib/wrappers/TraceClient.h"

namespace clients {
namespace {

using namespace cloudclientlib;

constexpr const char* byKey = "AZURE_TEST_CONNECTION";
constexpr const char* bySignature = "AZURE_TEST_SAS_CONNECTION";
constexpr const char* byAccountSignature = "AZURE_TEST_ACCOUNT_SAS_CONNECTION";
constexpr const char* container = "conformance";

azure::SAccount Account(const char* variable) {
    const char* const value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): nobody sets it
    if (value == nullptr || *value == '\0') {
        std::cerr << variable << " is not set: run this by tests/servers/with_server.py\n";
        std::exit(1);  // NOLINT(concurrency-mt-unsafe): before any thread
    }
    return azure::ReadConnectionString(value);
}

std::chrono::system_clock::time_point Now() { return std::chrono::system_clock::now(); }

azure::CAzureConnection Connect() { return {Account(byKey), container, {}, &Now}; }

void MakeContainer() {
    azure::CAzureConnection connection = Connect();
    azure::SRequest request;
    request.method = "PUT";
    request.query = {{"restype", "container"}};
    azure::CheckSuccess("MakeContainer", container, connection.Run(request));
}

std::string FreshPrefix() {
    static std::atomic<unsigned> number{0};
    return "place-" + std::to_string(++number);
}

SAzureClientOptions Options(const std::string& prefix) {
    SAzureClientOptions options;
    options.container = container;
    options.prefix = prefix;
    return options;
}

using wrap_t = std::shared_ptr<ICloudClient> (*)(std::shared_ptr<ICloudClient>);

/// Each place is a prefix of its own in the one container; many clients share it.
conformance::factory_t Factory(const char* variable, wrap_t wrap, azure::SBlockSizes sizes = {}) {
    return [variable, wrap, sizes]() -> conformance::place_t {
        SAzureClientOptions options = Options(FreshPrefix());
        options.sizes = sizes;
        return [variable, wrap, options] { return wrap(std::make_shared<CAzureClient>(options, Account(variable))); };
    };
}

std::shared_ptr<ICloudClient> Plain(std::shared_ptr<ICloudClient> client) { return client; }

/// Behind every wrapper, those for tests and those for use.
std::shared_ptr<ICloudClient> Wrapped(std::shared_ptr<ICloudClient> client) {
    client = std::make_shared<CGateClient>(std::make_shared<CFaultClient>(std::move(client)));
    client = std::make_shared<CLimitClient>(std::make_shared<CCountingClient>(std::move(client)), SLimits{8, 0, 0});
    return std::make_shared<CRetryClient>(std::make_shared<CTraceClient>(std::move(client)));
}

conformance::SSettings Settings(bool large) {
    conformance::SSettings settings;
    // An object store keeps names, not folders.
    settings.deviations.objectAndFolderShareAPath = true;
    settings.large = large;
    settings.rounds = 10;
    return settings;
}

[[maybe_unused]] const bool registered = [] {
    MakeContainer();
    using conformance::RegisterConformance;
    return RegisterConformance("AzureConformance", Factory(byKey, &Plain), Settings(true)) &&
           RegisterConformance("AzureBySignatureConformance", Factory(bySignature, &Plain), Settings(false)) &&
           RegisterConformance("WrappedAzureConformance", Factory(byKey, &Wrapped), Settings(false));
}();

/// Sizes that make blocks of little data.
SAzureClientOptions SmallBlocks() {
    SAzureClientOptions options = Options(FreshPrefix());
    options.sizes = {.threshold = 10'000, .block = 3'000};
    return options;
}

SCloudObjectInfo Info(CAzureClient& client, const std::string& name) {
    for (const auto& entry : client.QueryFolder("")) {
        if (entry.name == name) {
            return entry;
        }
    }
    ADD_FAILURE() << name << " is not listed";
    return {};
}

TEST(AzureService, ListingsTellTheMd5OfObjectsInOneAndInManyBlocks) {
    CAzureClient client(SmallBlocks(), Account(byKey));
    for (const std::size_t size : {0U, 1U, 9'999U, 10'000U, 10'001U, 12'000U, 100'000U}) {
        const auto bytes = conformance::MakeBytes(size, size);
        const std::string name = std::to_string(size);
        conformance::Upload(client, name, bytes);
        conformance::StreamUp(client, "streamed-" + name, bytes, 777);
        for (const std::string& one : {name, "streamed-" + name}) {
            const auto info = Info(client, one);
            ASSERT_TRUE(info.md5) << one;
            EXPECT_EQ(info.md5->ToAStr(), digest::Md5(bytes).ToAStr()) << one;
            EXPECT_EQ(info.size, size) << one;
            EXPECT_LT(std::chrono::abs(info.modified - Now()), std::chrono::minutes(5)) << one;
            EXPECT_EQ(info.tier, EStorageTier::standard) << one;
            conformance::ExpectObject(client, one, bytes);
            EXPECT_EQ(conformance::StreamDown(client, one, 1'000), bytes) << one;
        }
    }
}

TEST(AzureService, BlocksOfAnUploadThatWasLetGoAreUnseen) {
    CAzureClient client(SmallBlocks(), Account(byKey));
    client.StartUpload("object", 50'000)->Write(conformance::MakeBytes(1, 40'000));
    conformance::ExpectNoObject(client, "object");
    EXPECT_TRUE(client.QueryFolder("").empty());
    conformance::Upload(client, "object", conformance::MakeBytes(2, 20'000));
    client.StartUpload("object", 50'000)->Write(conformance::MakeBytes(1, 40'000));
    conformance::ExpectObject(client, "object", conformance::MakeBytes(2, 20'000));
}

TEST(AzureService, UploadsInBlocksSideBySideNeverMix) {
    CAzureClient client(SmallBlocks(), Account(byKey));
    const auto first = conformance::MakeBytes(1, 50'000);
    const auto second = conformance::MakeBytes(2, 60'000);
    const auto one = client.StartUpload("object", first.size());
    const auto other = client.StartUpload("object", second.size());
    one->Write(std::span(first).first(30'000));
    other->Write(std::span(second).first(30'000));
    one->Write(std::span(first).subspan(30'000));
    other->Write(std::span(second).subspan(30'000));
    one->Finish();
    conformance::ExpectObject(client, "object", first);
    try {
        other->Finish();
        conformance::ExpectObject(client, "object", second);
    } catch (const CCloudExc& failure) {
        EXPECT_EQ(failure.GetKind(), EFailure::conflict) << failure.what();
        EXPECT_TRUE(failure.IsRetryable());
        conformance::ExpectObject(client, "object", first);
    }
}

class CProgress : public progress::progress_base_t {
public:
    void SetProgress(std::uint64_t done, std::uint64_t total) override {
        EXPECT_GE(done, last);
        EXPECT_GE(total, done);
        last = done;
    }
    std::uint64_t last = 0;
};

TEST(AzureService, FoldersOfMoreThanOneBatchAreDeleted) {
    // Not by the account's signature: Azurite 3.35 answers such a batch with 500.
    for (const char* variable : {byKey, bySignature}) {
        CAzureClient client(Options(FreshPrefix()), Account(variable));
        std::vector<task::task_ptr> tasks;
        for (int i = 0; i < 600; ++i) {
            tasks.push_back(client.UploadFileAsync("folder/" + std::to_string(i) + " &%+ \xC3\xA9",
                                                   std::make_shared<cnt::array_t<char>>(3, 'x')));
        }
        client.CreateAsyncTaskUtils()->WaitAll(tasks);
        client.CreateFolderAsync("folder/empty")->Wait();
        conformance::Upload(client, "folder2", {});
        EXPECT_EQ(client.GetObjectCount("folder"), 600U);
        EXPECT_EQ(client.GetFolderSize("folder"), 1800U);
        const auto progress = std::make_shared<CProgress>();
        client.DeleteFolderAsync("folder", progress)->Wait();
        EXPECT_EQ(progress->last, 600U);
        EXPECT_FALSE(client.IsFolderExist("folder"));
        EXPECT_TRUE(client.IsFileExist("folder2"));
    }
}

/// What the service says of an object: its answer to the question for the object's properties.
http::SHttpAnswer Properties(const std::string& name) {
    azure::CAzureConnection connection = Connect();
    azure::SRequest request;
    request.method = "HEAD";
    request.blob = name;
    const auto result = connection.Run(request);
    azure::CheckSuccess("Properties", name, result);
    return result.answer;
}

TEST(AzureService, CopiesAreRecordedAsTheServicesOwn) {
    for (const char* variable : {byKey, bySignature, byAccountSignature}) {
        auto options = SmallBlocks();
        CAzureClient client(options, Account(variable));
        const auto bytes = conformance::MakeBytes(1, 20'000);
        conformance::Upload(client, "source &%+ \xC3\xA9", bytes);
        client.CopyFileAsync("source &%+ \xC3\xA9", "copy")->Wait();
        conformance::ExpectObject(client, "copy", bytes);
        const auto properties = Properties(options.prefix + "/copy");
        EXPECT_EQ(properties.Header("x-ms-copy-status"), "success") << variable;
        EXPECT_NE(properties.Header("x-ms-copy-id"), "") << variable;
    }
}

void SetTier(const std::string& name, const std::string& tier) {
    azure::CAzureConnection connection = Connect();
    azure::SRequest request;
    request.method = "PUT";
    request.blob = name;
    request.query = {{"comp", "tier"}};
    request.headers = {{"x-ms-access-tier", tier}};
    azure::CheckSuccess("SetTier", name, connection.Run(request));
}

TEST(AzureService, ArchivedObjectsAreToldAndBroughtBack) {
    const auto options = Options(FreshPrefix());
    CAzureClient client(options, Account(byKey));
    const auto bytes = conformance::MakeBytes(1, 1'000);
    conformance::Upload(client, "object", bytes);
    SetTier(options.prefix + "/object", "Archive");
    EXPECT_EQ(client.GetArchiveRetrievalStatus("object"), EArchiveRetrievalStatus::archived);
    EXPECT_EQ(Info(client, "object").tier, EStorageTier::archive);
    conformance::ExpectFailure(EFailure::conflict, "a download of an archived object",
                               [&] { static_cast<void>(conformance::Download(client, "object")); });
    conformance::ExpectFailure(EFailure::conflict, "a range of an archived object",
                               [&] { static_cast<void>(conformance::DownloadRange(client, "object", 1, 2)); });
    conformance::ExpectFailure(EFailure::conflict, "a stream of an archived object",
                               [&] { static_cast<void>(conformance::StreamDown(client, "object", 100)); });
    client.RetrieveArchive("object", {.speed = SRetrieveArchiveOptions::ESpeed::expedited});
    EXPECT_EQ(client.GetArchiveRetrievalStatus("object"), EArchiveRetrievalStatus::online);
    conformance::ExpectObject(client, "object", bytes);
}

TEST(AzureService, SomeObjectsGoToTheCoolTier) {
    auto options = SmallBlocks();
    options.isInfrequentlyAccessed = [](const std::string& path) { return path.starts_with("cool"); };
    CAzureClient client(options, Account(byKey));
    for (const char* name : {"cool", "warm"}) {
        const EStorageTier tier = *name == 'c' ? EStorageTier::infrequentAccess : EStorageTier::standard;
        conformance::Upload(client, name, conformance::MakeBytes(1, 10));
        EXPECT_EQ(Info(client, name).tier, tier) << name;
        conformance::Upload(client, name, conformance::MakeBytes(1, 20'000));
        EXPECT_EQ(Info(client, name).tier, tier) << name;
        EXPECT_EQ(Properties(options.prefix + "/" + name).Header("x-ms-access-tier"), *name == 'c' ? "Cool" : "Hot");
    }
    client.CopyFileAsync("warm", "cool copy")->Wait();
    EXPECT_EQ(Info(client, "cool copy").tier, EStorageTier::infrequentAccess);
}

std::string FailureText(azure::SAccount account, const std::string& name) {
    auto options = Options("");
    options.container = name;
    CAzureClient client(options, std::move(account));
    try {
        conformance::Upload(client, "object", {});
    } catch (const CCloudExc& failure) {
        return std::string(ToStr(failure.GetKind())) + ": " + failure.what();
    }
    return "no failure";
}

TEST(AzureService, RefusalsSayWhatToDo) {
    azure::SAccount wrongKey = Account(byKey);
    wrongKey.key.back() ^= 1;
    const std::string wrong = FailureText(wrongKey, container);
    EXPECT_TRUE(wrong.starts_with("access denied: UploadFile 'object': HTTP 403 Auth")) << wrong;
    EXPECT_NE(wrong.find("check the account key"), std::string::npos) << wrong;

    azure::SAccount wrongSignature = Account(bySignature);
    std::string query(wrongSignature.signature.begin(), wrongSignature.signature.end());
    const std::string value = "sig=d3Jvbmc%3D";
    query.replace(query.find("sig="), query.find('&', query.find("sig=")) - query.find("sig="), value);
    wrongSignature.signature = {query.begin(), query.end()};
    const std::string refused = FailureText(wrongSignature, container);
    EXPECT_TRUE(refused.starts_with("access denied: UploadFile 'object': HTTP 403 Auth")) << refused;
    EXPECT_EQ(refused.find("d3Jvbmc"), std::string::npos) << refused;

    const std::string missing = FailureText(Account(byKey), "no-such-container");
    EXPECT_TRUE(missing.starts_with("other: UploadFile 'object': HTTP 404 ContainerNotFound")) << missing;
    EXPECT_NE(missing.find("make the container, or correct its name"), std::string::npos) << missing;
}

TEST(AzureService, AMissingContainerIsNoMissingObject) {
    auto options = Options("");
    options.container = "no-such-container";
    CAzureClient client(options, Account(byKey));
    const auto fails = [&](const std::function<void()>& action) {
        conformance::ExpectFailure(EFailure::other, "an operation in a container that is not there", action);
    };
    fails([&] { static_cast<void>(client.IsFileExist("object")); });
    fails([&] { static_cast<void>(client.QueryFolder("")); });
    fails([&] { client.DeleteFileAsync("object")->Wait(); });
    fails([&] { static_cast<void>(conformance::Download(client, "object")); });
}

}  // namespace
}  // namespace clients
