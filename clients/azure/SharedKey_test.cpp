#include "clients/azure/SharedKey.h"

#include <gtest/gtest.h>

#include "common/util.h"

namespace clients::azure {
namespace {

// The examples that the service's documentation publishes ("Authorize with Shared Key").

using list_t = std::vector<std::pair<std::string, std::string>>;

const list_t headers = {{"x-ms-version", "2015-02-21"}, {"x-ms-date", "Fri, 26 Jun 2015 23:39:12 GMT"}};

TEST(SharedKey, SignsContainerMetadata) {
    EXPECT_EQ(StringToSign(
                  {"GET", "/mycontainer", {{"restype", "container"}, {"comp", "metadata"}, {"timeout", "20"}}, headers},
                  "myaccount"),
              "GET\n\n\n\n\n\n\n\n\n\n\n\nx-ms-date:Fri, 26 Jun 2015 23:39:12 GMT\nx-ms-version:2015-02-21\n"
              "/myaccount/mycontainer\ncomp:metadata\nrestype:container\ntimeout:20");
}

TEST(SharedKey, SignsNoLengthForAnEmptyBody) {
    EXPECT_EQ(
        StringToSign({"PUT", "/mycontainer", {{"restype", "container"}, {"timeout", "30"}}, headers, 0}, "myaccount"),
        "PUT\n\n\n\n\n\n\n\n\n\n\n\nx-ms-date:Fri, 26 Jun 2015 23:39:12 GMT\nx-ms-version:2015-02-21\n"
        "/myaccount/mycontainer\nrestype:container\ntimeout:30");
}

std::string Resource(const std::string& path, const list_t& query) {
    const std::string text = StringToSign({"GET", path, query, {}}, "myaccount");
    const std::string before = "GET\n\n\n\n\n\n\n\n\n\n\n\n";
    EXPECT_TRUE(text.starts_with(before)) << text;
    return text.substr(before.size());
}

TEST(SharedKey, CanonicalisesResources) {
    EXPECT_EQ(Resource("/mycontainer", {{"restype", "container"}, {"comp", "metadata"}}),
              "/myaccount/mycontainer\ncomp:metadata\nrestype:container");
    EXPECT_EQ(Resource("/mycontainer", {{"restype", "container"},
                                        {"comp", "list"},
                                        {"include", "snapshots"},
                                        {"include", "metadata"},
                                        {"include", "uncommittedblobs"}}),
              "/myaccount/mycontainer\ncomp:list\ninclude:metadata,snapshots,uncommittedblobs\nrestype:container");
    EXPECT_EQ(Resource("/mycontainer/myblob", {}), "/myaccount/mycontainer/myblob");
    EXPECT_EQ(Resource("/myaccount/mycontainer/a%20b", {{"Prefix", "x y"}}),
              "/myaccount/myaccount/mycontainer/a%20b\nprefix:x y");
}

TEST(SharedKey, PutsEachHeaderOnItsLine) {
    EXPECT_EQ(StringToSign({"PUT",
                            "/c/b",
                            {},
                            {{"range", "r"},
                             {"if-unmodified-since", "ius"},
                             {"if-none-match", "inm"},
                             {"if-match", "im"},
                             {"if-modified-since", "ims"},
                             {"date", "d"},
                             {"content-type", "ct"},
                             {"content-md5", "md5"},
                             {"content-language", "cl"},
                             {"content-encoding", "ce"},
                             {"host", "h"},
                             {"x-other", "o"}},
                            4711},
                           "a"),
              "PUT\nce\ncl\n4711\nmd5\nct\nd\nims\nim\ninm\nius\nr\n/a/c/b");
}

TEST(SharedKey, CanonicalisesHeaders) {
    EXPECT_EQ(StringToSign({"GET", "/c", {}, {{"x-ms-z", " a \t\r\n b  c "}, {"x-ms-a", ""}, {"x-msx", "no"}}}, "a"),
              "GET\n\n\n\n\n\n\n\n\n\n\n\nx-ms-a:\nx-ms-z:a b c\n/a/c");
}

// Computed by another program: "openssl dgst -sha256 -mac HMAC", of the first example above with the key of 64 bytes
// 0..63.
TEST(SharedKey, WritesTheHeader) {
    crypto::sec_bytes_t key;
    for (char byte = 0; byte < 64; ++byte) {
        key.push_back(byte);
    }
    EXPECT_EQ(Authorization(
                  {"GET", "/mycontainer", {{"restype", "container"}, {"comp", "metadata"}, {"timeout", "20"}}, headers},
                  "myaccount", key),
              "SharedKey myaccount:ZfuQJIowrCGKlm/KTSTcA7Tx12MxVvDi2ryOPQQw7Gw=");
}

}  // namespace
}  // namespace clients::azure
