#include "cloudclientlib/ObjectPath.h"

#include <algorithm>

#include "cloudclientlib/CloudExc.h"

namespace cloudclientlib {

std::vector<std::string> SplitObjectPath(std::string_view operation, const std::string& path) {
    const auto refuse = [&](const char* reason) {
        throw CCloudExc({EFailure::other, false, std::string(operation), path, reason});
    };
    if (path.find('\0') != std::string::npos) {
        refuse("invalid path: NUL byte");
    }
    std::vector<std::string> elements;
    for (std::size_t begin = 0; begin < path.size();) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        if (end > begin) {
            elements.push_back(path.substr(begin, end - begin));
            if (elements.back() == "." || elements.back() == "..") {
                refuse("invalid path: element '.' or '..'");
            }
        }
        begin = end + 1;
    }
    return elements;
}

std::string NormalizeObjectPath(std::string_view operation, const std::string& path) {
    std::string plain;
    for (const auto& element : SplitObjectPath(operation, path)) {
        if (!plain.empty()) {
            plain += '/';
        }
        plain += element;
    }
    return plain;
}

}  // namespace cloudclientlib
