#include "clients/azure/AzureDocuments.h"

#include <gtest/gtest.h>

#include "common/exc.h"

namespace clients::azure {
namespace {

const std::string mark = "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"utf-8\"?>";

std::string Blob(const std::string& name, const std::string& properties) {
    return "<Blob>" + name + "<Properties>" + properties + "</Properties></Blob>";
}

std::string Listing(const std::string& blobs, const std::string& marker) {
    return mark +
           "<EnumerationResults ServiceEndpoint=\"https://a.blob.core.windows.net/\" ContainerName=\"c\">"
           "<Prefix>p</Prefix><Blobs>" +
           blobs + "</Blobs>" + marker + "</EnumerationResults>";
}

TEST(AzureDocuments, ReadsAPage) {
    const SListing page = ReadListing(
        Listing(Blob("<Name>p/a &amp; b</Name>",
                     "<Creation-Time>x</Creation-Time><Last-Modified>Sun, 06 Nov 1994 08:49:37 GMT</Last-Modified>"
                     "<Etag>0x8D</Etag><Content-Length>123456789012</Content-Length>"
                     "<Content-MD5>kAFQmDzST7DWlj99KOF/cg==</Content-MD5><AccessTier>Cool</AccessTier>") +
                    "<BlobPrefix><Name>p/folder/</Name></BlobPrefix>" +
                    Blob("<Name>p/z</Name>", "<Content-Length>0</Content-Length><Content-MD5/>"),
                "<NextMarker>2!80!more</NextMarker>"));
    ASSERT_EQ(page.blobs.size(), 2U);
    EXPECT_EQ(page.blobs[0].name, "p/a & b");
    EXPECT_EQ(page.blobs[0].size, 123456789012U);
    EXPECT_EQ(page.blobs[0].modified, std::chrono::system_clock::from_time_t(784111777));
    EXPECT_EQ(page.blobs[0].md5.value().ToAStr(), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(page.blobs[0].tier, "Cool");
    EXPECT_EQ(page.blobs[1].name, "p/z");
    EXPECT_EQ(page.blobs[1].modified, std::chrono::system_clock::time_point());
    EXPECT_FALSE(page.blobs[1].md5);
    EXPECT_EQ(page.blobs[1].tier, "");
    EXPECT_EQ(page.prefixes, (std::vector<std::string>{"p/folder/"}));
    EXPECT_EQ(page.nextMarker, "2!80!more");
}

TEST(AzureDocuments, ReadsTheLastAndTheEmptyPage) {
    EXPECT_EQ(ReadListing(Listing("", "<NextMarker />")).nextMarker, "");
    EXPECT_EQ(ReadListing(Listing("", "")).nextMarker, "");
    EXPECT_EQ(ReadListing(Listing("", "<NextMarker>m</NextMarker>")).nextMarker, "m");
    EXPECT_TRUE(ReadListing(Listing("", "")).blobs.empty());
    EXPECT_TRUE(ReadListing("<EnumerationResults><Blobs/></EnumerationResults>").blobs.empty());
}

TEST(AzureDocuments, ReadsNamesWithBlanksAndEncodedOnes) {
    const std::string size = "<Content-Length>1</Content-Length>";
    const SListing page = ReadListing(Listing(Blob("<Name> a  b </Name>", size) + Blob("<Name>a%20b+c</Name>", size) +
                                                  Blob("<Name Encoded=\"true\">a%EF%BF%BE+%25</Name>", size) +
                                                  "<BlobPrefix><Name Encoded=\"true\">%20/</Name></BlobPrefix>",
                                              ""));
    ASSERT_EQ(page.blobs.size(), 3U);
    EXPECT_EQ(page.blobs[0].name, " a  b ");
    EXPECT_EQ(page.blobs[1].name, "a%20b+c");
    EXPECT_EQ(page.blobs[2].name, "a\xEF\xBF\xBE+%");
    EXPECT_EQ(page.prefixes, (std::vector<std::string>{" /"}));
}

TEST(AzureDocuments, RefusesListingsThatAreNone) {
    const std::string size = "<Content-Length>1</Content-Length>";
    for (const std::string& text :
         {std::string(), std::string("text"), std::string("<Error/>"), std::string("<EnumerationResults/>"),
          std::string("<EnumerationResults><Blobs></EnumerationResults>"), Listing("<Blob/>", ""),
          Listing("<Blob><Name>a</Name></Blob>", ""), Listing(Blob("", size), ""), Listing(Blob("<Name/>", size), ""),
          Listing(Blob("<Name>a</Name>", ""), ""),
          Listing(Blob("<Name>a</Name>", "<Content-Length>-1</Content-Length>"), ""),
          Listing(Blob("<Name>a</Name>", "<Content-Length>18446744073709551616</Content-Length>"), ""),
          Listing(Blob("<Name Encoded=\"true\">%4</Name>", size), ""),
          Listing(Blob("<Name Encoded=\"maybe\">a</Name>", size), ""), Listing("<BlobPrefix/>", ""),
          Listing(Blob("<Name>a\xFF</Name>", size), ""), Listing("", "") + "<more/>",
          "<!DOCTYPE x>" + Listing("", "").substr(3)}) {
        EXPECT_THROW(static_cast<void>(ReadListing(text)), exc::CExc) << text;
    }
}

TEST(AzureDocuments, ReadsAnError) {
    const auto error = ReadError(mark +
                                 "<Error><Code>BlobNotFound</Code><Message>The specified blob does not exist.\n"
                                 "RequestId:12\nTime:2015</Message></Error>");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, "BlobNotFound");
    EXPECT_EQ(error->message, "The specified blob does not exist.");
    ASSERT_TRUE(ReadError("<Error/>"));
    EXPECT_EQ(ReadError("<Error/>")->code, "");
}

TEST(AzureDocuments, TakesAnythingElseForNoError) {
    for (const char* text : {"", "no XML", "<html><body>502</body></html>", "<Error>", "\xEF\xBB\xBF"}) {
        EXPECT_FALSE(ReadError(text)) << text;
    }
}

TEST(AzureDocuments, WritesABlockList) {
    EXPECT_EQ(WriteBlockList({"YQ==", "Yg=="}),
              "<BlockList><Uncommitted>YQ==</Uncommitted><Uncommitted>Yg==</Uncommitted></BlockList>");
}

TEST(AzureDocuments, ReadsAndWritesDigests) {
    const auto md5 = ReadMd5("kAFQmDzST7DWlj99KOF/cg==");
    ASSERT_TRUE(md5);
    EXPECT_EQ(WriteMd5(*md5), "kAFQmDzST7DWlj99KOF/cg==");
    for (const char* text : {"", "kAFQ", "kAFQmDzST7DWlj99KOF/cg", "900150983cd24fb0d6963f7d28e17f72"}) {
        EXPECT_FALSE(ReadMd5(text)) << text;
    }
}

}  // namespace
}  // namespace clients::azure
