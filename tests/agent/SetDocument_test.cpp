#include "agent/run/SetDocument.h"

#include <gmock/gmock.h>

#include "common/exc.h"

namespace agent {
namespace {

SSetDocument Example() {
    SSetDocument document;
    document.host = "host\xff";
    document.user = "user\x80";
    document.programVersion = "cloudbackup 1";
    document.tags = {"a", "b\xff"};
    document.description = "line\n\\ \xfe";
    document.started = {1'700'000'000, 5};
    document.finished = {1'700'000'009, 999'999'999};
    SRoot root;
    root.path = "/a b/\xc3\xa4\\\n\x80";
    root.storageId = guid::guid_t::FromStr("0123abcd-0000-4000-8000-000000000001");
    root.checkpoint = 7;
    root.headerSha256 = "00ff";
    std::uint64_t value = 100;
    for (const auto& [name, field] : StatisticsFields()) {
        root.statistics.*field = ++value;
    }
    document.roots = {root, SRoot{}};
    return document;
}

TEST(SetDocument, ReadsBackWhatItWrites) { EXPECT_EQ(SSetDocument::FromText(Example().ToText()), Example()); }

TEST(SetDocument, ReadsOlderOnesAndPassesOverWhatItDoesNotKnow) {
    const std::string text =
        R"({"version":1,"host":"h","started":{"seconds":1,"nanoseconds":2},"finished":{"seconds":3,"nanoseconds":4},)"
        R"("roots":[],"later":{"a":[1]}})";
    SSetDocument expected;
    expected.host = "h";
    expected.started = {1, 2};
    expected.finished = {3, 4};
    EXPECT_EQ(SSetDocument::FromText(text), expected);
}

TEST(SetDocument, EveryCutIsAnException) {
    const std::string text = Example().ToText();
    for (std::size_t size = 0; size < text.size(); ++size) {
        EXPECT_THROW((void)SSetDocument::FromText(text.substr(0, size)), exc::CRuntimeExc) << size;
    }
}

TEST(SetDocument, ALaterFormatIsRefusedByName) {
    std::string text = Example().ToText();
    text.replace(text.find("\"version\":1"), 11, "\"version\":2");
    try {
        (void)SSetDocument::FromText(text);
        FAIL() << "no exception";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_STREQ(
            failure.what(),
            "The checkpoint's backup-level document cannot be read: format version 2 is not known to this program");
    }
}

TEST(SetDocument, PathsComeBackFromTheirEscapedForm) {
    for (const std::string path : {"", "/plain", "\xc3\xa4", "\xff", "\\", "\\x41", "a\nb", "\xc3", "\xe2\x82"}) {
        EXPECT_EQ(UnescapePath(EscapePath(path)), path);
    }
    EXPECT_EQ(EscapePath("a\nb\xff\xc3\xa4\\"), "a\\x0ab\\xff\xc3\xa4\\\\");
    EXPECT_THROW((void)UnescapePath("bad \\q"), exc::CRuntimeExc);
}

TEST(SetDocument, AStorageIdFollowsFromClientSetAndPath) {
    const auto client = guid::guid_t::FromStr("0123abcd-0000-4000-8000-000000000001");
    const auto id = StorageIdOf(client, "default", "/home");
    EXPECT_EQ(id.ToAStr(), StorageIdOf(client, "default", "/home").ToAStr());
    EXPECT_NE(id.ToAStr(), StorageIdOf(client, "default", "/home2").ToAStr());
    EXPECT_NE(id.ToAStr(), StorageIdOf(client, "default2", "/home").ToAStr());
    EXPECT_EQ(id.ToAStr()[14], '8');
}

}  // namespace
}  // namespace agent
