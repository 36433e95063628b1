#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "common/exc.h"
#include "common/xml.h"

// A text from the cloud is refused or read; what is read prints to a text whose elements and attributes read the same.

namespace {

/// The tags of a printed document, without what stands between them: printing indents character data anew each time.
std::string TagsOf(std::string_view text) {
    std::string tags;
    std::size_t at = 0;
    while ((at = text.find('<', at)) != std::string_view::npos) {
        const std::string_view rest = text.substr(at);
        const bool comment = rest.starts_with("<!--");
        const std::string_view end = comment ? "-->" : rest.starts_with("<![") ? "]]>" : ">";
        const std::size_t size = rest.find(end, comment ? 4 : 1) + end.size();
        if (rest[1] != '!' && rest[1] != '?') {
            tags += rest.substr(0, size);
        }
        at += size;
    }
    return tags;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string printed;
    try {
        printed = xml::TiXmlToStr(xml::TiXmlParseExc({reinterpret_cast<const char*>(data), size}));
    } catch (const exc::CRuntimeExc&) {
        return 0;
    }
    if (TagsOf(xml::TiXmlToStr(xml::TiXmlParseExc(printed))) != TagsOf(printed)) {
        std::abort();
    }
    return 0;
}
