#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#include "cloudbackuplib/AzureConnectionSpec.h"
#include "cloudbackuplib/BlockExternalId.h"
#include "cloudbackuplib/S3ConnectionSpec.h"
#include "common/exc.h"
#include "common/stream.h"
#include "common/util.h"
#include "tests/compatibility/GoldenFixture.h"
#include "tests/support/XmlDamage.h"

/// What docs/format shows is what there is: each example is read by the library's own reader and written again as it
/// stands, and each that names a golden repository's file is that file.
namespace test {
namespace {

using backup::CCloudClientKeyHistory;
using backup::CCloudClientKeyInfo;
using backup::SCloudRepositoryDescription;
using backup::checkpoint::CCloudCheckpoint;
using backup::checkpoint::COwnerDescriptor;
using backup::checkpoint::DxrContentFeature;

const std::filesystem::path sourceFolder = CLOUDBACKUP_SOURCE_DIR;

/// A fenced block of a page. `file` is the golden file that it shows, as "(`path`)" at the end of the paragraph before
/// it; empty for none.
struct SExample {
    std::string page;
    std::string kind;
    std::string file;
    std::string text;
};

std::vector<SExample> ExamplesOf(const std::string& page) {
    const std::string text = ReadBytes(sourceFolder / "docs/format" / page);
    static const std::regex fence("(?:\\(`([^`]*)`\\):\\n\\n)?```([a-z0-9]+)\\n([^`]*)```\\n");
    std::vector<SExample> examples;
    for (std::sregex_iterator found(text.begin(), text.end(), fence), end; found != end; ++found) {
        examples.push_back({page, found->str(2), found->str(1), found->str(3)});
    }
    return examples;
}

std::vector<SExample> AllExamples(const std::string& kind) {
    std::vector<SExample> all;
    for (const auto& entry : std::filesystem::directory_iterator(sourceFolder / "docs/format")) {
        if (entry.path().extension() == ".md") {
            for (const auto& example : ExamplesOf(entry.path().filename())) {
                if (example.kind == kind) {
                    all.push_back(example);
                }
            }
        }
    }
    return all;
}

xml::xml_holder_t RootOf(const std::string& text) { return xml::TiXmlGetChildren(xml::TiXmlParseExc(text)).at(0); }

/// The document that `write` fills, with a root element of that name.
template <class F>
std::string TextOf(const std::string& root, const F& write) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t element = xml::TiXmlCreateChild(document, root);
    write(element);
    return xml::TiXmlToStr(document);
}

std::string CheckpointAgain(const xml::xml_holder_t& root) {
    const bool isLongTerm = xml::TiXmlGetIntAttrSafe(root, "IsLongTerm", 0) == 1;
    const auto feature = isLongTerm ? DxrContentFeature::longTerm : DxrContentFeature::compatible;
    const auto checkpoint = CCloudCheckpoint::Deserialize(root, feature);
    return TextOf("Checkpoint", [&](xml::xml_holder_t& element) { checkpoint->Serialize(element, feature); });
}

template <class T>
std::string ObjectAgain(const xml::xml_holder_t& root) {
    const auto object = T::Deserialize(root);
    return TextOf(xml::TiXmlGetNodeName(root), [&](xml::xml_holder_t& element) { object.Serialize(element); });
}

std::string KeyInfoAgain(const xml::xml_holder_t& root) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    // It is read from the document, not from the element.
    CCloudClientKeyInfo::Deserialize(xml::TiXmlParseExc(xml::TiXmlToStr(root)))->Serialize(document);
    return xml::TiXmlToStr(document);
}

std::string KeyHistoryAgain(const xml::xml_holder_t& root) {
    const auto history = CCloudClientKeyHistory::Deserialize(root);
    return TextOf("ClientKeyHistory", [&](xml::xml_holder_t& element) { history->Serialize(element); });
}

