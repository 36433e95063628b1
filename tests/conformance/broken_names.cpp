#include <cctype>

#include "cloudclientlib/ObjectPath.h"
#include "tests/conformance/HookedClient.h"

namespace cloudclientlib::conformance {

namespace {

SHooks WithMap(std::function<std::string(text_t)> map) {
    SHooks hooks;
    hooks.map = std::move(map);
    return hooks;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

/// "." and ".." are followed and a NUL ends the path, as a file system would have it.
SHooks FollowsDots() {
    return WithMap([](text_t path) {
        std::vector<std::string> elements;
        const std::string cut = path.substr(0, path.find('\0'));
        for (std::size_t begin = 0; begin <= cut.size();) {
            const std::size_t end = std::min(cut.find('/', begin), cut.size());
            const std::string element = cut.substr(begin, end - begin);
            if (element == ".." && !elements.empty()) {
                elements.pop_back();
            } else if (!element.empty() && element != "." && element != "..") {
                elements.push_back(element);
            }
            begin = end + 1;
        }
        std::string result;
        for (const auto& element : elements) {
            result += '/' + element;
        }
        return result;
    });
}

SHooks TakesPathsVerbatim() {
    return WithMap([](text_t path) {
        std::string real = Replaced(path, "//", "/_/");
        return !real.empty() && real.front() == '/' ? '_' + real : real;
    });
}

SHooks FailuresNamePlainPaths() {
    return WithMap([](text_t path) { return path.starts_with('/') ? Plain(path) : path; });
}

SHooks PlusIsASpace() {
    return WithMap([](text_t path) { return Replaced(path, "+", " "); });
}

SHooks EscapesAreDecoded() {
    return WithMap([](text_t path) { return Replaced(Replaced(path, "%20", " "), "%2B", "+"); });
}

SHooks EncodedLettersAreDecoded() {
    return WithMap([](text_t path) { return Replaced(path, "%41", "A"); });
}

SHooks EncodedSlashesAreDecoded() {
    return WithMap([](text_t path) { return Replaced(path, "%2F", "/"); });
}

/// As if a name went into an address as it is.
SHooks QueriesAreCutOff() {
    return WithMap([](text_t path) {
        const auto query = path.find("?");
        return query == std::string::npos || query == 0 ? path : path.substr(0, query);
    });
}

SHooks QuotesAreDropped() {
    return WithMap([](text_t path) { return Replaced(path, "\"", ""); });
}

/// The names are right in requests and wrong in the addresses of streams.
SHooks StreamsDecodeNames() {
    SHooks hooks;
    hooks.startUpload = [](const client_ptr& client, text_t path, unsigned long size) {
        return client->StartUpload(Replaced(path, "+", " "), size);
    };
    hooks.startDownload = [](const client_ptr& client, text_t path) {
        return client->StartDownload(Replaced(path, "+", " "));
    };
    return hooks;
}

SHooks LongPathsAreCut() {
    return WithMap([](text_t path) { return path.substr(0, 1010); });
}

SHooks BlanksAreTrimmed() {
    return WithMap([](text_t path) { return Replaced(path, " /", "/"); });
}

SHooks CompatibleFormsAreOne() {
    return WithMap([](text_t path) { return Replaced(path, "\xE2\x84\xAB", "\xC3\x85"); });
}

SHooks NamesAreTrimmed() {
    return WithMap([](text_t path) {
        std::string real = path;
        while (!real.empty() && (real.back() == '.' || real.back() == ' ') && !real.ends_with("/..")) {
            real.pop_back();
        }
        return real;
    });
}

SHooks HiddenNamesAreNotListed() {
    SHooks hooks;
    hooks.list = [](ICloudClient& client, text_t path) {
        auto entries = client.QueryFolder(path);
        std::erase_if(entries, [](const SCloudObjectInfo& entry) { return entry.name.starts_with('.'); });
        return entries;
    };
    return hooks;
}

SHooks UnicodeIsComposed() {
    return WithMap([](text_t path) { return Replaced(path, "e\xCC\x81", "\xC3\xA9"); });
}

SHooks LongNamesAreCut() {
    return WithMap([](text_t path) {
        std::string real;
        for (const auto& element : SplitObjectPath("Test", path)) {
            real += '/' + element.substr(0, 150);
        }
        return real;
    });
}

SHooks CaseIsFolded() {
    return WithMap([](text_t path) {
        std::string real = path;
        for (char& c : real) {
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        return real;
    });
}

SHooks LongPathsAreRefused() {
    SHooks hooks;
    hooks.upload = [](ICloudClient& client, text_t path, const buffer_ptr& data) {
        if (path.size() > 220) {
            Fail("UploadFile", path);
        }
        Put(client, path, *data);
    };
    return hooks;
}

SHooks BackslashSeparates() {
    return WithMap([](text_t path) { return Replaced(path, "\\", "/"); });
}

}  // namespace

std::vector<SBroken> BrokenInNames() {
    std::vector<std::string> refusals;
    for (const char* operation :
         {"DownloadFile", "DownloadFileRange", "CopyFileSource", "GetFileSize", "IsFileExist", "GetFolderSize",
          "IsFolderExist", "QueryFolder", "GetObjectCount", "StartDownload", "GetArchiveRetrievalStatus", "UploadFile",
          "CopyFileTarget", "DeleteFile", "CreateFolder", "DeleteFolder", "StartUpload", "RetrieveArchive"}) {
        refusals.push_back(std::string("InvalidPathsAreRefusedBy") + operation);
    }
    return {
        {"FollowsDots", FollowsDots, refusals},
        {"TakesPathsVerbatim",
         TakesPathsVerbatim,
         {"FormsReadTheSame", "FormsWriteTheSame", "FormsOfFolderAreTheSame"}},
        {"FailuresNamePlainPaths", FailuresNamePlainPaths, {"FailureNamesPathAsGiven"}},
        {"PlusIsASpace", PlusIsASpace, {"SpecialCharactersAreKept", "EscapesAreNotDecoded"}},
        {"EscapesAreDecoded", EscapesAreDecoded, {"EscapesAreNotDecoded"}},
        {"EncodedLettersAreDecoded",
         EncodedLettersAreDecoded,
         {"EscapesAreNotDecoded", "NamesAreKeptByEveryOperation"}},
        {"EncodedSlashesAreDecoded", EncodedSlashesAreDecoded, {"EncodedSlashIsNoSeparator"}},
        {"QueriesAreCutOff", QueriesAreCutOff, {"SyntaxInNamesIsKept", "NamesAreKeptByEveryOperation"}},
        {"QuotesAreDropped", QuotesAreDropped, {"SyntaxInNamesIsKept"}},
        {"StreamsDecodeNames", StreamsDecodeNames, {"NamesAreKeptByEveryOperation"}},
        {"LongPathsAreCut", LongPathsAreCut, {"LongestPathsAreKeptOrRefused"}},
        {"BlanksAreTrimmed", BlanksAreTrimmed, {"TrailingBlanksAreKeptOrRefused"}},
        {"CompatibleFormsAreOne", CompatibleFormsAreOne, {"UnicodeIsKept"}},
        {"NamesAreTrimmed",
         NamesAreTrimmed,
         {"DotsInNamesAreKept", "OddNamesAreKeptOrRefused", "TrailingBlanksAreKeptOrRefused"}},
        {"HiddenNamesAreNotListed", HiddenNamesAreNotListed, {"DotsInNamesAreKept"}},
        {"UnicodeIsComposed", UnicodeIsComposed, {"UnicodeIsKept"}},
        {"LongNamesAreCut", LongNamesAreCut, {"LongNamesAreKept", "OddNamesAreKeptOrRefused"}},
        {"CaseIsFolded", CaseIsFolded, {"CaseMatters"}},
        {"LongPathsAreRefused", LongPathsAreRefused, {"FoldersNestDeeply", "LongPathsAreKept"}},
        {"BackslashSeparates", BackslashSeparates, {"OddNamesAreKeptOrRefused"}},
    };
}

}  // namespace cloudclientlib::conformance
