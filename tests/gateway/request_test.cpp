#include "protocols/request.h"

#include <gtest/gtest.h>

#include "hub/hub.h"
#include "protocols/access.h"
#include "sources/source.h"

using namespace Orvane::Muxora::Gateway;

namespace {

Request Parsed(const std::string& target) {
    Request request;
    EXPECT_TRUE(ParseTarget(target, request)) << target;
    return request;
}

}  // namespace

TEST(RequestTarget, PathAndQueryAreDecoded) {
    const Request request = Parsed("/a%20b/c.flv?x=1&token=a%2Bb&empty=&flag&y=1+2");
    EXPECT_EQ(request.path, "/a b/c.flv");
    EXPECT_EQ(request.Parameter("x"), "1");
    EXPECT_EQ(request.Parameter("token"), "a+b");
    EXPECT_EQ(request.Parameter("y"), "1 2");
    EXPECT_EQ(request.query.count("flag"), 1U);
    EXPECT_EQ(request.Parameter("none"), "");
}

TEST(RequestTarget, WhatIsNoTargetIsRefused) {
    Request request;
    for (const char* bad : {"", "x", "http://h/", "/%", "/%4", "/%zz", "/%00", "/a?b=%0d%0a", "/\x01"})
        EXPECT_FALSE(ParseTarget(bad, request)) << bad;
}

TEST(ReplyHead, HasStatusLengthAndFields) {
    Reply reply = Reply::Text(404, "x");
    reply.headers = {{"Cache-Control", "no-store"}};
    EXPECT_EQ(PrintHead(reply, 1, false, true),
              "HTTP/1.1 404 Not Found\r\nServer: muxora\r\nContent-Type: text/plain; charset=utf-8\r\n"
              "Content-Length: 1\r\nConnection: keep-alive\r\nX-Content-Type-Options: nosniff\r\n"
              "Cache-Control: no-store\r\n\r\n");
    EXPECT_NE(PrintHead(reply, std::nullopt, true, false).find("Transfer-Encoding: chunked\r\nConnection: close\r\n"),
              std::string::npos);
}

TEST(StreamNames, AreSafeEverywhere) {
    EXPECT_TRUE(IsStreamName("door-1_A"));
    for (const std::string& bad : {std::string(), std::string("a.b"), std::string("../x"), std::string("a b"),
                                   std::string("a/b"), std::string(65, 'a'), std::string("\xC3\xA4")})
        EXPECT_FALSE(IsStreamName(bad)) << bad;
}

TEST(Access, WithoutSecretsEverybodyWatchesAndNobodyChanges) {
    const Access access({});
    EXPECT_TRUE(access.MayView(Parsed("/x.flv"), "x", 0));
    EXPECT_TRUE(access.MayList(Parsed("/")));
    Request request = Parsed("/api/streams");
    request.authorization = "Bearer ";
    EXPECT_FALSE(access.MayChange(request));
}

TEST(Access, TheViewTokenComesInTheFieldOrInTheQuery) {
    const Access access({"secret", "admin", ""});
    EXPECT_FALSE(access.MayView(Parsed("/x.flv"), "x", 0));
    EXPECT_FALSE(access.MayView(Parsed("/x.flv?token=secreT"), "x", 0));
    EXPECT_TRUE(access.MayView(Parsed("/x.flv?token=secret"), "x", 0));
    Request request = Parsed("/x.flv");
    request.authorization = "Bearer secret";
    EXPECT_TRUE(access.MayView(request, "x", 0));
    EXPECT_FALSE(access.MayChange(request));
    request.authorization = "Bearer admin";
    EXPECT_TRUE(access.MayChange(request));
    EXPECT_FALSE(access.MayChange(Parsed("/api/streams?token=admin")));
}

// HMAC-SHA-256 of "cam\n2000000000" under "key", by openssl dgst.
TEST(Access, ASignedAddressIsGoodForItsStreamUntilItExpires) {
    const Access access({"", "", "key"});
    const std::string query =
        "expires=2000000000&signature=dd130364855daf625c8315da0c2056d8b4dc6e6200595eef187c4efb6a8e99ca";
    EXPECT_EQ(access.Sign("cam", 2000000000), query);
    EXPECT_TRUE(access.MayView(Parsed("/cam.flv?" + query), "cam", 2000000000));
    EXPECT_FALSE(access.MayView(Parsed("/cam.flv?" + query), "cam", 2000000001));
    EXPECT_FALSE(access.MayView(Parsed("/dog.flv?" + query), "dog", 1));
    EXPECT_FALSE(access.MayView(Parsed("/cam.flv?expires=2000000001" + query.substr(18)), "cam", 1));
    EXPECT_FALSE(access.MayList(Parsed("/?" + query)));
    EXPECT_EQ(Access::Carried(Parsed("/cam/index.m3u8?x=1&" + query)), "?" + query);
    EXPECT_EQ(Access::Carried(Parsed("/cam/index.m3u8?token=a%22b")), "");
}

TEST(Inputs, TheInterfaceOpensTheNetworkOnly) {
    EXPECT_TRUE(IsNetworkInput("rtsp://camera/1"));
    EXPECT_TRUE(IsNetworkInput("listen+rtmp://0.0.0.0:1935/live/x"));
    for (const char* bad : {"/etc/passwd", "file:///etc/passwd", "concat:a|b", "-", "pipe:0", "x.sdp", "http://x/y"})
        EXPECT_FALSE(IsNetworkInput(bad)) << bad;
}

TEST(Inputs, SecretsAreNotShown) {
    EXPECT_EQ(WithoutSecrets("rtsp://user:p@ss@camera:554/1?key=2"), "rtsp://camera:554/1");
    EXPECT_EQ(WithoutSecrets("srt://host:9000?passphrase=abc"), "srt://host:9000");
    EXPECT_EQ(WithoutSecrets("film@home.mp4"), "film@home.mp4");
}
