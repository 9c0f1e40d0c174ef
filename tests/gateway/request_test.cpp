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

TEST(ReplyHead, WithoutABodyThereIsNoLength) {
    Reply reply;
    reply.status = 204;
    EXPECT_EQ(PrintHead(reply, 0, false, true),
              "HTTP/1.1 204 No Content\r\nServer: muxora\r\nConnection: keep-alive\r\n"
              "X-Content-Type-Options: nosniff\r\n\r\n");
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
    // Base64, and whatever else a token may be, comes back as it was.
    EXPECT_EQ(Access::Carried(Parsed("/cam/index.m3u8?token=a%2Bb%2Fc%3D%3D")), "?token=a%2Bb%2Fc%3D%3D");
    EXPECT_EQ(Access::Carried(Parsed("/cam/index.m3u8?token=a%22b$%26%C3%A4")), "?token=a%22b%24%26%C3%A4");
    EXPECT_EQ(Parsed("/x" + Access::Carried(Parsed("/y?token=a%22b$%26%25"))).Parameter("token"), "a\"b$&%");
}

TEST(Access, PagesOfAnotherOriginOpenNoSocket) {
    const auto may = [](const char* origin, const char* cors = "") {
        return Access::MayOpenSocket(origin, "Gateway.example:8080", cors);
    };
    EXPECT_TRUE(may(""));  // no browser
    EXPECT_TRUE(may("http://gateway.example:8080"));
    EXPECT_TRUE(may("https://GATEWAY.example:8080"));  // a proxy with TLS stands before it
    for (const char* other : {"http://gateway.example", "http://evil.example:8080", "http://gateway.example:80801",
                              "http://evil.example/gateway.example:8080", "http://gateway.example:8080.evil.example",
                              "null", "file://", "gateway.example:8080", "https://gateway.example:808", "http://"})
        EXPECT_FALSE(may(other)) << other;
    EXPECT_TRUE(may("https://site.example", "https://site.example"));
    EXPECT_FALSE(may("https://site.example.evil", "https://site.example"));
    EXPECT_FALSE(may("null", "https://site.example"));
    EXPECT_TRUE(may("http://gateway.example:8080", "https://site.example"));
    EXPECT_TRUE(may("https://any.example", "*"));
    // The port that a scheme has anyway may stand there or not.
    EXPECT_TRUE(Access::MayOpenSocket("https://a.example", "a.example:443", ""));
    EXPECT_TRUE(Access::MayOpenSocket("http://a.example:80", "a.example", ""));
    EXPECT_FALSE(Access::MayOpenSocket("http://a.example", "a.example:443", ""));
    EXPECT_TRUE(Access::MayOpenSocket("http://[::1]:8080", "[::1]:8080", ""));
    EXPECT_FALSE(Access::MayOpenSocket("http://", "", ""));
}

TEST(Inputs, TheInterfaceOpensTheNetworkOnly) {
    EXPECT_TRUE(IsNetworkInput("rtsp://camera/1"));
    EXPECT_TRUE(IsNetworkInput("listen+rtmp://0.0.0.0:1935/live/x"));
    for (const char* bad : {"/etc/passwd", "file:///etc/passwd", "concat:a|b", "-", "pipe:0", "x.sdp", "http://x/y"})
        EXPECT_FALSE(IsNetworkInput(bad)) << bad;
}

TEST(Inputs, SecretsAreNotShown) {
    EXPECT_EQ(WithoutSecrets("rtsp://user:p@ss@camera:554/1?key=2"), "rtsp://camera:554/...");
    EXPECT_EQ(WithoutSecrets("rtsp://user:p/s?s#@camera/1"), "rtsp://camera/...");
    EXPECT_EQ(WithoutSecrets("srt://host:9000?passphrase=abc"), "srt://host:9000/...");
    EXPECT_EQ(WithoutSecrets("listen+rtmp://0.0.0.0:1935/live/key"), "listen+rtmp://0.0.0.0:1935/...");
    EXPECT_EQ(WithoutSecrets("rtmp://host/live playpath=key"), "rtmp://host/...");
    EXPECT_EQ(WithoutSecrets("rtmp://host/live/key/with@sign"), "rtmp://sign");
    EXPECT_EQ(WithoutSecrets("udp://239.0.0.1:5000"), "udp://239.0.0.1:5000");
    EXPECT_EQ(WithoutSecrets("film@home.mp4"), "film@home.mp4");
}
