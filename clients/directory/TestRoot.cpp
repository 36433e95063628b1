#include "clients/directory/TestRoot.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "common/export.h"

extern "C" {
// What the thread sanitizer cannot know about these tests, under the names it asks for.
// NOLINTBEGIN(bugprone-reserved-identifier)
CB_EXPORT const char* __tsan_default_options();
CB_EXPORT const char* __tsan_default_suppressions();
}

// Children are forked by programs that have had threads.
const char* __tsan_default_options() { return "die_after_fork=0"; }

// An exception's count of holders lives in the C++ library, which is not instrumented: when a worker is the last to let
// a task's failure go, the sanitizer does not see that it comes after the reader's letting go.
const char* __tsan_default_suppressions() { return "race:std::__exception_ptr::exception_ptr::_M_release\n"; }
// NOLINTEND(bugprone-reserved-identifier)

namespace clients::directory {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::generic_category().message(errno));
}

void WriteTextTo(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    if (!file.flush()) {
        Fail("write " + path);
    }
}

/// One that is not root may mount in a user namespace of its own, where it is root.
void EnterUserNamespace() {
    const auto user = std::to_string(::getuid());
    const auto group = std::to_string(::getgid());
    if (::unshare(CLONE_NEWUSER) != 0) {
        Fail("this test needs root or user namespaces: unshare(CLONE_NEWUSER)");
    }
    WriteTextTo("/proc/self/setgroups", "deny");
    WriteTextTo("/proc/self/uid_map", "0 " + user + " 1");
    WriteTextTo("/proc/self/gid_map", "0 " + group + " 1");
}

std::string Run(const std::function<std::string()>& action) {
    try {
        return action();
    } catch (const std::exception& failure) {
        return std::string("exception: ") + failure.what();
    }
}

void WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const auto written = ::write(fd, text.data(), text.size());
        if (written <= 0) {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

std::string ReadToEnd(int fd) {
    std::string text;
    char piece[4096];
    for (ssize_t got = 0; (got = ::read(fd, piece, sizeof(piece))) > 0;) {
        text.append(piece, static_cast<std::size_t>(got));
    }
    return text;
}

}  // namespace

CTestRoot::CTestRoot() : path_(testing::TempDir() + "directory_client_XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) {
        Fail("mkdtemp " + path_);
    }
}

CTestRoot::~CTestRoot() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

cloudclientlib::ICloudClient::buffer_ptr Buffer(std::string_view content) {
    return std::make_shared<cnt::array_t<char>>(content.begin(), content.end());
}

std::string Download(cloudclientlib::ICloudClient& client, const std::string& path) {
    auto buffer = Buffer("");
    client.DownloadFileAsync(path, buffer)->Wait();
    return {buffer->begin(), buffer->end()};
}

void Upload(cloudclientlib::ICloudClient& client, const std::string& path, std::string_view content) {
    client.UploadFileAsync(path, Buffer(content))->Wait();
}

void WritePlain(const std::string& path, std::string_view content) {
    std::ofstream file(path, std::ios::binary);
    file << content;
    if (!file.flush()) {
        Fail("write " + path);
    }
}

std::string ReadPlain(const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    if (!file) {
        Fail("read " + path);
    }
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::size_t CountEntries(const std::string& path) {
    if (!fs::exists(path)) {
        return 0;
    }
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(path), fs::directory_iterator()));
}

std::size_t CountFiles(const std::string& path) {
    std::size_t count = 0;
    for (const auto& entry : fs::recursive_directory_iterator(path)) {
        if (entry.is_regular_file()) {
            ++count;
        }
    }
    return count;
}

std::string FailureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const cloudclientlib::CCloudExc& failure) {
        return std::string(ToStr(failure.GetKind())) + "|" + failure.GetMessage();
    }
    return "no failure";
}

std::string InChild(const std::function<std::string()>& action, const std::function<void()>& meanwhile) {
    int ends[2];
    if (::pipe(ends) != 0) {
        Fail("pipe");
    }
    const pid_t child = ::fork();
    if (child < 0) {
        Fail("fork");
    }
    if (child == 0) {
        ::close(ends[0]);
        WriteAll(ends[1], Run(action));
        ::_exit(0);
    }
    ::close(ends[1]);
    if (meanwhile) {
        meanwhile();
    }
    auto text = ReadToEnd(ends[0]);
    ::close(ends[0]);
    int status = 0;
    if (::waitpid(child, &status, 0) != child) {
        Fail("waitpid");
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        text += " [the child ended with status " + std::to_string(status) + "]";
    }
    return text;
}

void MountPrivateTmpfs(const std::string& folder, const std::string& size) {
    if (::getuid() != 0) {
        EnterUserNamespace();
    }
    if (::unshare(CLONE_NEWNS) != 0) {
        Fail("this test needs a mount namespace: unshare(CLONE_NEWNS)");
    }
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        Fail("make mounts private");
    }
    if (::mount("tmpfs", folder.c_str(), "tmpfs", 0, ("size=" + size).c_str()) != 0) {
        Fail("mount a tmpfs on " + folder);
    }
}

void MakeReadOnly(const std::string& folder) {
    if (::mount("tmpfs", folder.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
        Fail("remount read-only: " + folder);
    }
}

}  // namespace clients::directory
