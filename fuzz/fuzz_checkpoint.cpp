#include <cstdint>
#include <cstdlib>
#include <string>

#include "cloudbackuplib/CloudCheckpoint.h"
#include "common/exc.h"

// A checkpoint document from the cloud is refused or read, in either flavour; what is read is written to a text that
// reads and writes the same.

namespace {

using cloudbackuplib::backup::checkpoint::CCloudCheckpoint;
using cloudbackuplib::backup::checkpoint::CCloudDxrDescriptor;
using cloudbackuplib::backup::checkpoint::DxrContentFeature;

std::string Write(const CCloudCheckpoint& checkpoint, DxrContentFeature feature) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t root = xml::TiXmlCreateChild(document, "Checkpoint");
    checkpoint.Serialize(root, feature);
    return xml::TiXmlToStr(document);
}

std::shared_ptr<CCloudCheckpoint> Read(std::string_view text, DxrContentFeature feature) {
    return CCloudCheckpoint::Deserialize(xml::TiXmlGetChildExc(xml::TiXmlParseExc(text), "Checkpoint"), feature);
}

/// What is there can be packed anew, or is refused.
void UseContent(const CCloudDxrDescriptor& dxr) {
    std::string content;
    try {
        content = dxr.GetContent();
    } catch (const exc::CRuntimeExc&) {
        return;
    }
    if (CCloudDxrDescriptor(content).GetContent() != content) {
        std::abort();
    }
}

void Use(const CCloudCheckpoint& checkpoint) {
    UseContent(checkpoint.GetDxr());
    UseContent(checkpoint.GetDxrLongTerm());
    for (const auto& storage : checkpoint.GetStorages()) {
        static_cast<void>(checkpoint.GetStorageById(storage.GetStorageId()));
    }
    const std::string text = Write(checkpoint, DxrContentFeature::compatible);
    if (Write(*Read(text, DxrContentFeature::compatible), DxrContentFeature::compatible) != text) {
        std::abort();
    }
}

void Try(std::string_view text, DxrContentFeature feature) {
    std::shared_ptr<CCloudCheckpoint> checkpoint;
    try {
        checkpoint = Read(text, feature);
    } catch (const exc::CRuntimeExc&) {
        return;
    }
    Use(*checkpoint);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    Try(text, DxrContentFeature::compatible);
    Try(text, DxrContentFeature::longTerm);
    return 0;
}
