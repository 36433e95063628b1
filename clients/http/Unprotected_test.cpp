#include "clients/http/Unprotected.h"

#include <gtest/gtest.h>

namespace clients::http {
namespace {

TEST(Unprotected, LoopbackIsThisMachine) {
    for (const char* own : {"http://localhost", "http://localhost:80", "http://127.0.0.1:9000", "http://[::1]:9",
                            "http://bucket.localhost:1", "https://127.1.2.3"}) {
        EXPECT_TRUE(IsLoopback(ReadEndpoint(own))) << own;
    }
    for (const char* other : {"http://example.org", "http://127.example.org", "http://localhost.example.org",
                              "http://10.0.0.1", "http://[2001:db8::1]"}) {
        EXPECT_FALSE(IsLoopback(ReadEndpoint(other))) << other;
    }
}

}  // namespace
}  // namespace clients::http
