#include "exact/exact_clip.h"

extern "C" {
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "media_input/av_handles.h"
#include "media_input/elementary.h"
#include "support/clip.h"
#include "support/process.h"

namespace test {

namespace {

using Orvane::Muxora::Tools::AdtsConfig;
using Orvane::Muxora::Tools::AdtsFromSpecificConfig;
using Orvane::Muxora::Tools::AvPtr;

uint32_t Codec(AVCodecID id) {
    switch (id) {
        case AV_CODEC_ID_H264:
            return MX_VIDEO_H264;
        case AV_CODEC_ID_HEVC:
            return MX_VIDEO_H265;
        case AV_CODEC_ID_MPEG4:
            return MX_VIDEO_MPEG4;
        case AV_CODEC_ID_MJPEG:
            return MX_VIDEO_MJPEG;
        case AV_CODEC_ID_AAC:
            return MX_AUDIO_AAC;
        case AV_CODEC_ID_MP2:
        case AV_CODEC_ID_MP3:
            return MX_AUDIO_MPEG;
        case AV_CODEC_ID_PCM_ALAW:
            return MX_AUDIO_ALAW;
        case AV_CODEC_ID_PCM_MULAW:
            return MX_AUDIO_MULAW;
        case AV_CODEC_ID_PCM_S16LE:
            return MX_AUDIO_PCM16;
        default:
            throw std::runtime_error("a codec that no encode has");
    }
}

// One stream on its way from packets to frames.
class Stream {
  public:
    explicit Stream(const AVStream& stream) : stream_(stream), codec_(Codec(stream.codecpar->codec_id)) {
        const AVCodecParameters& par = *stream.codecpar;
        const char* filter = par.codec_id == AV_CODEC_ID_H264    ? "h264_mp4toannexb"
                             : par.codec_id == AV_CODEC_ID_HEVC  ? "hevc_mp4toannexb"
                             : par.codec_id == AV_CODEC_ID_MPEG4 ? "dump_extra"
                                                                 : nullptr;
        if (filter != nullptr) {
            AVBSFContext* context = nullptr;
            if (av_bsf_alloc(av_bsf_get_by_name(filter), &context) < 0) throw std::runtime_error(filter);
            filter_.reset(context);
            avcodec_parameters_copy(context->par_in, &par);
            context->time_base_in = stream.time_base;
            if (av_bsf_init(context) < 0) throw std::runtime_error(filter);
        }
        if (codec_ == MX_AUDIO_AAC) {
            std::string why;
            const auto config = AdtsFromSpecificConfig({par.extradata, static_cast<size_t>(par.extradata_size)}, why);
            if (!config) throw std::runtime_error(why);
            adts_ = *config;
        }
    }

    void Take(AVPacket* packet, std::vector<ExactFrame>& out) {
        if (filter_ == nullptr) return Push(*packet, out);
        if (av_bsf_send_packet(filter_.get(), packet) < 0) throw std::runtime_error("a bad packet");
        const AvPtr<AVPacket> filtered(av_packet_alloc());
        while (av_bsf_receive_packet(filter_.get(), filtered.get()) == 0) {
            Push(*filtered, out);
            av_packet_unref(filtered.get());
        }
    }

  private:
    void Push(const AVPacket& packet, std::vector<ExactFrame>& out) {
        const AVCodecParameters& par = *stream_.codecpar;
        ExactFrame frame;
        frame.info.size = sizeof frame.info;
        frame.info.encode_type = codec_;
        if (par.codec_type == AVMEDIA_TYPE_VIDEO) {
            frame.info.frame_type = MX_FRAME_VIDEO;
            frame.info.frame_sub_type = (packet.flags & AV_PKT_FLAG_KEY) != 0 ? MX_SUB_I : MX_SUB_P;
            frame.info.width = static_cast<uint32_t>(par.width);
            frame.info.height = static_cast<uint32_t>(par.height);
            frame.info.frame_rate = static_cast<uint32_t>(av_q2d(stream_.avg_frame_rate) + 0.5);
        } else {
            frame.info.frame_type = MX_FRAME_AUDIO;
            frame.info.samples_per_sec = static_cast<uint32_t>(par.sample_rate);
            frame.info.channels = static_cast<uint32_t>(par.ch_layout.nb_channels);
            frame.info.bits_per_sample = 16;
        }
        const std::vector<uint8_t> body(packet.data, packet.data + packet.size);
        if (codec_ == MX_AUDIO_AAC) {
            const auto header = adts_.Header(body.size());
            frame.bytes.assign(header.begin(), header.end());
        }
        frame.bytes.insert(frame.bytes.end(), body.begin(), body.end());
        frame.scale = static_cast<uint32_t>(stream_.time_base.den);
        const int64_t step = stream_.time_base.num;
        frame.dts = packet.dts * step;
        frame.pts = packet.pts * step;
        frame.duration = packet.duration * step;
        out.push_back(std::move(frame));
    }

    const AVStream& stream_;
    uint32_t codec_;
    AvPtr<AVBSFContext> filter_;
    AdtsConfig adts_;
};

struct FileSink {
    std::fstream file;
    ExactResult* result;
    Sink kind;
    uint64_t end = 0;

    static int32_t Take(const MXOutputBlock* block, void* user) {
        auto& self = *static_cast<FileSink*>(user);
        if (block->size < sizeof(MXExactBlock)) throw std::logic_error("a block without a note");
        MXExactBlock note = *reinterpret_cast<const MXExactBlock*>(block);
        if (self.kind == Sink::kForwardOnly && note.kind == MX_BLOCK_PATCH) return 0;
        const bool absolute = self.kind == Sink::kFile && block->seek_type == MX_SEEK_ABSOLUTE;
        const uint64_t at = absolute ? static_cast<uint64_t>(block->offset) : self.end;
        self.file.seekp(static_cast<std::streamoff>(at));
        self.end = std::max(self.end, at + block->length);
        self.file.write(static_cast<const char*>(block->data), block->length);
        note.block.data = nullptr;
        self.result->blocks.push_back(note);
        return 0;
    }
};

}  // namespace

MXFrameInfo ExactFrame::Record() const {
    MXFrameInfo record = info;
    record.frame_pointer = const_cast<uint8_t*>(bytes.data());
    record.frame_size = static_cast<uint32_t>(bytes.size());
    MXSetFrameTimes(&record, scale, dts, pts, duration);
    return record;
}

const std::vector<Encode>& Encodes() {
    static const std::vector<Encode> encodes = {
        {"film_23976_open_gop",
         "testsrc2=s=320x180:r=24000/1001:d=4",
         "sine=r=48000:d=4",
         {"-c:v", "libx264", "-x264-params", "keyint=30:open-gop=1", "-c:a", "aac"}},
        {"ntsc_2997", "testsrc2=s=320x180:r=30000/1001:d=4", "sine=r=44100:d=4", {"-c:v", "libx264", "-c:a", "aac"}},
        {"fast_5994",
         "testsrc2=s=320x180:r=60000/1001:d=3",
         "sine=r=48000:d=3",
         {"-c:v", "libx264", "-bf", "3", "-c:a", "aac"}},
        {"deep_pyramid_50",
         "testsrc2=s=320x180:r=50:d=3",
         "sine=r=48000:d=3",
         {"-c:v", "libx264", "-x264-params", "bframes=8:b-adapt=2:b-pyramid=normal:ref=6", "-c:a", "mp2"},
         "mov"},
        {"variable_rate",
         "testsrc2=s=320x180:r=60:d=4",
         "sine=r=44100:d=4",
         {"-vf", "select='not(mod(n\\,7))+not(mod(n\\,5))+gt(random(1)\\,0.6)'", "-fps_mode", "vfr", "-c:v", "libx264",
          "-c:a", "aac"}},
        {"fields_2997",
         "testsrc2=s=320x240:r=30000/1001:d=3",
         "sine=r=48000:d=3",
         {"-flags", "+ildct+ilme", "-c:v", "libx264", "-x264-params", "tff=1", "-c:a", "aac"}},
        {"hevc_23976",
         "testsrc2=s=320x180:r=24000/1001:d=3",
         "sine=r=48000:d=3",
         {"-c:v", "libx265", "-x265-params", "log-level=0:keyint=24", "-tag:v", "hvc1", "-c:a", "aac"}},
        {"hevc_open_25",
         "testsrc2=s=320x180:r=25:d=3",
         "sine=r=44100:d=3",
         {"-c:v", "libx265", "-x265-params", "log-level=0:bframes=5:open-gop=1:keyint=20", "-tag:v", "hvc1", "-c:a",
          "aac"}},
        {"baseline_30",
         "testsrc2=s=320x180:r=30:d=3",
         "sine=r=44100:d=3",
         {"-c:v", "libx264", "-profile:v", "baseline", "-pix_fmt", "yuv420p", "-g", "30", "-c:a", "libmp3lame"}},
        {"part2_25",
         "testsrc2=s=320x180:r=25:d=3",
         "sine=r=48000:d=3",
         {"-c:v", "mpeg4", "-bf", "2", "-g", "25", "-c:a", "libmp3lame"}},
        {"low_latency_60",
         "testsrc2=s=320x180:r=60:d=3",
         "sine=r=32000:d=3",
         {"-c:v", "libx264", "-tune", "zerolatency", "-g", "60", "-c:a", "aac"}},
        {"sound_alone", nullptr, "sine=r=44100:d=4", {"-c:a", "aac"}},
        {"stereo_22050",
         "testsrc2=s=320x180:r=12:d=3",
         "aevalsrc=sin(440*t)|sin(880*t):s=22050:d=3",
         {"-c:v", "libx264", "-g", "12", "-c:a", "aac"}},
    };
    return encodes;
}

const Encode& EncodeNamed(const std::string& name) {
    for (const Encode& encode : Encodes()) {
        if (encode.name == name) return encode;
    }
    throw std::logic_error("no encode " + name);
}

std::string MakeEncode(const Encode& encode) {
    static std::map<std::string, std::string> made;
    std::string& path = made[encode.name];
    if (!path.empty()) return path;
    const std::string wanted = WorkPath(std::string(encode.name) + "." + encode.container);
    std::vector<std::string> argv{"ffmpeg", "-v", "error", "-y"};
    if (encode.video_source != nullptr) argv.insert(argv.end(), {"-f", "lavfi", "-i", encode.video_source});
    if (encode.audio_source != nullptr) argv.insert(argv.end(), {"-f", "lavfi", "-i", encode.audio_source});
    argv.insert(argv.end(), encode.arguments.begin(), encode.arguments.end());
    argv.push_back(wanted);
    const RunResult run = Run(argv);
    if (!run.Ok()) throw std::runtime_error(run.err);
    return path = wanted;
}

std::vector<ExactFrame> ReadExact(const std::string& path) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0) throw std::runtime_error("cannot open " + path);
    const AvPtr<AVFormatContext> input(raw);
    if (avformat_find_stream_info(raw, nullptr) < 0) throw std::runtime_error("no streams in " + path);
    std::vector<std::unique_ptr<Stream>> streams;
    for (unsigned i = 0; i < raw->nb_streams; ++i)
        streams.push_back(std::make_unique<Stream>(*raw->streams[i]));
    std::vector<ExactFrame> frames;
    const AvPtr<AVPacket> packet(av_packet_alloc());
    while (av_read_frame(raw, packet.get()) >= 0) {
        streams[static_cast<size_t>(packet->stream_index)]->Take(packet.get(), frames);
        av_packet_unref(packet.get());
    }
    // In the order of decoding: files may hold their streams in large pieces.
    std::stable_sort(frames.begin(), frames.end(), [](const ExactFrame& a, const ExactFrame& b) {
        return a.dts * static_cast<int64_t>(b.scale) < b.dts * static_cast<int64_t>(a.scale);
    });
    return frames;
}

