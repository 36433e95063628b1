#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <string_view>

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/ICloudClient.h"

/// What the tests of the directory client share.
namespace clients::directory {

/// A new empty folder, deleted with its content in the end.
class CTestRoot {
public:
    CTestRoot();
    CTestRoot(const CTestRoot&) = delete;
    CTestRoot& operator=(const CTestRoot&) = delete;
    ~CTestRoot();

    [[nodiscard]] const std::string& GetPath() const { return path_; }
    /// The path of something in the folder.
    [[nodiscard]] std::string In(std::string_view name) const { return path_ + '/' + std::string(name); }

private:
    std::string path_;
};

[[nodiscard]] cloudclientlib::ICloudClient::buffer_ptr Buffer(std::string_view content);
[[nodiscard]] std::string Download(cloudclientlib::ICloudClient& client, const std::string& path);
void Upload(cloudclientlib::ICloudClient& client, const std::string& path, std::string_view content);

/// Files by path, past the client.
void WritePlain(const std::string& path, std::string_view content);
[[nodiscard]] std::string ReadPlain(const std::string& path);
/// How many entries the folder has; 0 when it is missing.
[[nodiscard]] std::size_t CountEntries(const std::string& path);

/// How many files lie in the folder, at any depth.
[[nodiscard]] std::size_t CountFiles(const std::string& path);

/// The CCloudExc that `action` throws, as "kind|message"; "no failure" without one.
[[nodiscard]] std::string FailureOf(const std::function<void()>& action);

/// Runs `action` in a child process and gives what went wrong there: what it returned or threw, or how the child died.
/// Empty when all went well. For what changes the process for good: mounts, users, limits, filters of system calls.
/// `meanwhile` runs in this process while the child does.
[[nodiscard]] std::string InChild(const std::function<std::string()>& action,
                                  const std::function<void()>& meanwhile = {});

/// For a child process: its own mount table, in which a file system in memory of the given size stands on `folder`.
/// Throws when the system allows neither root nor a user namespace to do so.
void MountPrivateTmpfs(const std::string& folder, const std::string& size);
/// Makes what was mounted so read-only.
void MakeReadOnly(const std::string& folder);

}  // namespace clients::directory