/// A whole specification is not read by the library; what it reads of it, and the rest by hand, is written again.
std::string S3SpecAgain(const xml::xml_holder_t& root) {
    using Spec = backup::platform::s3::CS3ConnectionSpec;
    backup::platform::s3::SS3ConnSpec spec;
    spec.bucketAddr = Spec::DeserializeConnection(root);
    const auto address = xml::TiXmlGetChildExc(root, "BucketAddr");
    spec.bucketAddr.bucketName = xml::TiXmlGetStrAttrExc(address, "BucketName");
    if (!xml::TiXmlGetStrAttrSafe(address, "AmazonS3RestClientId").empty()) {
        spec.restClientId.Set(xml::TiXmlGetGuidAttrExc(address, "AmazonS3RestClientId"));
    }
    std::tie(spec.credentials, spec.roleAuth) = Spec::DeserializeCredentials(root);
    const auto info = xml::TiXmlGetChildExc(root, "ClientInfo");
    spec.repository.Set(
        {xml::TiXmlGetStrAttrExc(xml::TiXmlGetChildExc(root, "Repository"), "FolderName"),
         backup::SCloudRepositoryClientInfo{xml::TiXmlGetGuidAttrExc(info, "Id"), xml::TiXmlGetStrAttrExc(info, "Type"),
                                            xml::TiXmlGetStrAttrExc(info, "Name")}});
    const auto options = xml::TiXmlGetChildExc(root, "Options");
    spec.options.useIAStorageClassForBlockObjects =
        xml::TiXmlGetBoolAttrSafe(options, "UseIAStorageClassForBlockObjects", false);
    spec.options.useVirtualHostedStyle = xml::TiXmlGetBoolAttrSafe(options, "UseVirtualHostedStyle", false);
    return Spec(spec).Serialize();
}

std::string AzureSpecAgain(const xml::xml_holder_t& root) {
    backup::platform::azure::SAzureConnectionSpec spec;
    spec.connectionString = xml::TiXmlGetStrAttrExc(root, "ConnectionString");
    spec.containerName = xml::TiXmlGetStrAttrExc(root, "ContainerName");
    const auto info = xml::TiXmlGetChildExc(root, "ClientInfo");
    spec.repository = {
        xml::TiXmlGetStrAttrExc(xml::TiXmlGetChildExc(root, "Repository"), "FolderName"),
        backup::SCloudRepositoryClientInfo{xml::TiXmlGetGuidAttrExc(info, "Id"), xml::TiXmlGetStrAttrExc(info, "Type"),
                                           xml::TiXmlGetStrAttrExc(info, "Name")}};
    return spec.Serialize();
}

const std::map<std::string, std::string (*)(const xml::xml_holder_t&)> documents{
    {"Checkpoint", CheckpointAgain},
    {"Repository", ObjectAgain<SCloudRepositoryDescription>},
    {"Owner", ObjectAgain<COwnerDescriptor>},
    {"ClientInfo", ObjectAgain<COwnerDescriptor>},
    {"EncryptionKey", KeyInfoAgain},
    {"ClientKeyHistory", KeyHistoryAgain},
    {"S3ConnSpec", S3SpecAgain},
    {"AzureConnectionSpec", AzureSpecAgain},
};

TEST(FormatDocument, XmlExamplesAreReadAndWrittenAsTheyStand) {
    std::set<std::string> shown;
    for (const auto& example : AllExamples("xml")) {
        const auto root = RootOf(example.text);
        const std::string name = xml::TiXmlGetNodeName(root);
        const auto document = documents.find(name);
        ASSERT_NE(document, documents.end()) << example.page << " shows a document that is not known: " << name;
        shown.insert(name);
        // The printer quotes with ' what holds a ".
        EXPECT_EQ(document->second(root), example.text) << example.page;
    }
    EXPECT_EQ(shown.size(), documents.size()) << "every document has an example";
}

TEST(FormatDocument, ExamplesThatNameAFileAreThatFile) {
    std::set<std::string> files;
    for (const auto& example : AllExamples("xml")) {
        if (!example.file.empty()) {
            EXPECT_EQ(example.text, ReadBytes(sourceFolder / "tests/data/golden" / example.file)) << example.file;
            files.insert(example.file);
        }
    }
    EXPECT_EQ(files.size(), 9U) << "every stored document is shown as it lies in a golden repository";
}

TEST(FormatDocument, CheckpointsAreShownInBothVersionsAndFlavours) {
    std::set<std::string> shown;
    for (const auto& example : ExamplesOf("checkpoint.md")) {
        if (example.kind == "xml") {
            const auto root = RootOf(example.text);
            shown.insert(xml::TiXmlGetStrAttrSafe(root, "FormatVersion") +
                         (xml::TiXmlGetStrAttrSafe(root, "IsLongTerm") + "I") +
                         (xml::TiXmlGetStrAttrSafe(root, "HasLongTerm") + "H"));
        }
    }
    EXPECT_THAT(shown, testing::UnorderedElementsAre("1IH", "2I1H", "2IH", "21IH"));
}