ExactResult PackExact(uint32_t format, const std::vector<ExactFrame>& frames, const std::string& path, Sink sink) {
    ExactResult result;
    FileSink out{std::fstream(path, std::ios::binary | std::ios::trunc | std::ios::in | std::ios::out), &result, sink};
    MXCreateParam param{};
    param.user = &out;
    param.output = FileSink::Take;
    const std::unique_ptr<void, decltype(&MX_DestroyHandle)> handle(MX_CreateHandle(format, &param), MX_DestroyHandle);
    if (handle == nullptr) throw std::runtime_error("no packager for format " + std::to_string(format));
    MXHeaderInfo header{};
    header.start_time_ms = MX_NO_START_TIME;
    for (const ExactFrame& frame : frames) {
        if (frame.IsVideo()) {
            header.video_present = 1;
            header.video_encode_type = frame.info.encode_type;
        } else {
            header.audio_present = 1;
            header.audio_encode_type = frame.info.encode_type;
            header.samples_per_sec = frame.info.samples_per_sec;
        }
    }
    if (MX_CreateHeader(handle.get(), &header) != MX_OK) throw std::runtime_error("no header");
    for (const ExactFrame& frame : frames) {
        const std::vector<uint8_t> before = frame.bytes;
        MXFrameInfo record = frame.Record();
        if (MX_InputFrame(handle.get(), &record) != MX_OK) ++result.refused;
        if (frame.bytes != before) throw std::logic_error("the caller's frame was changed");
    }
    if (MX_CreateTailer(handle.get(), nullptr) != MX_OK) throw std::runtime_error("no tailer");
    MXGetTimeRepairs(handle.get(), &result.repairs);
    if (!out.file.flush()) throw std::runtime_error("the file could not be written");
    return result;
}

