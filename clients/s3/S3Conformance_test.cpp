// The contract, kept on a real server. Run by tests/servers/with_server.py, which tells where it is.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "clients/s3/S3Client.h"
#include "clients/s3/S3Failure.h"
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

std::string Environment(const char* name) {
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody sets it
    if (value == nullptr || *value == '\0') {
        std::cerr << name << " is not set: run this by tests/servers/with_server.py\n";
        std::exit(1);  // NOLINT(concurrency-mt-unsafe): before any thread
    }
    return value;
}

std::shared_ptr<s3::ICredentials> Credentials() {
    const std::string secret = Environment("S3_TEST_SECRET");
    return std::make_shared<s3::CStaticCredentials>(
        s3::SCredentials{Environment("S3_TEST_KEY"), {secret.begin(), secret.end()}, {}});
}

s3::SBucket Bucket() { return {Environment("S3_TEST_ENDPOINT"), Environment("S3_TEST_REGION"), "conformance", false}; }

SS3ClientOptions Options(const std::string& prefix) {
    SS3ClientOptions options;
    options.bucket = Bucket();
    options.prefix = prefix;
    return options;
}

void MakeBucket() {
    s3::CS3Connection connection(Bucket(), Credentials(), {}, [] { return std::chrono::system_clock::now(); });
    s3::SRequest request;
    request.method = "PUT";
    s3::CheckSuccess("MakeBucket", "conformance", connection.Run(request));
}

using wrap_t = std::shared_ptr<ICloudClient> (*)(std::shared_ptr<ICloudClient>);

/// Each place is a prefix of its own in the one bucket; many clients share it.
conformance::factory_t Factory(wrap_t wrap) {
    return [wrap]() -> conformance::place_t {
        static std::atomic<unsigned> number{0};
        const std::string prefix = "place-" + std::to_string(++number);
        return [wrap, prefix] { return wrap(std::make_shared<CS3Client>(Options(prefix), Credentials())); };
    };
}

std::shared_ptr<ICloudClient> Plain(std::shared_ptr<ICloudClient> client) {
    if (Environment("S3_TEST_SERVER") == "ceph") {
        // It answers 500 to a ranged read that meets the object's replacement; a second one succeeds.
        return std::make_shared<CRetryClient>(std::move(client));
    }
    return client;
}

/// Behind every wrapper, those for tests and those for use.
std::shared_ptr<ICloudClient> Wrapped(std::shared_ptr<ICloudClient> client) {
    client = std::make_shared<CGateClient>(std::make_shared<CFaultClient>(std::move(client)));
    client = std::make_shared<CLimitClient>(std::make_shared<CCountingClient>(std::move(client)), SLimits{8, 0, 0});
    return std::make_shared<CRetryClient>(std::make_shared<CTraceClient>(std::move(client)));
}

conformance::SSettings Settings(bool large) {
    conformance::SSettings settings;
    // An object store keeps keys, not folders.
    settings.deviations.objectAndFolderShareAPath = true;
    settings.large = large;
    settings.rounds = 10;
    return settings;
}

[[maybe_unused]] const bool registered = [] {
    MakeBucket();
    return conformance::RegisterConformance("S3Conformance", Factory(&Plain), Settings(true)) &&
           conformance::RegisterConformance("WrappedS3Conformance", Factory(&Wrapped), Settings(false));
}();

/// A path of so many bytes, in elements that every store takes.
std::string PathOf(std::size_t size) {
    std::string path(size, 'q');
    for (std::size_t at = 200; at + 1 < size; at += 200) {
        path[at] = '/';
    }
    return path;
}

TEST(S3Service, AKeyOf1024BytesIsKeptAndALongerOneRefused) {
    const std::string prefix = "longest";
    const auto client = Plain(std::make_shared<CS3Client>(Options(prefix), Credentials()));
    const std::string path = PathOf(1024 - prefix.size() - 1);
    const auto bytes = conformance::MakeBytes(1, 1000);
    conformance::Upload(*client, path, bytes);
    conformance::ExpectObject(*client, path, bytes);
    const auto listed = client->QueryFolder(path.substr(0, path.rfind('/')));
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_EQ(listed.front().name, path.substr(path.rfind('/') + 1));
    EXPECT_THROW(conformance::Upload(*client, path + "q", bytes), CCloudExc);
    client->DeleteFileAsync(path)->Wait();
    conformance::ExpectNoObject(*client, path);
}

}  // namespace
}  // namespace clients
