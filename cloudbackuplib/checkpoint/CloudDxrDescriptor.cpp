#include "cloudbackuplib/CloudDxrDescriptor.h"

#include "common/alglib/zlib.h"
#include "common/exc.h"
#include "common/util.h"

namespace cloudbackuplib::backup::checkpoint {

namespace {

// What grows past it on reading is taken for hostile, so nothing longer is written.
constexpr std::size_t maxContentSize = std::size_t{1} << 30U;

}  // namespace

CCloudDxrDescriptor::CCloudDxrDescriptor(const std::string& plainContent) {
    if (plainContent.size() > maxContentSize) {
        throw exc::CRuntimeExc("DXR content of %1 bytes is longer than %2 bytes", plainContent.size(), maxContentSize);
    }
    if (!plainContent.empty()) {
        content_ = util::toBase64(*alglib::compress::CZlibUtil::CompressBest(plainContent));
    }
}

std::string CCloudDxrDescriptor::GetContent() const {
    if (content_.empty()) {
        return {};
    }
    const auto compressed = util::fromBase64(content_);
    if (compressed.empty()) {
        throw exc::CRuntimeExc("Invalid DXR content: '%1'", content_);
    }
    const auto plain = alglib::compress::CZlibUtil::Decompress(compressed, maxContentSize);
    return {plain->data(), plain->size()};
}

void CCloudDxrDescriptor::Serialize(xml::xml_holder_t& node) const {
    if (!content_.empty()) {
        xml::TiXmlSetStrAttr(node, "InlineContent", content_);
    }
}

void CCloudDxrDescriptor::Deserialize(const xml::xml_holder_t& node) {
    content_ = xml::TiXmlGetStrAttrSafe(node, "InlineContent");
}

}  // namespace cloudbackuplib::backup::checkpoint
