#include "protocols/rtsp.h"

#include <gtest/gtest.h>

#include "support/hex.h"

using namespace Orvane::Muxora::Gateway;
using Result = RtspReader::Result;

TEST(RtspReader, RequestsComeInPiecesAndBehindOneAnother) {
    const std::string text =
        "OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n"
        "SETUP rtsp://h/a RTSP/1.0\r\ncSEQ:2\r\nContent-Length: 3\r\nX:  y \r\n\r\nabc\r\n"
        "PLAY rtsp://h/a RTSP/1.0\r\n\r\n";
    RtspReader reader;
    std::vector<RtspRequest> requests;
    for (const char c : text) {
        reader.Put({&c, 1});
        Result result = Result::kMore;
        while ((result = reader.Next()) == Result::kRequest)
            requests.push_back(reader.Request());
        ASSERT_EQ(result, Result::kMore);
    }
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(requests[0].uri, "*");
    EXPECT_EQ(requests[1].Field("cseq"), "2");
    EXPECT_EQ(requests[1].Field("x"), "y");
    EXPECT_EQ(requests[1].body, "abc");
    EXPECT_EQ(requests[2].method, "PLAY");
    EXPECT_EQ(reader.Held(), 0U);
}

TEST(RtspReader, InterleavedFramesAreSkipped) {
    RtspReader reader;
    reader.Put(std::string("$\x01\x00\x03xyz", 7) + "OPTIONS * RTSP/1.0\r\n\r\n");
    EXPECT_EQ(reader.Next(), Result::kFrame);
    EXPECT_EQ(reader.Next(), Result::kRequest);
    EXPECT_EQ(reader.Held(), 0U);
}

TEST(RtspReader, WhatIsNoRtspIsBad) {
    for (const std::string& bad :
         {std::string("GET / HTTP/1.1\r\n\r\n"), std::string("OPTIONS RTSP/1.0\r\n\r\n"),
          std::string("OPTIONS * RTSP/1.0\r\nno colon\r\n\r\n"), std::string("OP\x01 * RTSP/1.0\r\n\r\n"),
          std::string("OPTIONS * RTSP/1.0\r\nContent-Length: -1\r\n\r\n"),
          std::string("OPTIONS * RTSP/1.0\r\nContent-Length: 99999999\r\n\r\n"), std::string(9000, 'a')}) {
        RtspReader reader;
        reader.Put(bad);
        EXPECT_EQ(reader.Next(), Result::kBad) << bad.substr(0, 60);
    }
}

TEST(RtspAddress, NamesStreamTrackAndQuery) {
    const auto address = ParseRtspAddress("rtsp://host:8554/cam?token=a/trackID=1");
    ASSERT_TRUE(address);
    EXPECT_EQ(address->stream, "cam");
    EXPECT_EQ(address->track, 1U);
    EXPECT_EQ(address->query, "token=a");
    EXPECT_EQ(ParseRtspAddress("rtsp://host/cam/")->stream, "cam");
    EXPECT_FALSE(ParseRtspAddress("rtsp://host/cam")->track);
    EXPECT_FALSE(ParseRtspAddress("rtsp://host"));
    EXPECT_FALSE(ParseRtspAddress("rtsp://host/cam/trackID=x"));
}

TEST(RtspTransport, TheFirstThatIsServedIsTaken) {
    const auto udp = ParseRtspTransport("RTP/AVP;unicast;client_port=5000-5001");
    ASSERT_TRUE(udp);
    EXPECT_FALSE(udp->interleaved);
    EXPECT_EQ(udp->rtp, 5000);
    EXPECT_EQ(udp->rtcp, 5001);
    const auto tcp = ParseRtspTransport("RTP/AVP;multicast,RTP/AVP/TCP;unicast;interleaved=2-3");
    ASSERT_TRUE(tcp);
    EXPECT_TRUE(tcp->interleaved);
    EXPECT_EQ(tcp->rtcp, 3);
    for (const char* bad : {"", "RTP/AVP", "RTP/AVP;client_port=0-1", "RTP/AVP;client_port=70000-70001", "RTP/SAVP;x",
                            "RTP/AVP/TCP;interleaved=256-257", "RTP/AVP;unicast;client_port=1-2;mode=record"})
        EXPECT_FALSE(ParseRtspTransport(bad)) << bad;
}

TEST(RtspReply, HasSequenceAndLength) {
    EXPECT_EQ(PrintRtspReply(404, "7", {{"A", "b"}}, "xyz"),
              "RTSP/1.0 404 Not Found\r\nCSeq: 7\r\nServer: muxora\r\nA: b\r\nContent-Length: 3\r\n\r\nxyz");
}

// 0.5 s behind 1970: 2208988800 = 83AA7E80.
TEST(SenderReport, TellsBothClocks) {
    const std::string report = PrintSenderReport({0x01020304, 500000, 0xA0B0C0D0, 5, 600, true});
    EXPECT_EQ(test::Text(report), test::Bytes("80C80006 01020304 83AA7E80 80000000 A0B0C0D0 00000005 00000258"
                                              "81CA0004 01020304 01 06 6D75786F7261 00000000"
                                              "81CB0001 01020304"));
}
