#include "clients/azure/AzureBatch.h"

#include "clients/http/HeaderText.h"

#include <algorithm>
#include <cctype>

#include "clients/azure/AzureDocuments.h"
#include "common/exc.h"
#include "common/util.h"

namespace clients::azure {

namespace {

/// Takes the first line off the text, with its end, which may lack a carriage return.
std::string_view TakeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return line;
}

std::string BoundaryOf(std::string_view contentType) {
    const std::size_t found = http::ToLower(contentType).find("boundary=");
    std::string_view boundary = found == std::string::npos ? "" : contentType.substr(found + 9);
    if (boundary.starts_with('"')) {
        boundary.remove_prefix(1);
        boundary = boundary.substr(0, boundary.find('"'));
    } else {
        boundary = http::Trim(boundary.substr(0, boundary.find(';')));
    }
    if (boundary.empty()) {
        throw exc::CRuntimeExc("The answer to a batch has no boundary");
    }
    return std::string(boundary);
}

/// Calls `take` with the headers of a head, names in lower case, and takes them and the empty line off the text.
template <class F>
void TakeHeaders(std::string_view& text, const F& take) {
    while (!text.empty()) {
        const std::string_view line = TakeLine(text);
        if (line.empty()) {
            return;
        }
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            throw exc::CRuntimeExc("The answer to a batch holds a malformed header");
        }
        take(http::ToLower(http::Trim(line.substr(0, colon))), http::Trim(line.substr(colon + 1)));
    }
}

/// "HTTP/1.1 202 Accepted"
long ReadStatus(std::string_view line) {
    const std::size_t blank = line.find(' ');
    if (!line.starts_with("HTTP/") || blank == std::string_view::npos) {
        throw exc::CRuntimeExc("The answer to a batch holds a part that is no answer");
    }
    const std::string_view rest = line.substr(blank + 1);
    const auto status = util::str_to_uint64(rest.substr(0, rest.find(' ')));
    if (status < 100 || status > 999) {
        throw exc::CRuntimeExc("The answer to a batch holds the status %1", status);
    }
    return static_cast<long>(status);
}

SBatchAnswer ReadPart(std::string_view part) {
    SBatchAnswer answer;
    TakeHeaders(part, [&](const std::string& name, std::string_view value) {
        if (name == "content-id") {
            answer.request = util::str_to_uint64(value);
        }
    });
    answer.status = ReadStatus(TakeLine(part));
    TakeHeaders(part, [&](const std::string& name, std::string_view value) {
        if (name == "x-ms-error-code") {
            answer.code = value;
        } else if (name == "x-ms-request-id") {
            answer.requestId = value;
        }
    });
    while (!part.empty() && std::string_view("\r\n").find(part.back()) != std::string_view::npos) {
        part.remove_suffix(1);
    }
    if (auto error = ReadError(part)) {
        answer.code = std::move(error->code);
        answer.message = std::move(error->message);
    }
    return answer;
}

}  // namespace

std::string WriteBatch(const std::vector<std::string>& heads, std::string_view boundary) {
    const std::string line = "--" + std::string(boundary);
    std::string text;
    for (std::size_t i = 0; i < heads.size(); ++i) {
        text += line + "\r\nContent-Type: application/http\r\nContent-Transfer-Encoding: binary\r\nContent-ID: " +
                std::to_string(i) + "\r\n\r\n" + heads[i] + "\r\n";
    }
    return text + line + "--\r\n";
}

std::vector<SBatchAnswer> ReadBatchAnswer(std::string_view contentType, std::string_view text) {
    const std::string line = "--" + BoundaryOf(contentType);
    std::vector<SBatchAnswer> answers;
    std::size_t begin = text.find(line);
    while (begin != std::string_view::npos) {
        begin += line.size();
        if (text.substr(begin).starts_with("--")) {
            return answers;
        }
        const std::size_t end = text.find(line, begin);
        if (end == std::string_view::npos || answers.size() == mostRequestsOfBatch) {
            break;
        }
        std::string_view part = text.substr(begin, end - begin);
        static_cast<void>(TakeLine(part));
        answers.push_back(ReadPart(part));
        begin = end;
    }
    throw exc::CRuntimeExc(answers.size() == mostRequestsOfBatch ? "The answer to a batch has too many parts"
                                                                 : "The answer to a batch is cut off");
}

}  // namespace clients::azure
