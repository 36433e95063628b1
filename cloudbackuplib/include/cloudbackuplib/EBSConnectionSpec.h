#pragma once

#include <string>

#include "common/export.h"

namespace cloudbackuplib::backup::platform::ebs {

/// The connection specification of Amazon EBS, of which only the root element "EBSConnSpec" is known.
class CB_EXPORT CEBSConnectionSpec {
public:
    [[nodiscard]] static std::string GetRootNodeName();
    /// Whether the text is a document with the root element of this kind. Never fails.
    [[nodiscard]] static bool IsEBSConnSpec(const std::string& text);
};

}  // namespace cloudbackuplib::backup::platform::ebs