/// Of each element and attribute, as "Stg MetaVersion", whether the page says that it is required: rows of the tables
/// behind a line that begins with "Of" and names elements.
std::map<std::string, bool> NeedsOf(const std::string& page) {
    static const std::regex name("`([A-Za-z]+)`");
    static const std::regex row(R"(\| `([A-Za-z]+)` \| [^|]* \| (required|optional)[^|]*\|.*)");
    std::map<std::string, bool> needs;
    std::vector<std::string> elements;
    std::istringstream lines(ReadBytes(sourceFolder / "docs/format" / page));
    for (std::string line; std::getline(lines, line);) {
        std::smatch found;
        if (line.starts_with("Of ") || line.starts_with("#")) {
            elements.clear();
            for (std::sregex_iterator at(line.begin(), line.end(), name), end; at != end; ++at) {
                elements.push_back(at->str(1));
            }
        } else if (std::regex_match(line, found, row)) {
            for (const auto& element : elements) {
                needs[element + " " + found.str(1)] = found.str(2) == "required";
            }
        }
    }
    return needs;
}

bool IsReadable(const std::string& text) {
    try {
        const auto root = RootOf(text);
        (void)documents.at(xml::TiXmlGetNodeName(root))(root);
        return true;
    } catch (const exc::CExc&) {
        return false;
    }
}

TEST(FormatDocument, WhatIsRequiredIsWhatTheReadersRequire) {
    std::set<std::string> tried;
    for (const std::string page : {"checkpoint.md", "repository.md"}) {
        auto needs = NeedsOf(page);
        needs.merge(NeedsOf("repository.md"));  // an owner stands in both
        for (const auto& example : ExamplesOf(page)) {
            for (const auto& attribute :
                 example.kind == "xml" ? FindAttributes(example.text) : std::vector<SAttributePlace>()) {
                const std::string key = attribute.element + " " + attribute.name;
                ASSERT_TRUE(needs.contains(key)) << page << " does not tell of " << key;
                EXPECT_EQ(IsReadable(Without(example.text, attribute)), !needs.at(key)) << page << ": " << key;
                tried.insert(key);
            }
        }
    }
    EXPECT_EQ(tried.size(), 32U);
}

/// The bytes of a dump: hexadecimal digits at the beginning of each line, up to two blanks.
std::string BytesOfDump(const std::string& dump) {
    std::string bytes;
    std::string line;
    for (std::istringstream lines(dump); std::getline(lines, line);) {
        line = line.substr(0, line.find("  "));
        std::erase(line, ' ');
        for (std::size_t i = 0; i + 1 < line.size(); i += 2) {
            bytes += static_cast<char>(std::stoi(line.substr(i, 2), nullptr, 16));
        }
    }
    return bytes;
}

std::string OnlyDumpOf(const std::string& page) {
    std::string dump;
    for (const auto& example : ExamplesOf(page)) {
        if (example.kind == "hex") {
            EXPECT_TRUE(dump.empty()) << page << " has one dump";
            dump = example.text;
        }
    }
    return BytesOfDump(dump);
}

TEST(FormatDocument, TheKeySetIsTheGoldenOne) {
    const std::string bytes = OnlyDumpOf("repository.md");
    const auto key = crypto::CKeySet::Unserial({bytes.begin(), bytes.end()});
    EXPECT_EQ(key->ToLogStr(),
              "id: ce000000000000000000000000000002, hint: der zweite Schlüssel, keys: absent, repair records: 2");
    const std::string history = ReadBytes(sourceFolder / "tests/data/golden/keys/Draxo/Backup/golden/Clients" /
                                          annaId.ToAStr() / "Config/ClientKeyHistory.xml");
    EXPECT_NE(history.find("\"" + util::toBase64(bytes) + "\""), std::string::npos) << "its value is in the history";
}

TEST(FormatDocument, TheBlockIdIsReadAsThePageSays) {
    const std::string bytes = OnlyDumpOf("blocks.md");
    ASSERT_EQ(bytes.size(), 44U);
    io::mem_stream_tt<> stream(cnt::array_t<char>(bytes.begin(), bytes.end()));
    backup::SBlockExternalId id;
    backup::SBlockExternalId::Unserial(stream, id);
    EXPECT_EQ(crypto::SRawKeySetId{id.id}.ToAStr(), "1b042ea87d008e77dbe1842bd83e72d5");
    EXPECT_EQ(id.keySetId.ToAStr(), "ce000000000000000000000000000004");
    EXPECT_EQ(id.number32, 17U);
    EXPECT_EQ(id.number64, 3U);
    io::mem_stream_tt<> again;
    id.Serial(again);
    EXPECT_EQ(std::string(again.GetBuffer().begin(), again.GetBuffer().end()), bytes);
}

}  // namespace
}  // namespace test
