// Moves a folder's files to a store and back, as fast as the client goes: what compare_stores.py measures beside a
// peer.
//
// store_bench up|down LOCATION FOLDER TRANSFERS      (the location's keys are in the environment)

#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "clients/registry/ClientRegistry.h"
#include "common/posix.h"

namespace {

using buffer_t = std::shared_ptr<cnt::array_t<char>>;

/// Keeps so many tasks in flight, and finishes them in order.
class CWindow {
public:
    explicit CWindow(std::size_t limit) : limit_(limit) {}
    void Add(task::task_ptr task, std::function<void()> then) {
        tasks_.emplace_back(std::move(task), std::move(then));
        while (tasks_.size() >= limit_) {
            FinishOne();
        }
    }
    void FinishAll() {
        while (!tasks_.empty()) {
            FinishOne();
        }
    }

private:
    void FinishOne() {
        tasks_.front().first->Wait();
        tasks_.front().second();
        tasks_.pop_front();
    }

    const std::size_t limit_;
    std::deque<std::pair<task::task_ptr, std::function<void()>>> tasks_;
};

buffer_t ReadFile(const std::string& path) {
    const auto file = posix::posix_file_t::Open4Read(path);
    auto bytes = std::make_shared<cnt::array_t<char>>(file.GetSize());
    bytes->resize(file.ReadAt(0, bytes->data(), bytes->size()));
    return bytes;
}

void WriteFile(const std::string& path, const cnt::array_t<char>& bytes) {
    posix::posix_file_t::OpenOrCreate4Write(path, true, 0).Write(bytes);
}

void Up(cloudclientlib::ICloudClient& client, const std::string& folder, std::size_t transfers) {
    CWindow window(transfers);
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename();
        window.Add(client.UploadFileAsync(name, ReadFile(entry.path())), [] {});
    }
    window.FinishAll();
}

void Down(cloudclientlib::ICloudClient& client, const std::string& folder, std::size_t transfers) {
    std::filesystem::create_directories(folder);
    CWindow window(transfers);
    for (const auto& entry : client.QueryFolder("")) {
        const auto bytes = std::make_shared<cnt::array_t<char>>();
        window.Add(client.DownloadFileAsync(entry.name, bytes),
                   [bytes, path = folder + "/" + entry.name] { WriteFile(path, *bytes); });
    }
    window.FinishAll();
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
        (arguments[1] == "up" ? Up : Down)(*client, arguments[3], network.connections);
    } catch (const std::exception& failure) {
        std::cerr << "store_bench: " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
