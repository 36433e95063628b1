#include "agent/select/PathTree.h"

#include "agent/select/PatternList.h"

namespace agent {

void CPathTree::Add(std::string_view path) {
    SNode* node = &root_;
    for (const auto name : SplitLines(path, '/')) {
        if (node->isWhole) {
            return;
        }
        if (!name.empty()) {
            auto& child = node->children[std::string(name)];
            child = child ? std::move(child) : std::make_unique<SNode>();
            node = child.get();
        }
    }
    node->isWhole = true;
    node->children.clear();
}

std::vector<std::string> CPathTree::NamesOf(const SNode& node) {
    std::vector<std::string> names;
    for (const auto& [name, child] : node.children) {
        names.push_back(name);
    }
    return names;
}

}  // namespace agent
