#include "cloudbackuplib/backup/BlockNames.h"

#include <algorithm>
#include <functional>
#include <optional>

#include "cloudbackuplib/CloudPaths.h"

namespace cloudbackuplib::backup {

namespace {

/// The digit's value; 16 for what is no lower-case hexadecimal digit.
std::uint8_t ValueOf(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<std::uint8_t>(digit - '0');
    }
    return digit >= 'a' && digit <= 'f' ? static_cast<std::uint8_t>(digit - 'a' + 10) : std::uint8_t{16};
}

/// The digest that has exactly this name.
std::optional<digest::md5_digest_t> FromBlockName(const std::string& name) {
    digest::md5_digest_t digest;
    if (name.size() != 2 * digest.bytes.size()) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < digest.bytes.size(); ++i) {
        const std::uint8_t high = ValueOf(name[2 * i]);
        const std::uint8_t low = ValueOf(name[2 * i + 1]);
        if (high == 16 || low == 16) {
            return std::nullopt;
        }
        digest.bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return digest;
}

}  // namespace

void CBlockNames::Add(const std::string& name) {
    if (const auto digest = FromBlockName(name)) {
        digests_.push_back(*digest);
    } else {
        others_.insert(name);
    }
}

void CBlockNames::Sort() {
    std::sort(digests_.begin(), digests_.end(), std::greater<>());
    digests_.erase(std::unique(digests_.begin(), digests_.end()), digests_.end());
}

void CBlockNames::Remove(const std::vector<digest::md5_digest_t>& digests) {
    std::vector<bool> removed(digests_.size());
    for (const auto& digest : digests) {
        const auto found = std::lower_bound(digests_.begin(), digests_.end(), digest, std::greater<>());
        if (found != digests_.end() && *found == digest) {
            removed[static_cast<std::size_t>(found - digests_.begin())] = true;
        }
    }
    std::size_t kept = 0;
    for (std::size_t i = 0; i < digests_.size(); ++i) {
        if (!removed[i]) {
            digests_[kept++] = digests_[i];
        }
    }
    digests_.resize(kept);
}

std::string CBlockNames::TakeFirst() {
    // The order of digests is that of their names: '0' to '9' come before 'a' to 'f'.
    if (!digests_.empty()) {
        std::string name = paths::DigestToBlockName(digests_.back());
        if (others_.empty() || name < *others_.begin()) {
            digests_.pop_back();
            return name;
        }
    }
    return std::move(others_.extract(others_.begin()).value());
}

}  // namespace cloudbackuplib::backup
