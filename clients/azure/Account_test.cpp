#include "clients/azure/Account.h"

#include <gtest/gtest.h>

#include "clients/azure/AzureConnection.h"
#include "clients/azure/AzureFailure.h"
#include "cloudclientlib/CloudExc.h"
#include "common/exc.h"

namespace clients::azure {
namespace {

std::string Text(const crypto::sec_bytes_t& bytes) { return {bytes.begin(), bytes.end()}; }

std::string Url(const SAccount& account) {
    return account.endpoint.scheme + account.endpoint.host + account.endpoint.path;
}

TEST(Account, ReadsWhatThePortalGives) {
    const SAccount account = ReadConnectionString(
        "DefaultEndpointsProtocol=https;AccountName=myaccount;AccountKey=c2VjcmV0;EndpointSuffix=core.windows.net");
    EXPECT_EQ(Url(account), "https://myaccount.blob.core.windows.net");
    EXPECT_EQ(account.name, "myaccount");
    EXPECT_EQ(Text(account.key), "secret");
    EXPECT_TRUE(account.signature.empty());
}

TEST(Account, ReadsWhatIsLeftOut) {
    EXPECT_EQ(Url(ReadConnectionString("AccountName=a;AccountKey=c2VjcmV0")), "https://a.blob.core.windows.net");
    EXPECT_EQ(Url(ReadConnectionString("DefaultEndpointsProtocol=http;AccountName=a;AccountKey=c2VjcmV0;"
                                       "EndpointSuffix=core.chinacloudapi.cn;")),
              "http://a.blob.core.chinacloudapi.cn");
}

TEST(Account, ReadsBlanksEmptySettingsAndNamesInAnyCase) {
    const SAccount account = ReadConnectionString(" accountname = a ;; ACCOUNTKEY=c2VjcmV0 ;\n");
    EXPECT_EQ(account.name, "a");
    EXPECT_EQ(Text(account.key), "secret");
}

TEST(Account, ReadsAnEndpointOfOnesOwn) {
    const SAccount account = ReadConnectionString(
        "BlobEndpoint=http://127.0.0.1:10000/acct/;AccountName=acct;AccountKey=c2VjcmV0;"
        "QueueEndpoint=http://127.0.0.1:10001/acct;TableEndpoint=http://127.0.0.1:10002/acct");
    EXPECT_EQ(Url(account), "http://127.0.0.1:10000/acct");
    EXPECT_EQ(account.name, "acct");
}

TEST(Account, ReadsASignature) {
    for (const char* mark : {"", "?"}) {
        const SAccount account = ReadConnectionString(
            std::string("BlobEndpoint=https://a.blob.example;SharedAccessSignature=") + mark + "sv=1&sig=x%3D&se=2");
        EXPECT_EQ(Url(account), "https://a.blob.example");
        EXPECT_EQ(Text(account.signature), "sv=1&sig=x%3D&se=2");
        EXPECT_TRUE(account.key.empty());
    }
    EXPECT_EQ(Url(ReadConnectionString("AccountName=a;SharedAccessSignature=sig=x")),
              "https://a.blob.core.windows.net");
}

std::string Refusal(const std::string& text) {
    try {
        static_cast<void>(ReadConnectionString(text));
    } catch (const exc::CRuntimeExc& failure) {
        return failure.what();
    }
    return "taken";
}

TEST(Account, SaysWhatIsWrong) {
    const std::string none = "Connection string: there is neither AccountKey nor SharedAccessSignature";
    EXPECT_EQ(Refusal(""), none);
    EXPECT_EQ(Refusal("AccountName=a"), none);
    EXPECT_EQ(Refusal("AccountName=a;AccountKey="), none);
    EXPECT_EQ(Refusal("AccountName=a;AccountKey=c2VjcmV0;SharedAccessSignature=sig=1"),
              "Connection string: there are both AccountKey and SharedAccessSignature");
    EXPECT_EQ(Refusal("AccountKey=c2VjcmV0"), "Connection string: AccountKey needs AccountName");
    EXPECT_EQ(Refusal("BlobEndpoint=http://h;AccountKey=c2VjcmV0"), "Connection string: AccountKey needs AccountName");
    EXPECT_EQ(Refusal("SharedAccessSignature=sig=1"),
              "Connection string: there is neither AccountName nor BlobEndpoint");
    EXPECT_EQ(Refusal("AccountName=a;AccountName=b"), "Connection string: AccountName is there twice");
    EXPECT_EQ(Refusal("AccountName=a;accountname=b"), "Connection string: AccountName is there twice");
    EXPECT_EQ(Refusal("AccountName=a;AccountKey=c2VjcmV0;DefaultEndpointsProtocol=ftp"),
              "Connection string: DefaultEndpointsProtocol or EndpointSuffix: an endpoint begins with 'https://' or "
              "'http://'");
    EXPECT_EQ(Refusal("BlobEndpoint=h;AccountName=a;AccountKey=c2VjcmV0"),
              "Connection string: BlobEndpoint: an endpoint is written 'https://host[:port]'");
}

// Whatever is put in the wrong place, no text repeats it.
TEST(Account, NeverRepeatsWhatItWasGiven) {
    const std::string begin = "AccountName=a;";
    EXPECT_EQ(Refusal("SECRET"), "Connection string: setting 1 is not written 'Name=Value'");
    EXPECT_EQ(Refusal(begin + ";AccountKey"), "Connection string: setting 2 is not written 'Name=Value'");
    EXPECT_EQ(Refusal(begin + "SECRET=SECRET"), "Connection string: the name of setting 2 is not known");
    EXPECT_EQ(Refusal("AccountName=SECRET;AccountKey=c2VjcmV0"),
              "Connection string: AccountName holds lower-case letters and digits");
    EXPECT_EQ(Refusal(begin + "AccountKey=SECRET!"), "Connection string: AccountKey is no base64 text");
    const std::string noQuery = "Connection string: SharedAccessSignature is no signed query ('sv=...&sig=...')";
    for (const char* text : {"SECRET", "sv=1&xsig=SECRET", "sig=SECRET SECRET", "sig=SECRET#", "sig=SECRET\xC3\xA9"}) {
        EXPECT_EQ(Refusal(begin + "SharedAccessSignature=" + text), noQuery);
    }
    for (const char* text : {"https://h?sig=SECRET", "https://u:SECRET@h", "https://h/#SECRET"}) {
        EXPECT_EQ(Refusal(begin + "AccountKey=c2VjcmV0;BlobEndpoint=" + text),
                  "Connection string: BlobEndpoint: an endpoint is a host and perhaps a port, nothing else");
    }
}

std::chrono::system_clock::time_point Epoch() { return {}; }

TEST(AzureConnection, RefusesContainersThatAreNone) {
    for (const char* name : {"", "Upper", "a/b", "a?b", "a b", "..", "a%2F"}) {
        try {
            CAzureConnection connection(ReadConnectionString("AccountName=a;AccountKey=c2VjcmV0"), name, {}, &Epoch);
            ADD_FAILURE() << name;
        } catch (const cloudclientlib::CCloudExc& failure) {
            EXPECT_EQ(std::string(failure.what()), "OpenContainer '" + std::string(name) +
                                                       "': a container's name holds lower-case letters, digits and "
                                                       "'-'");
        }
    }
}

TEST(AzureConnection, SignsEachRequestOfABatchByItself) {
    const CAzureConnection byKey(ReadConnectionString("AccountName=a;AccountKey=c2VjcmV0"), "c", {}, &Epoch);
    const SSignedParts parts{"DELETE", "/c/x%20y", {}, {{"x-ms-date", "Thu, 01 Jan 1970 00:00:00 GMT"}}};
    EXPECT_EQ(byKey.BatchHead("DELETE", "x y"),
              "DELETE /c/x%20y HTTP/1.1\r\nx-ms-date: Thu, 01 Jan 1970 00:00:00 GMT\r\nauthorization: " +
                  Authorization(parts, "a", {'s', 'e', 'c', 'r', 'e', 't'}) + "\r\ncontent-length: 0\r\n");
    EXPECT_EQ(byKey.SourceUrl("x y"), "https://a.blob.core.windows.net/c/x%20y");
    const CAzureConnection bySignature(
        ReadConnectionString("BlobEndpoint=http://h/p;SharedAccessSignature=sv=1&sig=x%3D"), "c", {}, &Epoch);
    EXPECT_EQ(bySignature.BatchHead("DELETE", "b"),
              "DELETE /p/c/b?sv=1&sig=x%3D HTTP/1.1\r\nx-ms-date: Thu, 01 Jan 1970 00:00:00 GMT\r\n"
              "content-length: 0\r\n");
    EXPECT_EQ(bySignature.SourceUrl("b"), "http://h/p/c/b?sv=1&sig=x%3D");
}

}  // namespace
}  // namespace clients::azure
