#include "agent/cli/EntryForms.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "agent/cli/Output.h"
#include "agent/run/SetDocument.h"
#include "agent/select/PathScope.h"

namespace agent {

namespace {

struct STypeName {
    EEntryType type;
    char letter;      // of a mode
    char findLetter;  // of an option
    const char* name;
};

constexpr std::array<STypeName, 7> typeNames{{
    {EEntryType::directory, 'd', 'd', "folder"},
    {EEntryType::file, '-', 'f', "file"},
    {EEntryType::symlink, 'l', 'l', "symlink"},
    {EEntryType::hardLink, 'h', 'h', "hardlink"},
    {EEntryType::fifo, 'p', 'p', "fifo"},
    {EEntryType::charDevice, 'c', 'c', "chardevice"},
    {EEntryType::blockDevice, 'b', 'b', "blockdevice"},
}};

const STypeName& NamesOf(EEntryType type) {
    for (const auto& names : typeNames) {
        if (names.type == type) {
            return names;
        }
    }
    return typeNames[1];
}

std::string TargetOf(const SEntry& entry, const std::string& root) {
    return entry.type == EEntryType::hardLink ? FullPath(root, entry.target) : entry.target;
}

}  // namespace

const char* TypeName(EEntryType type) { return NamesOf(type).name; }

std::optional<EEntryType> TypeOfName(const std::string& name) {
    for (const auto& names : typeNames) {
        if (name == names.name || name == std::string(1, names.findLetter)) {
            return names.type;
        }
    }
    return std::nullopt;
}

std::string ModeText(const SEntry& entry) {
    std::string text(1, NamesOf(entry.type).letter);
    static constexpr std::array<char, 9> letters{'r', 'w', 'x', 'r', 'w', 'x', 'r', 'w', 'x'};
    for (std::size_t i = 0; i < letters.size(); ++i) {
        text += (entry.mode & (0400U >> i)) != 0 ? letters[i] : '-';
    }
    const auto special = [&](std::uint32_t bit, std::size_t at, char set, char setWithoutX) {
        if ((entry.mode & bit) != 0) {
            text[at] = text[at] == 'x' ? set : setWithoutX;
        }
    };
    special(04000, 3, 's', 'S');
    special(02000, 6, 's', 'S');
    special(01000, 9, 't', 'T');
    return text;
}

std::string EntryColumns(const SEntry& entry, bool humanSizes) {
    const std::string size = humanSizes ? FormatBytes(entry.size) : std::to_string(entry.size);
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), "%s %5u %5u %12s %s", ModeText(entry).c_str(), entry.uid, entry.gid,
                  size.c_str(), ToIsoText(entry.mtime).c_str());
    return text.data();
}

std::string LinkText(const SEntry& entry, const std::string& root) {
    const std::string target = TargetOf(entry, root);
    return target.empty() ? "" : " -> " + EscapePath(target);
}

nlohmann::json EntryToJson(const std::string& event, const std::string& fullPath, const SEntry& entry,
                           const std::string& root) {
    nlohmann::json value{{"event", event},
                         {"path", EscapePath(fullPath)},
                         {"type", TypeName(entry.type)},
                         {"mode", entry.mode},
                         {"uid", entry.uid},
                         {"gid", entry.gid},
                         {"size", entry.size},
                         {"mtime", ToIsoText(entry.mtime)}};
    if (const std::string target = TargetOf(entry, root); !target.empty()) {
        value["target"] = EscapePath(target);
    }
    return value;
}

}  // namespace agent
