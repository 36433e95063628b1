#include "cloudbackuplib/EBSConnectionSpec.h"

#include "cloudbackuplib/platform/SpecDocument.h"

namespace cloudbackuplib::backup::platform::ebs {

std::string CEBSConnectionSpec::GetRootNodeName() { return "EBSConnSpec"; }

bool CEBSConnectionSpec::IsEBSConnSpec(const std::string& text) { return IsSpecDocument(text, GetRootNodeName()); }

}  // namespace cloudbackuplib::backup::platform::ebs
