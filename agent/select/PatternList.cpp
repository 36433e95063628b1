#include "agent/select/PatternList.h"

#include <utility>

namespace agent {

namespace {

/// A pattern that can match names with more last bytes than this is looked at for every name: to note it for each of
/// them would cost a hundred times the pattern's own size.
constexpr std::size_t mostLastBytes = 8;

}  // namespace

void CPatternList::Add(CPattern pattern) {
    const std::size_t index = patterns_.size();
    if (const std::string* name = pattern.GetPlainName()) {
        plain_[*name].push_back(index);
    } else {
        AddByLastByte(pattern, static_cast<std::uint32_t>(index));
    }
    patterns_.push_back(std::move(pattern));
}

void CPatternList::AddByLastByte(const CPattern& pattern, std::uint32_t index) {
    std::vector<std::uint8_t> bytes;
    for (unsigned byte = 0; byte < 256; ++byte) {
        if (pattern.MayEndWith(static_cast<char>(byte))) {
            bytes.push_back(static_cast<std::uint8_t>(byte));
        }
    }
    if (bytes.size() > mostLastBytes) {
        byAnyByte_.push_back(index);
        return;
    }
    byLastByte_.resize(256);
    for (const std::uint8_t byte : bytes) {
        byLastByte_[byte].push_back(index);
    }
}

void CPatternList::AddLines(std::string_view text, ECase letters) {
    for (const auto line : SplitLines(WithoutByteOrderMark(text))) {
        if (auto pattern = CPattern::Parse(line, letters)) {
            Add(*std::move(pattern));
        }
    }
}

EVerdict CPatternList::Judge(std::string_view path, std::string_view name, bool isFolder) const {
    std::size_t found = 0;  // one more than the index of the last that matches
    const auto plain = plain_.empty() ? plain_.end() : plain_.find(name);
    if (plain != plain_.end()) {
        for (auto index = plain->second.rbegin(); index != plain->second.rend() && found == 0; ++index) {
            found = patterns_[*index].Matches(path, name, isFolder) ? *index + 1 : 0;
        }
    }
    const auto look = [&](const std::vector<std::uint32_t>& others) {
        for (auto index = others.rbegin(); index != others.rend() && *index + 1U > found; ++index) {
            found = patterns_[*index].Matches(path, name, isFolder) ? *index + 1U : found;
        }
    };
    if (!byLastByte_.empty() && !name.empty()) {
        look(byLastByte_[static_cast<unsigned char>(name.back())]);
    }
    look(byAnyByte_);
    if (found == 0) {
        return EVerdict::none;
    }
    return patterns_[found - 1].IsNegated() ? EVerdict::take : EVerdict::leave;
}

std::string_view WithoutByteOrderMark(std::string_view text) {
    constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
    text.remove_prefix(text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0);
    return text;
}

std::vector<std::string_view> SplitLines(std::string_view text, char end) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t size = std::min(text.find(end), text.size());
        lines.push_back(text.substr(0, size));
        text.remove_prefix(std::min(size + 1, text.size()));
    }
    return lines;
}

}  // namespace agent
