// The same calls on every platform, and what came of them: format_bytes FOLDER writes a file for each format, way in
// and pair of codecs, and results.txt with every result. Two platforms agree when their folders are the same.
//
// format_bytes --record FOLDER records an OVX file and an MP4 without an end, tells of each frame on the standard
// output, and waits to be killed.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Muxora.h"
#include "MuxoraAPI.h"
#include "core/clock.h"
#include "support/noise.h"
#include "support/sink.h"

namespace {

using namespace Orvane::Muxora;
using test::ByteVector;

struct Codecs {
    uint32_t video;
    uint32_t audio;
};
// Numbers of the C interface; kPlain has those of the components.
constexpr Codecs kCodecs[] = {{MX_VIDEO_H264, MX_AUDIO_AAC},
                              {MX_VIDEO_H265, MX_AUDIO_MPEG},
                              {MX_VIDEO_MPEG4, MX_AUDIO_ALAW},
                              {MX_VIDEO_MJPEG, MX_AUDIO_PCM16},
                              {MX_VIDEO_MPEG2, MX_AUDIO_MULAW}};
constexpr Codecs kComponentCodecs[] = {{CODEC_H264, CODEC_AAC},
                                       {CODEC_H265, CODEC_MPEG_AUDIO},
                                       {CODEC_MPEG4, CODEC_ALAW},
                                       {CODEC_MJPEG, CODEC_PCM16},
                                       {CODEC_MPEG2, CODEC_MULAW}};
constexpr const char* kFileKeys[] = {"mp4", "mov", "3gp", "mp464", "mov64", "mp4noseek", "asf",  "mkv", "avi",
                                     "ovx", "flv", "wav", "fmp4",  "hmp4",  "xmkv",      "xflv", "xts"};
constexpr const char* kStreamKeys[] = {"asf",    "flv",  "ovx",  "rtp",  "ts",   "ps", "ovps",
                                       "gaysps", "gdps", "fmp4", "xmkv", "xflv", "xts"};
constexpr uint32_t kFrames = 60;
constexpr int64_t kClock = 1'700'000'000;

void Append(ByteVector& to, const std::vector<uint8_t>& bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

// A frame of a codec: what its scanners look for in front, then noise. One spare byte follows, as RTP wants it.
ByteVector VideoBytes(uint32_t codec, bool key, std::mt19937& random) {
    ByteVector bytes;
    if (codec == MX_VIDEO_H264 && key) {
        Append(bytes, {0, 0, 0, 1, 0x67, 0x64, 0x00, 0x28, 0xAC, 0xD9, 0x40, 0x78, 0, 0, 0, 1, 0x68, 0xEE, 0x3C, 0x80});
    }
    if (codec == MX_VIDEO_H264) Append(bytes, {0, 0, 0, 1, static_cast<uint8_t>(key ? 0x65 : 0x41)});
    if (codec == MX_VIDEO_H265 && key) {
        Append(bytes, {0,    0,    0,    1,    0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFF, 0x01, 0x60, 0,    0,    0,    1,
                       0x42, 0x01, 0x01, 0x01, 0x60, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0x5D, 0xA0,
                       0x02, 0x80, 0x80, 0x2D, 0x16, 0,    0,    0,    1,    0x44, 0x01, 0xC0, 0xF3, 0xC0, 0x02});
    }
    if (codec == MX_VIDEO_H265) Append(bytes, {0, 0, 0, 1, static_cast<uint8_t>(key ? 0x26 : 0x02), 0x01});
    if (codec == MX_VIDEO_MPEG4 && key) Append(bytes, {0, 0, 1, 0xB0, 1, 0, 0, 1, 0x20, 0x00, 0xC4, 0x88});
    if (codec == MX_VIDEO_MPEG4) Append(bytes, {0, 0, 1, 0xB6, static_cast<uint8_t>(key ? 0x10 : 0x50)});
    if (codec == MX_VIDEO_MJPEG)
        Append(bytes, {0xFF, 0xD8, 0xFF, 0xC0, 0, 17, 8, 2, 0xD0, 5, 0, 3, 1, 0x22, 0, 2, 0x11, 1});
    if (codec == MX_VIDEO_MPEG2) Append(bytes, {0, 0, 1, 0xB3, 0x50, 0x02, 0xD0, 0x13, 0, 0, 1, 0x00, 0x00, 0x0F});
    Append(bytes, test::RandomBytes(random, 300 + random() % 6000));
    return bytes;
}

ByteVector AudioBytes(uint32_t codec, std::mt19937& random) {
    ByteVector bytes = test::RandomBytes(random, 640);
    if (codec == MX_AUDIO_AAC) {
        const uint8_t head[] = {0xFF, 0xF1, 0x4C, 0x80, 640 >> 3, 0x1F, 0xFC};
        std::memcpy(bytes.data(), head, sizeof head);
    } else if (codec == MX_AUDIO_MPEG) {
        const uint8_t head[] = {0xFF, 0xFD, 0x94, 0x00};
        std::memcpy(bytes.data(), head, sizeof head);
    }
    return bytes;
}

// Frame `number` of a stream: sound is every third.
struct Frame {
    bool audio;
    bool key;
    uint32_t codec;
    uint32_t time;
    ByteVector bytes;  // with the spare byte

    uint32_t Size() const { return static_cast<uint32_t>(bytes.size() - 1); }
};

Frame MakeFrame(uint32_t number, const Codecs& codecs, std::mt19937& random) {
    Frame frame{number % 3 == 2, number % 15 == 0, 0, 1000 + number * 20, {}};
    frame.codec = frame.audio ? codecs.audio : codecs.video;
    frame.bytes = frame.audio ? AudioBytes(frame.codec, random) : VideoBytes(frame.codec, frame.key, random);
    frame.bytes.push_back(0xA5);
    return frame;
}

MXFrameInfo Record(Frame& frame) {
    MXFrameInfo info{};
    info.size = sizeof info;
    info.frame_pointer = frame.bytes.data();
    info.frame_size = frame.Size();
    info.encode_type = frame.codec;
    info.timestamp = frame.time;
    info.utc_time = static_cast<uint32_t>(kClock + frame.time / 1000);
    if (frame.audio) {
        info.frame_type = MX_FRAME_AUDIO;
        info.samples_per_sec = frame.codec == MX_AUDIO_ALAW || frame.codec == MX_AUDIO_MULAW ? 8000 : 48000;
        info.bits_per_sample = 16;
        info.channels = 1;
        info.bitrate = 64000;
    } else {
        info.frame_type = MX_FRAME_VIDEO;
        info.frame_sub_type = frame.key ? MX_SUB_I : MX_SUB_P;
        info.width = 1280;
        info.height = 720;
        info.frame_rate = 25;
        info.encrypt_offset = 40;
        info.encrypt_length = 200;
    }
    return info;
}

AttributeMap Attributes(const Frame& frame, const Codecs& numbers) {
    AttributeMap map = {{"frametype", frame.audio ? FRAME_KIND_AUDIO : FRAME_KIND_VIDEO},
                        {"framesubtype", frame.key ? FRAME_SUB_I : FRAME_SUB_P},
                        {"encodetype", frame.audio ? numbers.audio : numbers.video},
                        {"timestamp", frame.time}};
    if (frame.audio) {
        map.insert({{"samplespersec", 8000}, {"channels", 1}, {"bitspersample", 16}, {"bitrate", 64000}});
    } else {
        map.insert({{"width", 1280}, {"height", 720}, {"rate", 25}});
        map.insert(
            {{"year", 2023}, {"month", 11}, {"day", 14}, {"hour", 22}, {"minute", 13}, {"second", frame.time / 1000}});
    }
    return map;
}

class Comparison {
  public:
    explicit Comparison(std::string folder)
        : folder_(std::move(folder)), results_(folder_ + "/results.txt", std::ios::binary) {}

    // Through the C interface. Formats that are not there leave no trace.
    void ByNumber(uint32_t format, const Codecs& codecs) {
        const std::string name =
            std::to_string(format) + "-" + std::to_string(codecs.video) + "-" + std::to_string(codecs.audio);
        test::Sink sink;
        const MXCreateParam param = sink.Param();
        const MXHandle handle = MX_CreateHandle(format, &param);
        if (handle == nullptr) return;
        ++formats_;
        MXHeaderInfo header{};
        header.video_present = 1;
        header.video_encode_type = codecs.video;
        header.width = 1280;
        header.height = 720;
        header.frame_rate = 25;
        header.audio_present = 1;
        header.audio_encode_type = codecs.audio;
        header.channels = 1;
        header.bits_per_sample = 16;
        header.samples_per_sec = 8000;
        header.start_time_ms = MX_NO_START_TIME;
        MX_SetEncryptType(handle, MX_ENCRYPT_AES, "0123456789abcdef", 16);
        MXRtpParam rtp{};
        rtp.size = sizeof rtp;
        rtp.max_rtp_packet_length = 1400;
        rtp.rtp_payload_type = 96;
        rtp.rtp_ssrc = 0x11223344;
        rtp.rtp_audio_payload_type = 97;
        rtp.rtp_audio_sample = 48000;
        MX_SetParam(handle, MX_PARAM_RTP, &rtp, sizeof rtp);
        results_ << name << ": " << MX_CreateHeader(handle, &header) << ' ';
        std::mt19937 random(format);
        for (uint32_t number = 0; number < kFrames; ++number) {
            Frame frame = MakeFrame(number, codecs, random);
            MXFrameInfo info = Record(frame);
            results_ << MX_InputFrame(handle, &info);
            if (number == kFrames / 2) {
                MXOutputBlock block{};
                results_ << '[' << MX_GetBackup(handle, &block) << ']';
                if (block.data != nullptr) Write(name + "-backup", block.data, block.length);
            }
        }
        results_ << ' ' << MX_CreateTailer(handle, nullptr) << ", " << sink.blocks.size() << " blocks\n";
        MX_DestroyHandle(handle);
        Write(name, sink.file.data(), sink.file.size());
    }

    // Through the file component, onto the disk.
    void ByFile(const std::string& key, size_t pair) {
        CFilePackage package(key);
        const std::string name = "file-" + key + "-" + std::to_string(pair);
        results_ << name << ": " << package.open((folder_ + "/" + name).c_str()) << ' ';
        std::mt19937 random(7);
        for (uint32_t number = 0; number < kFrames; ++number) {
            Frame frame = MakeFrame(number, kCodecs[pair], random);
            results_ << package.inputFrame(frame.bytes.data(), frame.Size(), Attributes(frame, kComponentCodecs[pair]));
        }
        results_ << ' ' << package.close() << '\n';
    }

    // Through the stream component, packet by packet.
    void ByPacket(const std::string& key, size_t pair) {
        CMuxora stream(key);
        stream.setParam("rtp_audio_sample", 48000);
        stream.setParam("rtp_ssrc", 0x11223344);
        const std::string name = "stream-" + key + "-" + std::to_string(pair);
        results_ << name << ": ";
        ByteVector all;
        std::mt19937 random(8);
        for (uint32_t number = 0; number < kFrames; ++number) {
            Frame frame = MakeFrame(number, kCodecs[pair], random);
            // The C library draws the SSRC of RTP's sound, and here nobody can set it.
            if (key == "rtp" && frame.audio) continue;
            results_ << stream.inputFrame(frame.bytes.data(), frame.Size(), Attributes(frame, kComponentCodecs[pair]));
            Basalt::TSharedPtr<IMuxoraData> packet;
            if (stream.getPacket(packet))
                all.insert(all.end(), packet->getBuffer(), packet->getBuffer() + packet->getLen());
        }
        results_ << '\n';
        Write(name, all.data(), all.size());
    }

    uint32_t formats() const { return formats_; }

  private:
    void Write(const std::string& name, const void* data, size_t length) {
        std::ofstream file(folder_ + "/" + name, std::ios::binary);
        file.write(static_cast<const char*>(data), static_cast<std::streamsize>(length));
    }

    std::string folder_;
    std::ofstream results_;
    uint32_t formats_ = 0;
};

int Compare(const std::string& folder) {
    const ScopedClock clock(kClock);
    Comparison comparison(folder);
    for (const Codecs& codecs : kCodecs) {
        for (uint32_t format = 0; format < 64; ++format)
            comparison.ByNumber(format, codecs);
        for (uint32_t format = 0x10000; format < 0x10010; ++format)
            comparison.ByNumber(format, codecs);
    }
    for (size_t pair = 0; pair < std::size(kCodecs); ++pair) {
        for (const char* key : kFileKeys)
            comparison.ByFile(key, pair);
        for (const char* key : kStreamKeys)
            comparison.ByPacket(key, pair);
    }
    std::printf("%u streams by number, %zu by the components\n", comparison.formats(),
                std::size(kCodecs) * (std::size(kFileKeys) + std::size(kStreamKeys)));
    return 0;
}

int RecordForEver(const std::string& folder) {
    const ScopedClock clock(kClock);
    CFilePackage ovx("ovx");
    CFilePackage mp4("mp4noseek");
    if (!ovx.open((folder + "/killed.ovx").c_str()) || !mp4.open((folder + "/killed.mp4").c_str())) return 1;
    std::mt19937 random(9);
    for (uint32_t number = 0; number < 100'000; ++number) {
        const Frame frame = MakeFrame(number, kCodecs[0], random);
        const AttributeMap attributes = Attributes(frame, kComponentCodecs[0]);
        if (!ovx.inputFrame(frame.bytes.data(), frame.Size(), attributes)) return 2;
        mp4.inputFrame(frame.bytes.data(), frame.Size(), attributes);
        std::printf("%u\n", number + 1);
        std::fflush(stdout);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return 3;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2) return Compare(argv[1]);
    if (argc == 3 && std::strcmp(argv[1], "--record") == 0) return RecordForEver(argv[2]);
    std::fprintf(stderr, "usage: %s [--record] FOLDER\n", argv[0]);
    return 2;
}
