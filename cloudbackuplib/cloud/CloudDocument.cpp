#include "cloudbackuplib/cloud/CloudDocument.h"

#include <memory>
#include <utility>

#include "common/cnt.h"
#include "common/exc.h"

namespace cloudbackuplib::backup::document {

namespace {

using buffer_ptr = cloudclientlib::ICloudClient::buffer_ptr;

buffer_ptr ToReadableBuffer(const std::string& path, const xml::xml_holder_t& document) {
    const std::string text = xml::TiXmlToStr(document);
    try {
        static_cast<void>(xml::TiXmlParseExc(text));
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Document '%1' is not written: it could not be read back", path);
    }
    return std::make_shared<cnt::array_t<char>>(text.begin(), text.end());
}

}  // namespace

std::optional<xml::xml_holder_t> Read(cloudclientlib::ICloudClient& client, const std::string& path) {
    if (!client.IsFileExist(path)) {
        return std::nullopt;
    }
    const auto buffer = std::make_shared<cnt::array_t<char>>();
    client.DownloadFileAsync(path, buffer)->Wait();
    return xml::TiXmlParseExc(std::string_view(buffer->data(), buffer->size()));
}

void Write(cloudclientlib::ICloudClient& client, const std::string& path, const xml::xml_holder_t& document) {
    client.UploadFileAsync(path, ToReadableBuffer(path, document))->Wait();
}

void WriteInFolder(cloudclientlib::ICloudClient& client, const std::string& folder, const std::string& path,
                   const xml::xml_holder_t& document) {
    buffer_ptr buffer = ToReadableBuffer(path, document);  // before anything changes in the cloud
    EnsureFolder(client, folder);
    client.UploadFileAsync(path, std::move(buffer))->Wait();
}

void EnsureFolder(cloudclientlib::ICloudClient& client, const std::string& path) {
    if (!client.IsFolderExist(path)) {
        client.CreateFolderAsync(path)->Wait();
    }
}

}  // namespace cloudbackuplib::backup::document
