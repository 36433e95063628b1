#include "cloudbackuplib/cloud/CloudDocument.h"

#include <gmock/gmock.h>

#include <string>

#include "cloudclientlib/CloudExc.h"
#include "common/exc.h"
#include "tests/support/MockCloudClient.h"

namespace cloudbackuplib::backup::document {
namespace {

using testing::_;
using testing::InSequence;
using testing::Return;

using buffer_ptr = cloudclientlib::ICloudClient::buffer_ptr;

task::task_ptr Failing() {
    return task::RunNow([] { throw cloudclientlib::CObjectNotFoundExc("op", "p"); });
}

auto Filling(std::string text) {
    return [text](const std::string&, const buffer_ptr& buffer) {
        return task::RunNow([&] { buffer->assign(text.begin(), text.end()); });
    };
}

auto KeepingIn(std::string& text) {
    return [&text](const std::string&, const buffer_ptr& buffer) {
        return task::RunNow([&] { text.assign(buffer->begin(), buffer->end()); });
    };
}

/// Something that writes itself into an element.
struct SNote {
    void Serialize(xml::xml_holder_t& element) const { xml::TiXmlSetStrAttr(element, "Text", "a & b"); }
};

const std::string noteText = "<Note Text=\"a &amp; b\" />\n";

xml::xml_holder_t NoteDocument() { return Make("Note", SNote()); }

class CloudDocument : public testing::Test {
protected:
    testing::StrictMock<test::MockCloudClient> client_;
};

TEST_F(CloudDocument, IsNotThereWhenTheObjectIsNot) {
    EXPECT_CALL(client_, IsFileExist("p")).WillOnce(Return(false));
    EXPECT_FALSE(Read(client_, "p").has_value());
}

TEST_F(CloudDocument, IsReadWhole) {
    EXPECT_CALL(client_, IsFileExist("p")).WillOnce(Return(true));
    EXPECT_CALL(client_, DownloadFileAsync("p", _)).WillOnce(Filling("<A B=\"c\"/>"));
    const auto document = Read(client_, "p");
    ASSERT_TRUE(document.has_value());
    EXPECT_EQ(xml::TiXmlGetStrAttrExc(xml::TiXmlGetChildExc(*document, "A"), "B"), "c");
}

TEST_F(CloudDocument, PassesAFailedDownloadThrough) {
    EXPECT_CALL(client_, IsFileExist("p")).WillOnce(Return(true));
    EXPECT_CALL(client_, DownloadFileAsync("p", _)).WillOnce(Return(Failing()));
    EXPECT_THROW(static_cast<void>(Read(client_, "p")), cloudclientlib::CObjectNotFoundExc);
}

TEST_F(CloudDocument, IsRefusedWhenDamaged) {
    EXPECT_CALL(client_, IsFileExist("p")).WillRepeatedly(Return(true));
    for (const std::string& text : {std::string(), std::string("<A>"), std::string("<A/>\0", 5), std::string("x")}) {
        EXPECT_CALL(client_, DownloadFileAsync("p", _)).WillOnce(Filling(text));
        EXPECT_THROW(static_cast<void>(Read(client_, "p")), exc::CRuntimeExc) << text;
    }
}

TEST_F(CloudDocument, IsWrittenWhole) {
    std::string text;
    EXPECT_CALL(client_, UploadFileAsync("p", _)).WillOnce(KeepingIn(text));
    Write(client_, "p", NoteDocument());
    EXPECT_EQ(text, noteText);
}

TEST_F(CloudDocument, PassesAFailedUploadThrough) {
    EXPECT_CALL(client_, UploadFileAsync("p", _)).WillOnce(Return(Failing()));
    EXPECT_THROW(Write(client_, "p", NoteDocument()), cloudclientlib::CObjectNotFoundExc);
}

TEST_F(CloudDocument, IsWrittenIntoAFolderThatIsMadeFirst) {
    const InSequence inSequence;
    std::string text;
    EXPECT_CALL(client_, IsFolderExist("f")).WillOnce(Return(false));
    EXPECT_CALL(client_, CreateFolderAsync("f")).WillOnce(Return(task::RunNow([] {})));
    EXPECT_CALL(client_, UploadFileAsync("f/p", _)).WillOnce(KeepingIn(text));
    WriteInFolder(client_, "f", "f/p", NoteDocument());
    EXPECT_EQ(text, noteText);
}

TEST_F(CloudDocument, IsWrittenIntoAFolderThatIsThere) {
    const InSequence inSequence;
    EXPECT_CALL(client_, IsFolderExist("f")).WillOnce(Return(true));
    EXPECT_CALL(client_, UploadFileAsync("f/p", _)).WillOnce(Return(task::RunNow([] {})));
    WriteInFolder(client_, "f", "f/p", NoteDocument());
}

TEST_F(CloudDocument, IsNotWrittenWhenTheFolderCannotBeMade) {
    EXPECT_CALL(client_, IsFolderExist("f")).WillOnce(Return(false));
    EXPECT_CALL(client_, CreateFolderAsync("f")).WillOnce(Return(Failing()));
    EXPECT_THROW(WriteInFolder(client_, "f", "f/p", NoteDocument()), cloudclientlib::CObjectNotFoundExc);
}

// The strict mock sees that nothing is sent.
TEST_F(CloudDocument, IsNotWrittenWhenItCouldNotBeReadBack) {
    const auto refusal = [](const auto& write) -> std::string {
        try {
            write();
        } catch (const exc::CRuntimeExc& e) {
            return e.GetMessage();
        }
        return "";
    };
    const xml::xml_holder_t empty = xml::TiXmlCreateDocument();
    const std::string message = "Document 'p' is not written: it could not be read back";
    EXPECT_EQ(refusal([&] { Write(client_, "p", empty); }), message);
    EXPECT_EQ(refusal([&] { WriteInFolder(client_, "f", "p", empty); }), message);
}

TEST_F(CloudDocument, IsNotWrittenWhenNestedTooDeep) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t node = document;
    for (int level = 0; level < 33; ++level) {
        node = xml::TiXmlCreateChild(node, "N");
    }
    EXPECT_THROW(Write(client_, "p", document), exc::CRuntimeExc);
}

}  // namespace
}  // namespace cloudbackuplib::backup::document
