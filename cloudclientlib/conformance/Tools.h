#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/ICloudClient.h"
#include "cloudclientlib/conformance/Conformance.h"
#include "common/format.h"
#include "common/progress.h"

/// What the checks are written with.
namespace cloudclientlib::conformance {

using bytes_t = cnt::array_t<char>;
using action_t = std::function<void()>;

constexpr std::size_t mebibyte = std::size_t{1} << 20U;

/// Bytes that look random and are the same for the same seed.
[[nodiscard]] bytes_t MakeBytes(std::uint64_t seed, std::size_t size);
[[nodiscard]] ICloudClient::buffer_ptr Share(bytes_t bytes);

void Expect(bool isKept, const std::string& promise);

/// Fails unless the two values, which have a text form, are equal.
template <class T, class U>
void ExpectEqual(const T& actual, const U& expected, const std::string& what) {
    Expect(actual == expected, what + ": expected '" + exc::ToArg(expected) + "', got '" + exc::ToArg(actual) + "'");
}

void ExpectBytes(const bytes_t& actual, const bytes_t& expected, const std::string& what);

// Operations done and waited for.
void Upload(ICloudClient& client, const std::string& path, const bytes_t& bytes);
[[nodiscard]] bytes_t Download(ICloudClient& client, const std::string& path);
[[nodiscard]] bytes_t DownloadRange(ICloudClient& client, const std::string& path, unsigned long offset,
                                    unsigned long size);
void StreamUp(ICloudClient& client, const std::string& path, const bytes_t& bytes, std::size_t piece);
[[nodiscard]] bytes_t StreamDown(ICloudClient& client, const std::string& path, std::size_t piece);
/// The numbered objects, with as many tasks in flight as the client allows; `bytesOf` makes their content.
void UploadAll(ICloudClient& client, const std::vector<std::string>& paths,
               const std::function<bytes_t(std::size_t)>& bytesOf);
/// The rest of a stream.
[[nodiscard]] bytes_t ReadAll(IDownloadStream& stream, std::size_t piece);

/// The object is there, whole, in every view of it: bytes, size, existence.
void ExpectObject(ICloudClient& client, const std::string& path, const bytes_t& expected);
/// No object is there, in any view.
void ExpectNoObject(ICloudClient& client, const std::string& path);

/// The names of a folder's entries, sorted; a folder's with a "/" behind.
[[nodiscard]] std::vector<std::string> List(ICloudClient& client, const std::string& folder);
void ExpectList(ICloudClient& client, const std::string& folder, std::vector<std::string> expected);

/// Runs an action that must fail with CCloudExc, and returns the failure.
[[nodiscard]] CCloudExc FailureOf(const std::string& what, const action_t& action);
/// The action must fail with that kind.
void ExpectFailure(EFailure kind, const std::string& what, const action_t& action);
/// The action must fail with CObjectNotFoundExc, as that operation.
void ExpectNotFound(std::string_view operation, const action_t& action);

/// Keeps what a deletion tells, and sees that it makes sense. Safe from any thread.
class CRecordedProgress : public progress::progress_base_t {
public:
    void SetProgress(std::uint64_t done, std::uint64_t total) override;
    void ExpectAll(std::uint64_t count) const;

private:
    mutable std::mutex mutex_;
    bool isSound_ = true;  // guarded by mutex_, as the rest
    std::uint64_t done_ = 0;
    std::uint64_t total_ = 0;
};

/// Runs the actions at once, each in a thread; when all have ended throws the first failure.
void RunTogether(const std::vector<action_t>& actions);

}  // namespace cloudclientlib::conformance
