#include "agent/select/Glob.h"

#include <algorithm>
#include <utility>

namespace agent {

void CGlob::AddLetter(char letter) { tokens_.push_back({EToken::letter, Fold(letter), 0}); }

void CGlob::AddAny() { tokens_.push_back({EToken::any, 0, 0}); }

void CGlob::AddMany() {
    if (tokens_.empty() || tokens_.back().kind != EToken::many) {
        tokens_.push_back({EToken::many, 0, 0});
    }
}

void CGlob::AddSet(set_t set) {
    if (ignoreCase_) {
        for (std::size_t upper = 'A'; upper <= 'Z'; ++upper) {
            const bool has = set[upper] || set[upper + 32];
            set[upper] = has;
            set[upper + 32] = has;
        }
    }
    tokens_.push_back({EToken::set, 0, static_cast<std::uint16_t>(sets_.size())});
    sets_.push_back(set);
}

void CGlob::Compile() {
    std::size_t begin = 0;
    for (; begin < tokens_.size() && tokens_[begin].kind == EToken::letter; ++begin) {
        prefix_ += tokens_[begin].letter;
    }
    std::size_t end = tokens_.size();
    for (; end > begin && tokens_[end - 1].kind == EToken::letter; --end) {
        suffix_ += tokens_[end - 1].letter;
    }
    std::reverse(suffix_.begin(), suffix_.end());
    tokens_ = std::vector<SToken>(tokens_.begin() + static_cast<std::ptrdiff_t>(begin),
                                  tokens_.begin() + static_cast<std::ptrdiff_t>(end));
}

bool CGlob::Matches(std::string_view name) const {
    const std::size_t fixed = prefix_.size() + suffix_.size();
    if (name.size() < fixed || !SameText(name.substr(0, prefix_.size()), prefix_) ||
        !SameText(name.substr(name.size() - suffix_.size()), suffix_)) {
        return false;
    }
    return MatchesTokens(name.substr(prefix_.size(), name.size() - fixed));
}

bool CGlob::SameText(std::string_view name, const std::string& text) const {
    if (!ignoreCase_) {
        return name == text;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (Fold(name[i]) != text[i]) {
            return false;
        }
    }
    return true;
}

bool CGlob::MatchesOne(const SToken& token, char c) const {
    switch (token.kind) {
        case EToken::letter:
            return Fold(c) == token.letter;
        case EToken::any:
            return true;
        case EToken::set:
            return sets_[token.set][static_cast<unsigned char>(c)];
        default:
            return false;
    }
}

bool CGlob::MayEndWith(char last) const {
    if (!suffix_.empty()) {
        return Fold(last) == suffix_.back();
    }
    if (!tokens_.empty()) {
        return tokens_.back().kind == EToken::many || MatchesOne(tokens_.back(), last);
    }
    return !prefix_.empty() && Fold(last) == prefix_.back();
}

/// Where it comes to nothing, only the last "*" needs to take a byte more: what the ones before it took is as good as
/// any other choice.
bool CGlob::MatchesTokens(std::string_view name) const {
    std::size_t token = 0;
    std::size_t at = 0;
    std::size_t afterMany = 0;
    std::size_t taken = 0;
    while (at < name.size()) {
        if (token < tokens_.size() && tokens_[token].kind == EToken::many) {
            afterMany = ++token;
            taken = at;
        } else if (token < tokens_.size() && MatchesOne(tokens_[token], name[at])) {
            ++token;
            ++at;
        } else if (afterMany != 0) {
            token = afterMany;
            at = ++taken;
        } else {
            return false;
        }
    }
    return token == tokens_.size() || (token + 1 == tokens_.size() && tokens_[token].kind == EToken::many);
}

}  // namespace agent
