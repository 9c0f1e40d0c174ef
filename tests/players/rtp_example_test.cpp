// The example of docs/RTP.md: the program sends an elementary stream over the loopback interface, and ffmpeg decodes
// every frame from its datagrams. The code in the document is that of the program.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <ostream>
#include <set>
#include <stdexcept>

#include "rtp_loopback.h"
#include "support/clip.h"
#include "support/decoded.h"
#include "support/process.h"

namespace {

using test::Datagram;
using test::RtpFormat;
using test::RunResult;
using Bytes = std::vector<uint8_t>;
using Words = std::vector<std::string>;

// Takes what comes in on a port of the loopback interface.
class Receiver {
  public:
    Receiver() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const int room = 4 << 20;
        setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        if (bind(fd_, any, length) != 0 || getsockname(fd_, any, &length) != 0) throw std::runtime_error("no port");
        port_ = ntohs(address.sin_port);
    }
    ~Receiver() { close(fd_); }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    uint16_t port() const { return port_; }

    // All datagrams up to `sent` of them, or up to the end of the sender.
    std::vector<Datagram> Take(const std::future<RunResult>& sender) const {
        std::vector<Datagram> datagrams;
        for (bool ended = false;;) {
            pollfd waits{fd_, POLLIN, 0};
            if (poll(&waits, 1, 50) == 0) {
                if (ended) return datagrams;
                ended = sender.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
                continue;
            }
            Bytes bytes(65536);
            const ssize_t got = recv(fd_, bytes.data(), bytes.size(), 0);
            if (got < 12) throw std::runtime_error("not RTP");
            bytes.resize(static_cast<size_t>(got));
            datagrams.push_back({std::move(bytes), 0});
        }
    }

  private:
    int fd_;
    uint16_t port_ = 0;
};

struct ExampleCase {
    const char* codec;
    RtpFormat format;
    Words source;
    Words encoder;
    const char* file;
    Words elementary;
};

void PrintTo(const ExampleCase& one, std::ostream* out) {
    *out << one.codec;
}

// Motion JPEG over RTP has two tables in each picture.
const std::string kFlatMatrix = [] {
    std::string values = "16";
    for (int i = 1; i < 64; ++i)
        values += ",20";
    return values;
}();

const Words kPictures{"-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25:duration=1"};
const ExampleCase kCases[] = {
    {"h264",
     {"video", 96, "H264/90000", "packetization-mode=1", true},
     kPictures,
     {"-pix_fmt", "yuv420p", "-c:v", "libx264", "-preset", "ultrafast", "-x264-params", "keyint=10:slices=1:bframes=0"},
     "example.h264",
     {"-f", "h264"}},
    {"h265",
     {"video", 96, "H265/90000", "", false},
     kPictures,
     {"-pix_fmt", "yuv420p", "-c:v", "libx265", "-preset", "ultrafast", "-x265-params",
      "log-level=none:keyint=10:bframes=0:pools=none"},
     "example.hevc",
     {"-f", "hevc"}},
    {"jpeg",
     {"video", 26, "JPEG/90000", "", false},
     kPictures,
     {"-c:v", "mjpeg", "-pix_fmt", "yuvj420p", "-huffman", "default", "-q:v", "4", "-chroma_intra_matrix", kFlatMatrix},
     "example-%02d.jpg",
     {"-f", "image2"}},
    {"aac",
     {"audio", 97, "mpeg4-generic/48000/1",
      "streamtype=5;profile-level-id=1;mode=AAC-hbr;config=1188;sizelength=13;indexlength=3;indexdeltalength=3", true},
     {"-f", "lavfi", "-i", "sine=frequency=440:beep_factor=4:sample_rate=48000:duration=1"},
     {"-c:a", "aac", "-ac", "1", "-b:a", "64k"},
     "example.aac",
     {"-f", "aac"}},
};

class RtpExample : public testing::TestWithParam<ExampleCase> {};

TEST_P(RtpExample, FfmpegDecodesWhatItSends) {
    const ExampleCase& one = GetParam();
    const std::string path = test::WorkPath(one.file);
    Words argv{"ffmpeg", "-nostdin", "-loglevel", "error", "-y"};
    argv.insert(argv.end(), one.source.begin(), one.source.end());
    argv.insert(argv.end(), one.encoder.begin(), one.encoder.end());
    argv.push_back(path);
    const RunResult made = test::Run(argv);
    ASSERT_TRUE(made.Ok()) << made.err;

    const Receiver receiver;
    Words example{RTP_EXAMPLE, one.codec, std::to_string(receiver.port())};
    if (std::string(one.codec) == "jpeg") {
        std::set<std::string> pictures;
        for (const auto& entry : std::filesystem::directory_iterator(test::WorkDirectory())) {
            if (entry.path().extension() == ".jpg") pictures.insert(entry.path().string());
        }
        example.insert(example.end(), pictures.begin(), pictures.end());
    } else {
        example.push_back(path);
    }
    auto sender = std::async(std::launch::async, [&] { return test::Run(example); });
    std::vector<Datagram> datagrams = receiver.Take(sender);
    const RunResult sent = sender.get();
    ASSERT_TRUE(sent.Ok()) << sent.err;
    EXPECT_EQ(sent.out, std::to_string(datagrams.size()) + " datagrams\n");
    // A frame is all packets of one time.
    for (size_t i = 1; i < datagrams.size(); ++i) {
        const bool same = std::equal(datagrams[i].bytes.begin() + 4, datagrams[i].bytes.begin() + 8,
                                     datagrams[i - 1].bytes.begin() + 4);
        datagrams[i].frame = datagrams[i - 1].frame + (same ? 0 : 1);
    }

    const test::RtpLoopback loopback(one.format);
    const auto decode = [&](const std::string& from, const Words& words) {
        const test::Decoded decoded =
            one.format.media == "video" ? test::DecodeVideo(from, words) : test::DecodeAudio(from, words);
        EXPECT_TRUE(decoded.ok) << decoded.errors;
        return decoded.Hashes();
    };
    const Words expected = decode(path, one.elementary);
    const Words received = loopback.Play(datagrams, [&] {
        return decode(loopback.sdp_path(), {"-protocol_whitelist", "file,udp,rtp", "-buffer_size", "4000000"});
    });
    EXPECT_GE(expected.size(), 25u);
    EXPECT_EQ(received, expected);
}

INSTANTIATE_TEST_SUITE_P(Codecs, RtpExample, testing::ValuesIn(kCases),
                         [](const auto& one) { return std::string(one.param.codec); });

std::string Text(const std::string& path) {
    const Bytes bytes = test::ReadFile(path);
    return {bytes.begin(), bytes.end()};
}
std::string Between(const std::string& text, const std::string& first, const std::string& last) {
    const size_t from = text.find(first) + first.size();
    return text.substr(from, text.find(last, from) - from);
}

TEST(RtpDocument, ShowsTheCodeOfTheExample) {
    const std::string example = Text(std::string(SOURCE_FOLDER) + "/examples/rtp_datagrams.c");
    const std::string document = Text(std::string(SOURCE_FOLDER) + "/docs/RTP.md");
    const std::string code = Between(example, "/* [datagram] */\n", "/* [datagram] */");
    EXPECT_NE(code.find("packet += 2"), std::string::npos);
    EXPECT_EQ(Between(document, "#include <sys/socket.h>\n\n", "```"), code);
}

}  // namespace
