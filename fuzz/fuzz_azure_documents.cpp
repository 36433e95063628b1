#include <cstdint>
#include <string>
#include <string_view>

#include "clients/azure/AzureBatch.h"
#include "clients/azure/AzureDocuments.h"
#include "clients/http/Uri.h"
#include "fuzz/Readers.h"

// What a Blob service answers is refused or read, by whichever reader gets it. The answer to a batch is read twice: as
// a whole message, and as one whose first line is its content type.

using fuzz::Require;
using fuzz::Try;

namespace {

using namespace clients;

void UseMd5(std::string_view text) {
    if (const auto md5 = azure::ReadMd5(text)) {
        Require(azure::ReadMd5(azure::WriteMd5(*md5)) == md5);
    }
}

void UseName(const std::string& name) {
    Require(!name.empty());
    Require(http::UriDecode(http::UriEncode(name, true), http::EPlus::itself) == name);
}

void UseListing(std::string_view text) {
    const azure::SListing listing = azure::ReadListing(text);
    for (const auto& blob : listing.blobs) {
        UseName(blob.name);
    }
    for (const auto& prefix : listing.prefixes) {
        UseName(prefix);
    }
}

void UseError(std::string_view text) {
    if (const auto error = azure::ReadError(text)) {
        Require(error->message.find_first_of("\r\n") == std::string::npos);
    }
}

void UseBatch(std::string_view contentType, std::string_view text) {
    const auto answers = azure::ReadBatchAnswer(contentType, text);
    Require(answers.size() <= azure::mostRequestsOfBatch);
    for (const auto& answer : answers) {
        Require(answer.status >= 100 && answer.status <= 999);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    UseError(text);
    for (const auto reader : {UseListing, UseMd5}) {
        Try([&] { reader(text); });
    }
    Try([&] { UseBatch("multipart/mixed; boundary=batchresponse_1", text); });
    if (const std::size_t end = text.find('\n'); end != std::string_view::npos) {
        Try([&] { UseBatch(text.substr(0, end), text.substr(end + 1)); });
    }
    return 0;
}
