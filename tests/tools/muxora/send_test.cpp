// muxora send, received by ffmpeg on the loopback interface.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <sstream>
#include <thread>

#include "tool.h"

namespace {

namespace fs = std::filesystem;
using test::ClipSpec;
using test::Contains;
using test::Muxora;

struct SendCase {
    const char* name;
    const char* video;
    const char* audio;
    int b_frames;
    int slices;
};

class Send : public testing::TestWithParam<SendCase> {};

TEST_P(Send, AReceiverDecodesEveryPicture) {
    ClipSpec spec;
    spec.video = GetParam().video;
    spec.audio = GetParam().audio;
    spec.b_frames = GetParam().b_frames;
    spec.slices = GetParam().slices;
    if (spec.audio == "alaw" || spec.audio == "mulaw") spec.sample_rate = 8000;
    const std::string clip = test::MakeClip(spec);
    const std::string folder = test::FreshDirectory("send");
    const std::string sdp = folder + "/x.sdp";
    // Tests run side by side: the ports are this process's own.
    const int port = 20000 + 8 * (getpid() % 4000);
    test::Background sender({MUXORA_TOOL, "send", clip, "--to", "rtp://127.0.0.1:" + std::to_string(port), "--sdp", sdp,
                             "--wait", "1.5", "--speed", "2"});
    for (int i = 0; i < 100 && !fs::exists(sdp); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_TRUE(fs::exists(sdp));
    const auto received = test::Run({"ffmpeg",       "-nostdin",    "-v", "error",    "-protocol_whitelist",
                                     "file,udp,rtp", "-i",          sdp,  "-map",     "0:v",
                                     "-fps_mode",    "passthrough", "-f", "framemd5", folder + "/v.md5",
                                     "-map",         "0:a",         "-f", "framemd5", folder + "/a.md5"},
                                    60);
    EXPECT_EQ(sender.Wait(), 0);
    EXPECT_EQ(received.exit_code, 0) << received.err;
    const auto hashes = [&](const std::string& name) {
        std::vector<std::string> found;
        const auto bytes = test::ReadFile(folder + name);
        std::istringstream lines(std::string(bytes.begin(), bytes.end()));
        for (std::string line; std::getline(lines, line);) {
            if (line[0] != '#') found.push_back(line.substr(line.rfind(' ') + 1));
        }
        return found;
    };
    EXPECT_EQ(hashes("/v.md5"), test::Pictures(clip));
    EXPECT_GE(hashes("/a.md5").size(), 40u);
}

INSTANTIATE_TEST_SUITE_P(All, Send,
                         testing::Values(SendCase{"h264_aac", "h264", "aac", 0, 1},
                                         SendCase{"h264_b_pictures_and_slices", "h264", "alaw", 2, 3},
                                         SendCase{"hevc_mp2", "hevc", "mp2", 0, 1},
                                         SendCase{"mpeg4_mulaw", "mpeg4", "mulaw", 0, 1},
                                         SendCase{"mjpeg_alaw", "mjpeg", "alaw", 0, 1}),
                         [](const auto& param) { return std::string(param.param.name); });

TEST(SendSdp, DescribesBothStreams) {
    ClipSpec spec;
    const std::string sdp = test::WorkPath("both.sdp");
    const auto run = Muxora(
        {"send", test::MakeClip(spec), "--to", "rtp://127.0.0.1:19998", "--sdp", sdp, "--speed", "100", "--json"});
    EXPECT_EQ(run.exit_code, 0) << run.err;
    EXPECT_TRUE(Contains(run.out, "\"video_frames\":50")) << run.out;
    const auto bytes = test::ReadFile(sdp);
    const std::string text(bytes.begin(), bytes.end());
    EXPECT_TRUE(Contains(text, "c=IN IP4 127.0.0.1\r\n"));
    EXPECT_TRUE(Contains(text, "m=video 19998 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\n"));
    EXPECT_TRUE(Contains(text, "m=audio 20000 RTP/AVP 97\r\na=rtpmap:97 mpeg4-generic/48000/1\r\n"));
    EXPECT_TRUE(Contains(text, "config=1188\r\n"));
    const auto unknown = Muxora({"send", test::MakeClip(spec), "--to", "rtp://no.such.host.invalid:5004"});
    EXPECT_EQ(unknown.exit_code, 1);
    EXPECT_TRUE(test::IsOneLine(unknown.err)) << unknown.err;
}

std::string Short() {
    ClipSpec spec;
    spec.seconds = 1;
    return test::MakeClip(spec);
}

TEST(SendOutput, IsTextOrJsonOrNothing) {
    // A connected socket is told that nobody listens, and takes no more.
    const std::string nobody = "udp://127.0.0.1:9?connect=1";
    const auto text = Muxora({"send", Short(), "--to", nobody, "--speed", "20"});
    EXPECT_EQ(text.exit_code, 0) << text.err;
    EXPECT_EQ(text.out.rfind("udp://127.0.0.1:9: ", 0), 0u) << text.out;
    EXPECT_TRUE(Contains(text.out, " datagrams were not taken by the system\n")) << text.out;
    const auto json = Muxora({"send", Short(), "--to", nobody, "--speed", "20", "--json"});
    EXPECT_EQ(json.exit_code, 0) << json.err;
    EXPECT_EQ(json.out.rfind("{\"to\":\"udp://127.0.0.1:9\",\"datagrams\":", 0), 0u) << json.out;
    EXPECT_TRUE(Contains(json.out, "\"video_frames\":25,")) << json.out;
    EXPECT_FALSE(Contains(json.out, "\"unsent\":0,")) << json.out;
    const auto quiet = Muxora({"send", Short(), "--to", nobody, "--speed", "20", "--quiet"});
    EXPECT_EQ(quiet.out + quiet.err, "");
    const auto rtp = Muxora({"send", Short(), "--to", "rtp://127.0.0.1:19990", "--speed", "20"});
    EXPECT_EQ(rtp.exit_code, 0) << rtp.err;
    EXPECT_TRUE(Contains(rtp.out, "rtp://127.0.0.1:19990: ")) << rtp.out;
    EXPECT_TRUE(Contains(rtp.out, " packets, ")) << rtp.out;
    EXPECT_EQ(Muxora({"send", Short(), "--to", "rtp://127.0.0.1:19990", "--speed", "20", "--quiet"}).out, "");
    const auto folder = Muxora({"send", Short(), "--to", "rtp://127.0.0.1:19990", "--sdp", "/nowhere/x.sdp"});
    EXPECT_EQ(folder.exit_code, 1);
    EXPECT_TRUE(Contains(folder.err, "cannot write /nowhere/x.sdp")) << folder.err;
}

TEST(SendOutput, AnInterruptEndsIt) {
    ClipSpec spec;
    spec.seconds = 60;
    spec.width = 64;
    spec.height = 48;
    spec.container = "mp4";
    for (const std::string to : {"rtp://127.0.0.1:19980", "udp://127.0.0.1:9"}) {
        const std::string said = test::FreshDirectory("interrupted") + "/said";
        test::Background sender({"sh", "-c",
                                 "exec " MUXORA_TOOL " send " + test::MakeClip(spec) + " --to " + to +
                                     " --json --sdp " + said + ".sdp > " + said});
        if (to[0] == 'u') {
            // A transport stream describes itself.
            EXPECT_EQ(sender.Wait(), 2);
            continue;
        }
        for (int i = 0; i < 2000 && !fs::exists(said + ".sdp"); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        sender.Signal(SIGTERM);
        EXPECT_EQ(sender.Wait(), 0);
        const auto bytes = test::ReadFile(said);
        const std::string json(bytes.begin(), bytes.end());
        EXPECT_TRUE(Contains(json, "\"packets\":")) << json;
        EXPECT_FALSE(Contains(json, "\"video_frames\":1500")) << json;
    }
    test::Background sender({MUXORA_TOOL, "send", test::MakeClip(spec), "--to", "udp://127.0.0.1:9", "--wait", "60"});
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    sender.Signal(SIGINT);
    const int code = sender.Wait();
    // Ahead of its handler the signal itself ends it.
    EXPECT_TRUE(code == 0 || code == 128 + SIGINT) << code;
}

// RFC 4571: each packet behind its length of 16 bits.
std::vector<std::vector<uint8_t>> Packets(const std::string& path) {
    const auto bytes = test::ReadFile(path);
    std::vector<std::vector<uint8_t>> packets;
    for (size_t at = 0; at + 2 <= bytes.size();) {
        const size_t size = static_cast<size_t>(bytes[at]) << 8 | bytes[at + 1];
        if (size < 12 || size > bytes.size() - at - 2) return {};
        const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(at + 2);
        packets.emplace_back(first, first + static_cast<std::ptrdiff_t>(size));
        at += 2 + size;
    }
    return packets;
}

TEST(RtpFile, HoldsPacketsAsTheOptionsSay) {
    const std::string out = test::WorkPath("x.rtp");
    for (const std::string codec : {"h264", "hevc", "mjpeg"}) {
        ClipSpec spec;
        spec.video = codec;
        spec.seconds = 1;
        const auto run =
            Muxora({"pack", test::MakeClip(spec), "-o", out, "-f", "rtp", "--no-audio", "--rtp-ssrc", "287454020",
                    "--rtp-sequence", "100", "--rtp-max-length", "500", "--rtp-payload-type", "99"});
        ASSERT_EQ(run.exit_code, 0) << run.err;
        const auto packets = Packets(out);
        ASSERT_GT(packets.size(), 25u) << codec;
        uint16_t sequence = 100;
        for (const auto& packet : packets) {
            EXPECT_LE(packet.size(), 500u + 12) << "the limit is the payload's, in some of the forms";
            EXPECT_EQ(packet[0] >> 6, 2) << "the version";
            EXPECT_EQ(packet[1] & 0x7F, 99);
            EXPECT_EQ(packet[2] << 8 | packet[3], ++sequence);
            EXPECT_EQ((std::vector<uint8_t>{packet.begin() + 8, packet.begin() + 12}),
                      (std::vector<uint8_t>{0x11, 0x22, 0x33, 0x44}));
        }
    }
    const auto sound = Muxora({"pack", Short(), "-o", out, "-f", "rtp", "--no-video", "--rtp-audio-ssrc", "287454020",
                               "--rtp-audio-sequence", "7", "--rtp-audio-payload-type", "98", "--rtp-audio-sample",
                               "48000", "--rtp-audio-timestamp", "1"});
    ASSERT_EQ(sound.exit_code, 0) << sound.err;
    const auto packets = Packets(out);
    ASSERT_GT(packets.size(), 40u);
    EXPECT_EQ(packets[0][1] & 0x7F, 98);
    EXPECT_EQ(packets[0][2] << 8 | packets[0][3], 8);
    EXPECT_EQ(packets[0][8], 0x11);
}

}  // namespace
