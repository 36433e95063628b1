// Moves a folder's files to a store and back, as fast as the client goes: what compare_stores.py measures beside a
// peer. Each transfer has a thread and a buffer of its own; files over 8 MiB go as streams.
//
// store_bench up|down LOCATION FOLDER TRANSFERS      (the location's keys are in the environment)

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iostream>
#include <span>
#include <string>
#include <vector>

#include "clients/registry/ClientRegistry.h"
#include "cloudclientlib/WorkerPool.h"
#include "common/posix.h"

namespace {

using buffer_t = std::shared_ptr<cnt::array_t<char>>;
using cloudclientlib::ICloudClient;

constexpr std::uint64_t largestWhole = 8U << 20U;
constexpr std::size_t pieceSize = 1U << 20U;

void Up(ICloudClient& client, const std::string& name, const std::string& path, const buffer_t& buffer) {
    const auto file = posix::posix_file_t::Open4Read(path);
    const std::uint64_t size = file.GetSize();
    if (size <= largestWhole) {
        buffer->resize(size);
        buffer->resize(file.ReadAt(0, buffer->data(), size));
        client.UploadFileAsync(name, buffer)->Wait();
        return;
    }
    const auto stream = client.StartUpload(name, size);
    buffer->resize(pieceSize);
    for (std::uint64_t done = 0; done < size;) {
        const std::size_t count = file.ReadAt(done, buffer->data(), pieceSize);
        stream->Write({buffer->data(), count});
        done += count;
    }
    stream->Finish();
}

/// With its room set aside, as the peer does it: the file system need not look for more with every write.
posix::posix_file_t CreateFile(const std::string& path, std::uint64_t size) {
    auto file = posix::posix_file_t::OpenOrCreate4Write(path, true, 0);
    if (size != 0 && ::posix_fallocate(file.GetFd(), 0, static_cast<off_t>(size)) != 0) {
        throw posix::CPosixExc("set room aside for", path, errno);
    }
    return file;
}

void Down(ICloudClient& client, const cloudclientlib::SCloudObjectInfo& object, const std::string& path,
          const buffer_t& buffer) {
    auto file = CreateFile(path, object.size);
    if (object.size <= largestWhole) {
        client.DownloadFileAsync(object.name, buffer)->Wait();
        file.Write(*buffer);
        return;
    }
    const auto stream = client.StartDownload(object.name);
    buffer->resize(pieceSize);
    while (const std::size_t count = stream->Read(*buffer)) {
        file.Write(std::span(*buffer).first(count));
    }
}

/// Runs the transfers, so many at once; throws the first failure.
class CTransfers {
public:
    explicit CTransfers(std::size_t count) : buffers_(count), workers_(count) {
        for (auto& buffer : buffers_) {
            buffer = std::make_shared<cnt::array_t<char>>();
        }
    }
    void Add(std::function<void(const buffer_t& buffer)> transfer) {
        tasks_.push_back(workers_.Submit(
            [this, transfer = std::move(transfer)](std::size_t worker) { transfer(buffers_[worker]); }));
    }
    void WaitAll() {
        for (const auto& task : tasks_) {
            task->Wait();
        }
    }

private:
    std::vector<buffer_t> buffers_;  // each its worker's
    std::vector<task::task_ptr> tasks_;
    task::CWorkerPool workers_;  // last: gone before what its jobs use
};

void UpAll(ICloudClient& client, const std::string& folder, std::size_t count) {
    CTransfers transfers(count);
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        transfers.Add([&client, path = entry.path().string(), name = entry.path().filename().string()](
                          const buffer_t& buffer) { Up(client, name, path, buffer); });
    }
    transfers.WaitAll();
}

void DownAll(ICloudClient& client, const std::string& folder, std::size_t count) {
    std::filesystem::create_directories(folder);
    CTransfers transfers(count);
    for (const auto& object : client.QueryFolder("")) {
        transfers.Add([&client, object, path = folder + "/" + object.name](const buffer_t& buffer) {
            Down(client, object, path, buffer);
        });
    }
    transfers.WaitAll();
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv, argv + argc);
    if (arguments.size() != 5 || (arguments[1] != "up" && arguments[1] != "down")) {
        std::cerr << "usage: store_bench up|down LOCATION FOLDER TRANSFERS\n";
        return 2;
    }
    try {
        clients::SNetworkOptions network;
        network.connections = std::stoul(arguments[4]);
        const auto client = clients::OpenLocation(arguments[2], clients::ELocation::createMissing, network);
        (arguments[1] == "up" ? UpAll : DownAll)(*client, arguments[3], network.connections);
    } catch (const std::exception& failure) {
        std::cerr << "store_bench: " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
