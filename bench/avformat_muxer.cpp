#include "avformat_muxer.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cstring>

namespace bench {

namespace {

constexpr int kIoBufferSize = 1 << 20;
constexpr int kRtpPacketSize = 1400;

int DropBytes(void* /*opaque*/, uint8_t* /*bytes*/, int size) {
    return size;
}

int64_t DropSeek(void* /*opaque*/, int64_t offset, int whence) {
    return whence == AVSEEK_SIZE ? 0 : offset;
}

}  // namespace

// One context of libavformat. RTP has one for each stream.
struct AvformatMuxer::State {
    AVFormatContext* context = nullptr;
    AVPacket* packet = nullptr;
    int video = -1;
    int audio = -1;
    int64_t last_times[2] = {-1, -1};
    bool ok = false;

    State(const GeneralPurpose& format, Codecs codecs);
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void Write(const MXFrameInfo& frame);

    int AddStream(AVMediaType type, AVCodecID codec) {
        AVStream* const stream = avformat_new_stream(context, nullptr);
        AVCodecParameters* const params = stream->codecpar;
        params->codec_type = type;
        params->codec_id = codec;
        stream->time_base = {1, 1000};
        if (type == AVMEDIA_TYPE_VIDEO) {
            params->width = 1920;
            params->height = 1080;
            stream->avg_frame_rate = {25, 1};
            static constexpr uint8_t kParameterSets[] = {0,    0,    0,    1,    0x67, 0x64, 0x00, 0x28, 0xAC, 0xD9,
                                                         0x40, 0x78, 0x02, 0x27, 0xE5, 0xC0, 0x44, 0x11, 0x6E, 0x3C,
                                                         0,    0,    0,    1,    0x68, 0xEB, 0xE3, 0xCB, 0x22, 0xC0};
            SetExtra(params, kParameterSets, sizeof kParameterSets);
        } else {
            params->sample_rate = codec == AV_CODEC_ID_AAC ? 48000 : 8000;
            av_channel_layout_default(&params->ch_layout, codec == AV_CODEC_ID_AAC ? 2 : 1);
            params->bits_per_coded_sample = 16;
            params->frame_size = 1024;
            params->block_align = 2;
            static constexpr uint8_t kAudioSpecificConfig[] = {0x11, 0x90};
            // The transport stream wants ADTS as it comes, so no configuration there.
            if (codec == AV_CODEC_ID_AAC && std::strcmp(context->oformat->name, "mpegts") != 0) {
                SetExtra(params, kAudioSpecificConfig, sizeof kAudioSpecificConfig);
            }
        }
        return stream->index;
    }

    static void SetExtra(AVCodecParameters* params, const uint8_t* bytes, size_t size) {
        params->extradata = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
        std::memcpy(params->extradata, bytes, size);
        params->extradata_size = static_cast<int>(size);
    }
};

AvformatMuxer::State::State(const GeneralPurpose& format, Codecs codecs) {
    if (avformat_alloc_output_context2(&context, nullptr, format.name, nullptr) < 0) return;
    if (format.movflags != nullptr) av_opt_set(context->priv_data, "movflags", format.movflags, 0);
    auto* const buffer = static_cast<uint8_t*>(av_malloc(kIoBufferSize));
    context->pb = avio_alloc_context(buffer, kIoBufferSize, 1, nullptr, nullptr, DropBytes, DropSeek);
    context->pb->max_packet_size = std::strcmp(format.name, "rtp") == 0 ? kRtpPacketSize : 0;
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
    packet = av_packet_alloc();
    if (codecs.video != 0) video = AddStream(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_H264);
    if (codecs.audio != 0) {
        // The program stream has no AAC; to the muxer one frame of sound is as good as another.
        const AVCodecID aac = std::strcmp(format.name, "vob") == 0 ? AV_CODEC_ID_MP2 : AV_CODEC_ID_AAC;
        audio = AddStream(AVMEDIA_TYPE_AUDIO, codecs.audio == MX_AUDIO_AAC ? aac : AV_CODEC_ID_PCM_S16LE);
    }
    ok = avformat_write_header(context, nullptr) >= 0;
}

AvformatMuxer::State::~State() {
    if (context == nullptr) return;
    if (ok) av_write_trailer(context);
    if (context->pb != nullptr) av_freep(&context->pb->buffer);
    avio_context_free(&context->pb);
    av_packet_free(&packet);
    avformat_free_context(context);
}

void AvformatMuxer::State::Write(const MXFrameInfo& frame) {
    const int index = frame.frame_type == MX_FRAME_VIDEO ? video : audio;
    if (index < 0) return;
    const AVStream* const stream = context->streams[index];
    packet->data = static_cast<uint8_t*>(frame.frame_pointer);
    packet->size = static_cast<int>(frame.frame_size);
    // Containers with raw AAC take the frame behind its ADTS header.
    if (frame.encode_type == MX_AUDIO_AAC && stream->codecpar->extradata_size > 0) {
        packet->data += 7;
        packet->size -= 7;
    }
    packet->stream_index = index;
    packet->flags = frame.frame_type == MX_FRAME_AUDIO || frame.frame_sub_type == MX_SUB_I ? AV_PKT_FLAG_KEY : 0;
    int64_t time = av_rescale_q(frame.timestamp, {1, 1000}, stream->time_base);
    int64_t& last = last_times[frame.frame_type == MX_FRAME_VIDEO ? 0 : 1];
    time = std::max(time, last + 1);
    last = time;
    packet->pts = packet->dts = time;
    av_write_frame(context, packet);
}

AvformatMuxer::AvformatMuxer(const GeneralPurpose& format, Codecs codecs) {
    av_log_set_level(AV_LOG_FATAL);
    if (std::strcmp(format.name, "rtp") == 0) {
        contexts_.push_back(std::make_unique<State>(format, Codecs{codecs.video, 0}));
        contexts_.push_back(std::make_unique<State>(format, Codecs{0, codecs.audio}));
    } else {
        contexts_.push_back(std::make_unique<State>(format, codecs));
    }
}

AvformatMuxer::~AvformatMuxer() = default;

bool AvformatMuxer::Ok() const {
    return std::all_of(contexts_.begin(), contexts_.end(), [](const auto& context) { return context->ok; });
}

void AvformatMuxer::Write(const MXFrameInfo& frame) {
    for (const auto& context : contexts_)
        context->Write(frame);
}

}  // namespace bench
