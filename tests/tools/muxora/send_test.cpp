// muxora send, received by ffmpeg on the loopback interface.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
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

}  // namespace