std::vector<Written> HybridWrites(const std::vector<ExactFrame>& frames) {
    std::vector<Written> writes;
    MXCreateParam param{};
    param.user = &writes;
    param.output = [](const MXOutputBlock* block, void* user) {
        const auto* bytes = static_cast<const uint8_t*>(block->data);
        static_cast<std::vector<Written>*>(user)->push_back(
            {reinterpret_cast<const MXExactBlock*>(block)->kind, block->offset, {bytes, bytes + block->length}});
        return 0;
    };
    const std::unique_ptr<void, decltype(&MX_DestroyHandle)> handle(MX_CreateHandle(MX_FORMAT_HMP4, &param),
                                                                    MX_DestroyHandle);
    if (MX_CreateHeader(handle.get(), nullptr) != MX_OK) throw std::runtime_error("no header");
    for (const ExactFrame& frame : frames) {
        MXFrameInfo record = frame.Record();
        if (MX_InputFrame(handle.get(), &record) != MX_OK) throw std::runtime_error("a frame was refused");
    }
    if (MX_CreateTailer(handle.get(), nullptr) != MX_OK) throw std::runtime_error("no tailer");
    return writes;
}

PacketList ListPackets(const std::string& path, const std::string& streams) {
    const RunResult run = Run({"ffprobe", "-v", "error", "-select_streams", streams, "-show_entries",
                               "stream=time_base:packet=pts,dts,duration,size,flags", "-of", "compact=p=1:nk=0", path});
    if (!run.Ok()) throw std::runtime_error(run.err);
    PacketList list;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        std::map<std::string, std::string> fields;
        std::istringstream parts(line);
        for (std::string part; std::getline(parts, part, '|');) {
            const size_t at = part.find('=');
            if (at != std::string::npos) fields[part.substr(0, at)] = part.substr(at + 1);
        }
        const auto number = [&](const char* name) {
            const auto at = fields.find(name);
            return at == fields.end() || at->second == "N/A" ? INT64_MIN : std::stoll(at->second);
        };
        if (line.starts_with("packet")) {
            list.packets.push_back({number("pts"), number("dts"), number("duration"),
                                    fields["flags"].find('K') != std::string::npos, number("size")});
        } else if (line.starts_with("stream")) {
            const std::string base = fields["time_base"];
            list.scale_num = std::stoll(base);
            list.scale_den = std::stoll(base.substr(base.find('/') + 1));
        }
    }
    return list;
}

}  // namespace test
