#include "cloudclientlib/conformance/Tools.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <latch>
#include <random>
#include <span>
#include <thread>

#include "common/digest.h"

namespace cloudclientlib::conformance {

namespace {

std::string Describe(const bytes_t& bytes) {
    return exc::Format("%1 bytes with MD5 %2", bytes.size(), digest::Md5(bytes));
}

/// The names that are in the one sorted list and not in the other; of many the first ones.
std::string Missing(const std::vector<std::string>& names, const std::vector<std::string>& from) {
    constexpr std::size_t most = 10;
    std::vector<std::string> missing;
    std::set_difference(names.begin(), names.end(), from.begin(), from.end(), std::back_inserter(missing));
    std::string text;
    for (std::size_t i = 0; i < std::min(missing.size(), most); ++i) {
        text += (i == 0 ? "'" : ", '") + missing[i] + '\'';
    }
    return text.empty() ? "nothing" : text + (missing.size() > most ? ", ..." : "");
}

}  // namespace

bytes_t MakeBytes(std::uint64_t seed, std::size_t size) {
    std::mt19937_64 random(seed);
    bytes_t bytes(size);
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < size; ++i) {
        word = i % 8 == 0 ? random() : word >> 8U;
        bytes[i] = static_cast<char>(word & 0xFFU);
    }
    return bytes;
}

ICloudClient::buffer_ptr Share(bytes_t bytes) { return std::make_shared<bytes_t>(std::move(bytes)); }

void Expect(bool isKept, const std::string& promise) {
    if (!isKept) {
        throw CConformanceFailure(promise);
    }
}

void ExpectBytes(const bytes_t& actual, const bytes_t& expected, const std::string& what) {
    Expect(actual == expected, what + ": expected " + Describe(expected) + ", got " + Describe(actual));
}

void Upload(ICloudClient& client, const std::string& path, const bytes_t& bytes) {
    client.UploadFileAsync(path, Share(bytes))->Wait();
}

bytes_t Download(ICloudClient& client, const std::string& path) {
    const auto buffer = Share({});
    client.DownloadFileAsync(path, buffer)->Wait();
    return std::move(*buffer);
}

bytes_t DownloadRange(ICloudClient& client, const std::string& path, unsigned long offset, unsigned long size) {
    const auto buffer = Share({});
    client.DownloadFileAsync(path, buffer, offset, size)->Wait();
    return std::move(*buffer);
}

void StreamUp(ICloudClient& client, const std::string& path, const bytes_t& bytes, std::size_t piece) {
    const auto stream = client.StartUpload(path, bytes.size());
    for (std::size_t begin = 0; begin < bytes.size(); begin += piece) {
        stream->Write(std::span(bytes).subspan(begin, std::min(piece, bytes.size() - begin)));
    }
    stream->Finish();
}

void UploadAll(ICloudClient& client, const std::vector<std::string>& paths,
               const std::function<bytes_t(std::size_t)>& bytesOf) {
    task::RunWindow(
        paths.size(), client.GetConcurrentTaskLimit(),
        [&](std::size_t i) { return client.UploadFileAsync(paths[i], Share(bytesOf(i))); }, [](std::size_t) {});
}

bytes_t ReadAll(IDownloadStream& stream, std::size_t piece) {
    bytes_t bytes;
    bytes_t buffer(piece);
    while (const std::size_t count = stream.Read(buffer)) {
        Expect(count <= piece, exc::Format("a stream read %1 bytes into a buffer of %2", count, piece));
        bytes.insert(bytes.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count));
    }
    return bytes;
}

bytes_t StreamDown(ICloudClient& client, const std::string& path, std::size_t piece) {
    return ReadAll(*client.StartDownload(path), piece);
}

void ExpectObject(ICloudClient& client, const std::string& path, const bytes_t& expected) {
    ExpectBytes(Download(client, path), expected, exc::Format("the content of '%1'", path));
    ExpectEqual(client.GetFileSize(path), expected.size(), exc::Format("the size of '%1'", path));
    Expect(client.IsFileExist(path), exc::Format("'%1' exists as an object", path));
    Expect(!client.IsFolderExist(path), exc::Format("'%1' does not exist as a folder", path));
}

void ExpectNoObject(ICloudClient& client, const std::string& path) {
    Expect(!client.IsFileExist(path), exc::Format("'%1' does not exist as an object", path));
    ExpectNotFound("DownloadFile", [&] { static_cast<void>(Download(client, path)); });
    ExpectNotFound("GetFileSize", [&] { static_cast<void>(client.GetFileSize(path)); });
}

std::vector<std::string> List(ICloudClient& client, const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : client.QueryFolder(folder)) {
        names.push_back(entry.isFolder ? entry.name + '/' : entry.name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

void ExpectList(ICloudClient& client, const std::string& folder, std::vector<std::string> expected) {
    std::sort(expected.begin(), expected.end());
    const auto actual = List(client, folder);
    if (actual != expected) {
        Expect(false, "the entries of folder '" + folder + "': missing " + Missing(expected, actual) +
                          "; not expected " + Missing(actual, expected));
    }
}

CCloudExc FailureOf(const std::string& what, const action_t& action) {
    try {
        action();
    } catch (const CCloudExc& failure) {
        return failure;
    } catch (const std::exception& failure) {
        throw CConformanceFailure(what + ": expected a failure of class CCloudExc, got another: " + failure.what());
    }
    throw CConformanceFailure(what + ": expected a failure, but it succeeded");
}

void ExpectFailure(EFailure kind, const std::string& what, const action_t& action) {
    const CCloudExc failure = FailureOf(what, action);
    ExpectEqual(ToStr(failure.GetKind()), ToStr(kind), what + ", the kind of the failure '" + failure.what() + "'");
}

void ExpectNotFound(std::string_view operation, const action_t& action) {
    const std::string what = std::string(operation) + " of an object that is not there";
    try {
        action();
    } catch (const CObjectNotFoundExc& failure) {
        ExpectEqual(ToStr(failure.GetKind()), ToStr(EFailure::notFound), what + ", the kind of the failure");
        ExpectEqual(failure.GetOperation(), operation, what + ", the operation of the failure");
        Expect(!failure.IsRetryable(), what + " is not worth a retry");
        return;
    } catch (const std::exception& failure) {
        throw CConformanceFailure(what + ": expected CObjectNotFoundExc, got another failure: " + failure.what());
    }
    throw CConformanceFailure(what + ": expected CObjectNotFoundExc, but it succeeded");
}

void CRecordedProgress::SetProgress(std::uint64_t done, std::uint64_t total) {
    const std::lock_guard lock(mutex_);
    isSound_ = isSound_ && done <= total && done >= done_ && total >= total_;
    done_ = done;
    total_ = total;
}

void CRecordedProgress::ExpectAll(std::uint64_t count) const {
    const std::lock_guard lock(mutex_);
    Expect(isSound_, "the progress of a deletion never goes back, nor past its total");
    ExpectEqual(done_, count, "the objects deleted, by the last progress");
    ExpectEqual(total_, count, "the objects in all, by the last progress");
}

void RunTogether(const std::vector<action_t>& actions) {
    std::latch start(static_cast<std::ptrdiff_t>(actions.size()));
    std::vector<std::exception_ptr> failures(actions.size());
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < actions.size(); ++i) {
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            try {
                actions[i]();
            } catch (...) {
                failures[i] = std::current_exception();
            }
        });
    }
    threads.clear();  // joins them
    for (const auto& failure : failures) {
        if (failure) {
            std::rethrow_exception(failure);
        }
    }
}

}  // namespace cloudclientlib::conformance
