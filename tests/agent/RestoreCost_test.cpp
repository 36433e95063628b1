#include <filesystem>

#include "cloudclientlib/wrappers/TraceClient.h"
#include "tests/agent/AgentFixture.h"

namespace agent {
namespace {

namespace fs = std::filesystem;

using RestoreCost = AgentTest;

TEST_F(RestoreCost, OneSmallFileCostsItsRangesAndTheMetadata) {
    for (int i = 0; i < 40; ++i) {
        WriteFile("large" + std::to_string(i), RandomBytes(1'500'000, static_cast<std::uint64_t>(i)));
    }
    MakeFolder("folder");
    WriteFile("folder/small", RandomBytes(20'000, 99));
    Backup();
    std::uint64_t metadata = 0;
    for (const auto& object : Objects("")) {
        metadata += object.find("/BlockStore/") == std::string::npos ? fs::file_size(object) : 0;
    }
    options_.stateFolder = dir_ / "another state";  // no local copy
    std::vector<std::shared_ptr<cloudclientlib::CTraceClient>> traces;
    options_.wrapStore = [&](std::shared_ptr<cloudclientlib::ICloudClient> client) {
        traces.push_back(std::make_shared<cloudclientlib::CTraceClient>(std::move(client)));
        return traces.back();
    };
    SRestoreOptions options;
    options.target = dir_ / "restored";
    options.selection.paths = {Source("folder/small")};
    const auto result = RunRestore(options_, options, {});
    EXPECT_EQ(result.statistics.files, 1U);
    std::uint64_t down = 0;
    for (const auto& trace : traces) {
        down += trace->GetTotals().Sum().bytesDown;
    }
    // Documents may be read more than once; a chunk is a MiB at most, and the file lies in two at most.
    EXPECT_GT(down, 20'000U);
    EXPECT_LT(down, 4 * metadata + (2U << 20U));
}

}  // namespace
}  // namespace agent
