#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

namespace cloudclientlib::conformance {

namespace {

/// Uploads an object by each name, alone in a folder and as a folder's name, then reads, lists and deletes them.
void KeepNames(CContext& context, const std::vector<std::string>& names) {
    ICloudClient& client = context.Client();
    std::vector<std::string> folders;
    for (std::size_t i = 0; i < names.size(); ++i) {
        Upload(client, "objects/" + names[i], MakeBytes(i, i + 1));
        Upload(client, "folders/" + names[i] + "/object", MakeBytes(i, i + 2));
        folders.push_back(names[i] + '/');
    }
    ExpectList(client, "objects", names);
    ExpectList(client, "folders", folders);
    for (std::size_t i = 0; i < names.size(); ++i) {
        ExpectObject(client, "objects/" + names[i], MakeBytes(i, i + 1));
        ExpectObject(client, "folders/" + names[i] + "/object", MakeBytes(i, i + 2));
        ExpectList(client, "folders/" + names[i], {"object"});
        ExpectEqual(client.GetFolderSize("folders/" + names[i]), i + 2, "the size of folder '" + names[i] + "'");
        client.CopyFileAsync("objects/" + names[i], "copy of/" + names[i])->Wait();
        ExpectObject(client, "copy of/" + names[i], MakeBytes(i, i + 1));
    }
    for (const auto& name : names) {
        client.DeleteFileAsync("objects/" + name)->Wait();
        client.DeleteFolderAsync("folders/" + name, nullptr)->Wait();
    }
    ExpectList(client, "objects", {});
    ExpectList(client, "folders", {});
}

void SpecialCharactersAreKept(CContext& context) {
    KeepNames(context, {"a b", "a+b",  "a%b",  "a#b",  "a?b", "a&b", "a=b", "a;b", "a,b", "a@b", "a!b", "a$b",
                        "a'b", "a(b)", "a[b]", "a{b}", "a~b", "a^b", "a`b", "a_b", "a-b", "-a",  "~",   "$HOME"});
}

void EscapesAreNotDecoded(CContext& context) {
    KeepNames(context, {"a b",
                        "a+b",
                        "a%20b",
                        "a%2Bb",
                        "a%2520b",
                        "a%",
                        "%",
                        "%zz",
                        "%2F",
                        "a%2Fb",
                        "a%2fb",
                        "%2e%2e",
                        "%00",
                        "A",
                        "%41",
                        "%2541",
                        "a%20",
                        "%20",
                        "+",
                        "%2B",
                        "%c3%a9",
                        "%C3%A9",
                        "\xC3\xA9",
                        "&amp;",
                        "&#0;",
                        "a&lt;b",
                        "a\xC2\xA0"
                        "b"});
}

/// What would mean something in an address, a header or a document.
void SyntaxInNamesIsKept(CContext& context) {
    KeepNames(context, {"?", "#", "&", "=", "\"", "'", "?uploads", "a?versionId=1", "a?partNumber=1&uploadId=2", "a\"b",
                        "\"quoted\"", "<Key>", "]]>", "a&quot;b"});
}

void DotsInNamesAreKept(CContext& context) {
    KeepNames(context, {"...", "....", ".a", "..a", "a.", "a..", "a.b", "a..b", ".tmp", ".hidden"});
}

void UnicodeIsKept(CContext& context) {
    KeepNames(context, {
                           "\xC3\xA9",                  // e with acute, composed
                           "e\xCC\x81",                 // the same to the eye, decomposed
                           "\xE6\x97\xA5\xE6\x9C\xAC",  // two ideographs
                           "\xD0\x96\xD1\x83\xD0\xBA",  // Cyrillic
                           "\xD7\xA9\xD7\x9C",          // right to left
                           "\xF0\x9F\x93\xA6",          // beyond the basic plane
                           "a\xE2\x80\x8B"
                           "b",                                     // zero width
                           "\xED\x95\x9C",                          // a Hangul syllable
                           "\xE1\x84\x92\xE1\x85\xA1\xE1\x86\xAB",  // the same, letter by letter
                           "\xC3\x85",                              // A with ring
                           "\xE2\x84\xAB",                          // the sign of the unit of that look
                           "\xEF\xAC\x81",                          // a ligature
                           "fi",
                           "\xC3\x9F",  // sharp s
                           "ss",
                       });
}

void LongNamesAreKept(CContext& context) {
    std::string unicode;
    for (int i = 0; i < 100; ++i) {
        unicode += "\xC3\xA9";
    }
    KeepNames(context, {std::string(200, 'x'), std::string(199, 'x'), std::string(199, 'x') + 'y', unicode});
}

void CaseMatters(CContext& context) { KeepNames(context, {"name", "Name", "NAME", "naMe"}); }

void FoldersNestDeeply(CContext& context) {
    constexpr int depth = 60;
    std::string path;
    for (int i = 10; i < 10 + depth; ++i) {
        path += 'd' + std::to_string(i) + '/';
    }
    Upload(context.Client(), path + "object", MakeBytes(1, 10));
    ExpectObject(context.Client(), path + "object", MakeBytes(1, 10));
    std::string folder;
    for (int i = 10; i < 10 + depth; ++i) {
        ExpectList(context.Client(), folder, {'d' + std::to_string(i) + '/'});
        folder += 'd' + std::to_string(i) + '/';
    }
    ExpectList(context.Client(), folder, {"object"});
    ExpectEqual(context.Client().GetFolderSize("d10"), 10U, "the size of the topmost folder");
    context.Client().DeleteFolderAsync("d10", nullptr)->Wait();
    ExpectNoObject(context.Client(), path + "object");
    ExpectList(context.Client(), "", {});
}

/// A store may be unable to hold a name; it then refuses it, and never stores the object under another.
void KeepOrRefuse(CContext& context, const std::string& name) {
    const bytes_t bytes = MakeBytes(name.size(), 100);
    bool isKept = true;
    try {
        Upload(context.Client(), "folder/" + name, bytes);
    } catch (const CCloudExc&) {
        isKept = false;
    }
    if (isKept) {
        ExpectObject(context.Client(), "folder/" + name, bytes);
        ExpectList(context.Client(), "folder", {name});
        context.Client().DeleteFileAsync("folder/" + name)->Wait();
    }
    ExpectList(context.Client(), "folder", {});
}

void OddNamesAreKeptOrRefused(CContext& context) {
    for (const std::string& name :
         {std::string("back\\slash"), std::string("..\\up"), std::string("line\nend"), std::string("tab\tand\rreturn"),
          std::string("\x01\x02\x1f\x7f"), std::string("\xFF\xFE no UTF-8"), std::string("cut \xC3"),
          std::string("trailing "), std::string(" leading"), std::string(" "), std::string("a:b"), std::string("a*b"),
          std::string("a<b>|\"c\""), std::string("CON"), std::string("name.lock"), std::string(255, 'x'),
          std::string(256, 'x'), std::string(300, 'x'), std::string(5000, 'x')}) {
        KeepOrRefuse(context, name);
    }
}

}  // namespace

void AddNameChecks(checks_t& checks) {
    checks.insert(checks.end(), {
                                    {"SpecialCharactersAreKept", SpecialCharactersAreKept},
                                    {"EscapesAreNotDecoded", EscapesAreNotDecoded},
                                    {"SyntaxInNamesIsKept", SyntaxInNamesIsKept},
                                    {"DotsInNamesAreKept", DotsInNamesAreKept},
                                    {"UnicodeIsKept", UnicodeIsKept},
                                    {"LongNamesAreKept", LongNamesAreKept},
                                    {"CaseMatters", CaseMatters, &SDeviations::caseIsFolded},
                                    {"FoldersNestDeeply", FoldersNestDeeply},
                                    {"OddNamesAreKeptOrRefused", OddNamesAreKeptOrRefused},
                                });
}

}  // namespace cloudclientlib::conformance
