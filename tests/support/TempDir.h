#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include <gtest/gtest.h>

namespace test {

/// A new, empty folder for one test, removed with all it holds at the end. Belongs to one owner; the constructor throws
/// std::system_error when the folder cannot be made.
class TempDir {
public:
    TempDir() : path_(testing::TempDir()) {
        if (path_.empty() || path_.back() != '/') {
            path_ += '/';
        }
        path_ += "cloudbackup.XXXXXX";
        if (::mkdtemp(path_.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), "mkdtemp " + path_);
        }
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir() {
        // What cannot be removed shall not hide the result of the test itself.
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    /// Without a slash at the end.
    [[nodiscard]] const std::string& GetPath() const { return path_; }
    /// The path of something inside the folder.
    [[nodiscard]] std::string operator/(std::string_view name) const { return (path_ + '/').append(name); }

private:
    std::string path_;
};

}  // namespace test
