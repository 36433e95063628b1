#include "clients/azure/AzureBatch.h"

#include <gtest/gtest.h>

#include "common/exc.h"

namespace clients::azure {
namespace {

const std::string type = "multipart/mixed; boundary=batchresponse_1";

TEST(AzureBatch, WritesRequestsBetweenBoundaries) {
    EXPECT_EQ(WriteBatch({"DELETE /c/a HTTP/1.1\r\nx: 1\r\n", "DELETE /c/b HTTP/1.1\r\n"}, "batch_1"),
              "--batch_1\r\nContent-Type: application/http\r\nContent-Transfer-Encoding: binary\r\nContent-ID: 0\r\n"
              "\r\nDELETE /c/a HTTP/1.1\r\nx: 1\r\n\r\n"
              "--batch_1\r\nContent-Type: application/http\r\nContent-Transfer-Encoding: binary\r\nContent-ID: 1\r\n"
              "\r\nDELETE /c/b HTTP/1.1\r\n\r\n"
              "--batch_1--\r\n");
}

// As the documentation of "Blob Batch" shows it.
const std::string published =
    "--batchresponse_1\r\nContent-Type: application/http\r\nContent-ID: 0\r\n\r\n"
    "HTTP/1.1 202 Accepted\r\nx-ms-request-id: 778fdc83\r\nx-ms-version: 2018-11-09\r\n\r\n"
    "--batchresponse_1\r\nContent-Type: application/http\r\nContent-ID: 2\r\n\r\n"
    "HTTP/1.1 404 The specified blob does not exist.\r\nx-ms-error-code: BlobNotFound\r\n"
    "x-ms-request-id: 778fdc84\r\nContent-Length: 216\r\nContent-Type: application/xml\r\n\r\n"
    "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n"
    "<Error><Code>BlobNotFound</Code><Message>The specified blob does not exist.\r\nRequestId:778fdc84</Message>"
    "</Error>\r\n"
    "--batchresponse_1--\r\n";

void ExpectPublished(const std::string& contentType, const std::string& text) {
    const auto answers = ReadBatchAnswer(contentType, text);
    ASSERT_EQ(answers.size(), 2U);
    EXPECT_EQ(answers[0].request, 0U);
    EXPECT_EQ(answers[0].status, 202);
    EXPECT_EQ(answers[0].code, "");
    EXPECT_EQ(answers[0].requestId, "778fdc83");
    EXPECT_EQ(answers[1].request, 2U);
    EXPECT_EQ(answers[1].status, 404);
    EXPECT_EQ(answers[1].code, "BlobNotFound");
    EXPECT_EQ(answers[1].message, "The specified blob does not exist.");
    EXPECT_EQ(answers[1].requestId, "778fdc84");
}

TEST(AzureBatch, ReadsAnswers) {
    ExpectPublished(type, published);
    ExpectPublished("Multipart/Mixed; Boundary=\"batchresponse_1\"; x=y", published);
    ExpectPublished("multipart/mixed;boundary=batchresponse_1 ;charset=x", published);
    ExpectPublished(type, "a preamble\r\n" + published + "and an epilogue");
    std::string bare = published;
    std::erase(bare, '\r');
    ExpectPublished(type, bare);
}

TEST(AzureBatch, ReadsAnAnswerToTheBatchAsAWhole) {
    const auto answers = ReadBatchAnswer(
        type, "--batchresponse_1\r\nContent-Type: application/http\r\n\r\nHTTP/1.1 400 Bad\r\n\r\n--batchresponse_1--");
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers[0].request, SBatchAnswer::noRequest);
    EXPECT_EQ(answers[0].status, 400);
}

std::string Part(const std::string& text) { return "--batchresponse_1\r\n" + text + "--batchresponse_1--"; }

std::string Refusal(const std::string& contentType, const std::string& text) {
    try {
        static_cast<void>(ReadBatchAnswer(contentType, text));
    } catch (const exc::CExc& failure) {
        return failure.what();
    }
    return "taken";
}

TEST(AzureBatch, RefusesAnswersThatAreNone) {
    EXPECT_EQ(Refusal("", published), "The answer to a batch has no boundary");
    EXPECT_EQ(Refusal("multipart/mixed", published), "The answer to a batch has no boundary");
    EXPECT_EQ(Refusal("multipart/mixed; boundary=", published), "The answer to a batch has no boundary");
    EXPECT_EQ(Refusal("multipart/mixed; boundary=\"", published), "The answer to a batch has no boundary");
    EXPECT_EQ(Refusal("multipart/mixed; boundary=other", published), "The answer to a batch is cut off");
    EXPECT_EQ(Refusal(type, ""), "The answer to a batch is cut off");
    EXPECT_EQ(Refusal(type, Part("Content-ID: 0\r\n\r\nno answer\r\n")),
              "The answer to a batch holds a part that is no answer");
    EXPECT_EQ(Refusal(type, Part("")), "The answer to a batch holds a part that is no answer");
    EXPECT_EQ(Refusal(type, Part("\r\nHTTP/1.1\r\n")), "The answer to a batch holds a part that is no answer");
    EXPECT_EQ(Refusal(type, Part("\r\nHTTP/1.1 1000 x\r\n")), "The answer to a batch holds the status 1000");
    EXPECT_EQ(Refusal(type, Part("\r\nHTTP/1.1 99 x\r\n")), "The answer to a batch holds the status 99");
    EXPECT_EQ(Refusal(type, Part("no header\r\n\r\nHTTP/1.1 200 x\r\n")),
              "The answer to a batch holds a malformed header");
    for (const char* text : {"Content-ID: x\r\n\r\nHTTP/1.1 202 x\r\n", "Content-ID: -1\r\n\r\nHTTP/1.1 202 x\r\n",
                             "\r\nHTTP/1.1 2o2 x\r\n", "\r\nHTTP/1.1 \r\n"}) {
        EXPECT_NE(Refusal(type, Part(text)), "taken") << text;
    }
}

TEST(AzureBatch, RefusesAnswersCutAnywhere) {
    const std::size_t end = published.rfind("--\r\n");
    for (std::size_t i = 0; i < end; ++i) {
        EXPECT_NE(Refusal(type, published.substr(0, i)), "taken") << i;
    }
}

TEST(AzureBatch, RefusesMorePartsThanABatchHas) {
    std::string text;
    for (std::size_t i = 0; i < mostRequestsOfBatch; ++i) {
        text += "--batchresponse_1\r\n\r\nHTTP/1.1 202 Accepted\r\n\r\n";
    }
    EXPECT_EQ(ReadBatchAnswer(type, text + "--batchresponse_1--").size(), mostRequestsOfBatch);
    text += "--batchresponse_1\r\n\r\nHTTP/1.1 202 Accepted\r\n\r\n--batchresponse_1--";
    EXPECT_EQ(Refusal(type, text), "The answer to a batch has too many parts");
}

}  // namespace
}  // namespace clients::azure
