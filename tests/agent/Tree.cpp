#include "tests/agent/Tree.h"

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>

#include "common/digest.h"

namespace agent {

namespace {

std::string ContentDigest(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    digest::CSha256 sha256;
    std::array<char, 65536> buffer{};
    while (file.read(buffer.data(), buffer.size()) || file.gcount() > 0) {
        sha256.Update({buffer.data(), static_cast<std::size_t>(file.gcount())});
    }
    return sha256.Finish().ToAStr();
}

std::string Xattrs(const std::string& path) {
    std::array<char, 4096> names{};
    const ssize_t length = ::llistxattr(path.c_str(), names.data(), names.size());
    std::set<std::string> lines;
    for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(std::string(names.data() + at).size()) + 1) {
        const std::string name = names.data() + at;
        std::array<char, 4096> value{};
        const ssize_t size = ::lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
        lines.insert(" " + name + "=" +
                     std::string(value.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))));
    }
    std::string text;
    for (const auto& line : lines) {
        text += line;
    }
    return text;
}

std::string Describe(const std::string& path, const std::string& name, std::map<ino_t, std::string>& firstNames) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
        return name + " missing";
    }
    std::string line = name + " mode " + std::to_string(info.st_mode) + " owner " + std::to_string(info.st_uid) + ":" +
                       std::to_string(info.st_gid) + " time " + std::to_string(info.st_mtim.tv_sec) + "." +
                       std::to_string(info.st_mtim.tv_nsec) + Xattrs(path);
    if (S_ISREG(info.st_mode)) {
        line += " size " + std::to_string(info.st_size) + " content " + ContentDigest(path);
        if (info.st_nlink > 1) {
            line += " same as " + firstNames.emplace(info.st_ino, name).first->second;
        }
    } else if (S_ISLNK(info.st_mode)) {
        line += " -> " + std::filesystem::read_symlink(path).string();
    } else if (S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode)) {
        line += " device " + std::to_string(info.st_rdev);
    }
    return line;
}

}  // namespace

std::vector<std::string> DescribeTree(const std::string& root) {
    std::set<std::string> names{""};
    if (std::filesystem::is_directory(root)) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            names.insert(entry.path().string().substr(root.size()));
        }
    }
    std::map<ino_t, std::string> firstNames;
    std::vector<std::string> lines;
    for (const auto& name : names) {
        lines.push_back(Describe(root + name, name, firstNames));
    }
    return lines;
}

std::vector<std::string> FilesUnder(const std::string& folder, const std::string& part) {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        const std::string path = entry.path().string();
        if (entry.is_regular_file() && path.find(part) != std::string::npos) {
            files.push_back(path);
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string RandomBytes(std::size_t size, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    std::string bytes(size, '\0');
    for (auto& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

}  // namespace agent
