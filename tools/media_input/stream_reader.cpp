#include "media_input/stream_reader.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <tuple>
#include <utility>

namespace Orvane::Muxora::Tools {

namespace {

constexpr AVRational kMicroseconds{1, 1000000};
constexpr AVRational kMilliseconds{1, 1000};
constexpr uint32_t kDefaultFrameRate = 25;
constexpr int64_t kClockJumpUs = 500000;
// Damaged files state any time; sums and differences of a few have to stay within 64 bits.
constexpr int64_t kFurthest = INT64_MAX / 8;

std::optional<PcmForm> FormOf(AVCodecID id) {
    switch (id) {
        case AV_CODEC_ID_PCM_S16LE:
            return PcmForm::kS16Le;
        case AV_CODEC_ID_PCM_S16BE:
            return PcmForm::kS16Be;
        case AV_CODEC_ID_PCM_S24LE:
            return PcmForm::kS24Le;
        case AV_CODEC_ID_PCM_S32LE:
            return PcmForm::kS32Le;
        case AV_CODEC_ID_PCM_F32LE:
            return PcmForm::kF32Le;
        default:
            return std::nullopt;
    }
}

bool HasNalUnits(uint32_t codec) {
    return codec == MX_VIDEO_H264 || codec == MX_VIDEO_H265;
}

// ISO/IEC 14496-15 5.3.3.1.2 and 8.3.3.1.2: where the records of a file's configuration tell how long lengths are.
size_t LengthSize(uint32_t codec, ByteSpan record) {
    const size_t place = codec == MX_VIDEO_H264 ? 4 : 21;
    const bool annex_b = record.size() >= 4 && record[0] == 0 && record[1] == 0 && record[2] <= 1;
    return annex_b || record.size() <= place ? 0 : (record[place] & 3u) + 1;
}

// The packet's bytes and libav's padding behind them, which is as long as the spare of a frame.
FrameBytes TakeOver(AVPacket& packet) {
    static_assert(AV_INPUT_BUFFER_PADDING_SIZE >= MediaFrame::kSpare);
    if (av_packet_make_writable(&packet) < 0) throw std::bad_alloc();
    FrameBytes bytes(packet.data, static_cast<size_t>(packet.size) + MediaFrame::kSpare,
                     {std::exchange(packet.buf, nullptr), [](void* buffer) {
                          auto* reference = static_cast<AVBufferRef*>(buffer);
                          av_buffer_unref(&reference);
                      }});
    packet.data = nullptr;
    packet.size = 0;
    return bytes;
}

ByteSpan Bytes(const AVPacket& packet) {
    return {packet.data, static_cast<size_t>(packet.size)};
}

bool IsSampled(uint32_t codec) {
    return codec == MX_AUDIO_PCM16 || codec == MX_AUDIO_PCM8 || codec == MX_AUDIO_ALAW || codec == MX_AUDIO_MULAW;
}

uint32_t RoundedRate(const AVStream& stream) {
    const AVRational rate = stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : stream.r_frame_rate;
    if (rate.num <= 0 || rate.den <= 0) return 0;
    const double value = std::round(av_q2d(rate));
    return value >= 1 && value <= 1000 ? static_cast<uint32_t>(value) : 0;
}

// Ticks a second that hold each time of the stream. PCM is cut anew, by the sample.
uint32_t ScaleOf(const AVStream& stream) {
    const AVCodecParameters& par = *stream.codecpar;
    if (IsSampled(LibraryCodec(par)) && par.sample_rate > 0) return static_cast<uint32_t>(par.sample_rate);
    const AVRational base = stream.time_base;
    if (base.num <= 0 || base.den <= 0) return 0;
    return static_cast<uint32_t>(base.den % base.num == 0 ? base.den / base.num : base.den);
}

// Degrees clockwise.
uint32_t RotationOf(const AVStream& stream) {
    const uint8_t* matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
    if (matrix == nullptr) return 0;
    const double degrees = -av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix));
    return std::isnan(degrees) ? 0 : static_cast<uint32_t>((std::lround(degrees) % 360 + 360) % 360);
}

uint32_t SampleBits(uint32_t codec) {
    return codec == MX_AUDIO_PCM8 || codec == MX_AUDIO_ALAW || codec == MX_AUDIO_MULAW ? 8 : 16;
}

}  // namespace

uint32_t LibraryCodec(const AVCodecParameters& par) {
    switch (par.codec_id) {
        case AV_CODEC_ID_H264:
            return MX_VIDEO_H264;
        case AV_CODEC_ID_HEVC:
            return MX_VIDEO_H265;
        case AV_CODEC_ID_MPEG4:
            return MX_VIDEO_MPEG4;
        case AV_CODEC_ID_MPEG2VIDEO:
            return MX_VIDEO_MPEG2;
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
        case AV_CODEC_ID_PCM_U8:
            return MX_AUDIO_PCM8;
        default:
            return FormOf(par.codec_id) ? static_cast<uint32_t>(MX_AUDIO_PCM16) : 0;
    }
}

const char* TakenCodecs(uint32_t frame_type) {
    return frame_type == MX_FRAME_VIDEO ? "H.264, H.265, MPEG-4 part 2, MPEG-2 video, Motion JPEG"
                                        : "AAC, MPEG audio, A-law, mu-law, PCM";
}

MediaStream DescribeStream(const AVStream& stream, const std::string& path, int number, uint32_t frame_rate) {
    const AVCodecParameters& par = *stream.codecpar;
    MediaStream about;
    about.type = par.codec_type == AVMEDIA_TYPE_VIDEO ? MX_FRAME_VIDEO : MX_FRAME_AUDIO;
    about.codec = LibraryCodec(par);
    about.codec_name = avcodec_get_name(par.codec_id);
    about.path = path;
    about.number = number;
    if (about.codec == 0) {
        const bool video = about.type == MX_FRAME_VIDEO;
        throw InputError(path + ": stream " + std::to_string(about.number) + " is " + about.codec_name +
                         ", which no format takes; " + (video ? "video" : "audio") + " may be " +
                         TakenCodecs(about.type) + " (choose another stream or leave it out: " +
                         (video ? "--video N, --no-video)" : "--audio N, --no-audio)"));
    }
    if (about.type == MX_FRAME_VIDEO) {
        about.width = static_cast<uint32_t>(std::max(par.width, 0));
        about.height = static_cast<uint32_t>(std::max(par.height, 0));
        about.frame_rate = frame_rate != 0 ? frame_rate : RoundedRate(stream);
        if (about.frame_rate == 0) about.frame_rate = kDefaultFrameRate;
        const AVRational rate = stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : stream.r_frame_rate;
        about.rotation = RotationOf(stream);
        about.exact_rate = frame_rate == 0 && rate.num > 0 && rate.den > 0 ? av_q2d(rate) : about.frame_rate;
    } else {
        about.samples_per_sec = static_cast<uint32_t>(std::max(par.sample_rate, 0));
        about.channels = static_cast<uint32_t>(std::max(par.ch_layout.nb_channels, 1));
        about.bits_per_sample = SampleBits(about.codec);
    }
    if (stream.duration > 0) {
        about.duration_ms = av_rescale_q(stream.duration, stream.time_base, kMilliseconds);
    }
    return about;
}

StreamReader::StreamReader(const AVStream& stream, MediaStream about, const InputOptions& options)
    : StreamQueue(std::move(about), ScaleOf(stream)),
      index_(stream.index),
      time_base_(stream.time_base),
      bitrate_(static_cast<uint32_t>(std::clamp<int64_t>(stream.codecpar->bit_rate, 0, UINT32_MAX))),
      block_ms_(std::max<int64_t>(options.block_ms, 1)) {
    const AVCodecParameters& par = *stream.codecpar;
    if (!par_ || !scratch_ || avcodec_parameters_copy(par_.get(), &par) < 0) Fail("needs more memory");
    if (par.extradata_size > 0) parameter_sets_.assign(par.extradata, par.extradata + par.extradata_size);
    if (about_.type == MX_FRAME_VIDEO) {
        frame_length_ = {1, static_cast<int>(about_.frame_rate)};
        const AVRational rate = stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : stream.r_frame_rate;
        if (options.frame_rate == 0 && rate.num > 0 && rate.den > 0) frame_length_ = av_inv_q(rate);
        ReadConfiguration();
        OpenParser(filter_ ? *filter_->par_out : *par_);
        return;
    }
    if (about_.samples_per_sec == 0) Fail("does not say its sample rate");
    if (about_.codec == MX_AUDIO_AAC) {
        // Files that hold ADTS frames have no AudioSpecificConfig; then each frame says for itself.
        if (!parameter_sets_.empty()) adts_ = AdtsFromSpecificConfig(parameter_sets_, adts_trouble_);
        if (adts_) about_.samples_per_sec = adts_->Rate();
        if (adts_ && adts_->extended) {
            notes.push_back("HE-AAC is stated as its core, AAC-LC at " + std::to_string(adts_->Rate()) +
                            " Hz; decoders find the rest in the frames");
        }
        frame_length_ = {1024, static_cast<int>(about_.samples_per_sec)};
    } else if (about_.codec == MX_AUDIO_MPEG) {
        frame_length_ = {par.frame_size > 0 ? par.frame_size : 1152, static_cast<int>(about_.samples_per_sec)};
    } else {
        pcm_form_ = FormOf(par.codec_id);
        if (pcm_form_ && BytesPerSample(*pcm_form_) > 2) {
            notes.push_back(about_.codec_name +
                            " sound is narrowed to 16 bits, the widest samples that the formats take");
        }
        block_samples_ = std::max<int64_t>(about_.samples_per_sec * block_ms_ / 1000, 1);
    }
}

void StreamReader::Fail(const std::string& what) const {
    throw InputError(about_.path + ": stream " + std::to_string(about_.number) + " (" + about_.codec_name + ") " +
                     what);
}

void StreamReader::OpenFilter(const char* name) {
    const AVBitStreamFilter* filter = av_bsf_get_by_name(name);
    AVBSFContext* context = nullptr;
    if (filter == nullptr || av_bsf_alloc(filter, &context) < 0) Fail(std::string("needs libavcodec's ") + name);
    filter_.reset(context);
    filter_->time_base_in = time_base_;
    if (avcodec_parameters_copy(filter_->par_in, par_.get()) < 0 || av_bsf_init(filter_.get()) < 0) {
        Fail("has a damaged codec configuration");
    }
    const AVCodecParameters& out = *filter_->par_out;
    parameter_sets_.clear();
    if (out.extradata_size > 0) parameter_sets_.assign(out.extradata, out.extradata + out.extradata_size);
}

// Parameter sets in Annex-B form, and how units are set apart. H.264 and H.265 need libavcodec's filter for their
// configuration alone: their frames are brought into form in place.
void StreamReader::ReadConfiguration() {
    if (HasNalUnits(about_.codec)) {
        length_size_ = LengthSize(about_.codec, {par_->extradata, static_cast<size_t>(par_->extradata_size)});
        OpenFilter(about_.codec == MX_VIDEO_H264 ? "h264_mp4toannexb" : "hevc_mp4toannexb");
        if (length_size_ != 0 && avcodec_parameters_copy(par_.get(), filter_->par_out) < 0) Fail("needs more memory");
        filter_.reset();
    } else if (about_.codec == MX_VIDEO_MPEG4) {
        OpenFilter("mpeg4_unpack_bframes");  // AVI files may hold a B picture in the packet of another one
    }
}

// A file with several sample entries says with a packet that another one begins.
void StreamReader::TakeNewConfiguration(const AVPacket& packet) {
    if (!HasNalUnits(about_.codec)) return;
    size_t size = 0;
    const uint8_t* data = av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &size);
    if (data == nullptr || size == 0) return;
    av_freep(&par_->extradata);
    par_->extradata = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (par_->extradata == nullptr) Fail("needs more memory");
    std::copy_n(data, size, par_->extradata);
    par_->extradata_size = static_cast<int>(size);
    ReadConfiguration();
    OpenParser(*par_);
}

void StreamReader::OpenParser(const AVCodecParameters& par) {
    if (about_.codec == MX_VIDEO_MJPEG) return;
    parser_.reset(av_parser_init(par.codec_id));
    if (!parser_) return;
    parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    parser_context_.reset(avcodec_alloc_context3(nullptr));
    if (!parser_context_) Fail("needs more memory");
    if (avcodec_parameters_to_context(parser_context_.get(), &par) < 0) Fail("has a damaged codec configuration");
}

void StreamReader::Take(AVPacket* packet) {
    if (packet != nullptr && (packet->flags & AV_PKT_FLAG_CORRUPT) != 0) {
        ++damaged;
        return;
    }
    if (!filter_) {
        if (packet != nullptr) {
            TakeNewConfiguration(*packet);
            TakeFiltered(*packet);
        } else if (IsSampled(about_.codec)) {
            CutBlocks(true);
        }
        return;
    }
    if (packet == nullptr || packet->size != 0) {
        // A packet that the filter cannot read is one broken frame; the stream goes on.
        if (av_bsf_send_packet(filter_.get(), packet) < 0) {
            ++damaged;
            return;
        }
    }
    for (;;) {
        const int result = av_bsf_receive_packet(filter_.get(), scratch_.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
        if (result < 0) {
            ++damaged;
            return;
        }
        TakeFiltered(*scratch_);
        av_packet_unref(scratch_.get());
    }
}

void StreamReader::TakeFiltered(AVPacket& packet) {
    if (packet.size <= 0) return;
    if (about_.type == MX_FRAME_VIDEO) {
        TakeVideo(packet);
    } else if (about_.codec == MX_AUDIO_AAC) {
        TakeAac(packet);
    } else if (about_.codec == MX_AUDIO_MPEG) {
        MediaFrame frame = Blank();
        frame.SetBytes(packet.data, static_cast<size_t>(packet.size));
        const int64_t time = TimeOf(packet, packet.pts);
        Push(std::move(frame), time, time, time, DurationOf(packet));
    } else {
        TakePcm(packet);
    }
}

uint32_t StreamReader::SubType(const AVPacket& packet) {
    const bool key = (packet.flags & AV_PKT_FLAG_KEY) != 0;
    if (!parser_) return key || about_.codec == MX_VIDEO_MJPEG ? MX_SUB_I : MX_SUB_P;
    const ByteSpan head = FrameHead(about_.codec, Bytes(packet), length_size_, head_);
    uint8_t* out = nullptr;
    int out_size = 0;
    av_parser_parse2(parser_.get(), parser_context_.get(), &out, &out_size, head.data(), static_cast<int>(head.size()),
                     packet.pts, packet.dts, -1);
    // Files need not list the pictures at which decoding can begin although they are no IDR.
    if (key || (HasNalUnits(about_.codec) && parser_->key_frame == 1)) return MX_SUB_I;
    // An intra picture from which decoding cannot begin is no key frame for any container.
    return parser_->pict_type == AV_PICTURE_TYPE_B ? MX_SUB_B : MX_SUB_P;
}

// Brings a packet into the form that the library takes: units of H.264 and H.265 behind start codes of four bytes, key
// frames with parameter sets. Copies only where that moves bytes. False: the packet is damaged.
bool StreamReader::TakeUnits(AVPacket& packet, bool key, FrameBytes& bytes) const {
    const ByteSpan whole = Bytes(packet);
    const bool nal_units = HasNalUnits(about_.codec);
    const bool wants_sets = key && !parameter_sets_.empty() && about_.codec != MX_VIDEO_MJPEG;
    NalUnits units;
    if (length_size_ != 0) {
        auto found = LengthUnits(whole, length_size_);
        if (!found) return false;
        units = std::move(*found);
    } else if (nal_units || wants_sets) {
        units = AnnexBUnits(whole);
    }
    if (nal_units && units.empty()) return false;
    const bool add_sets = wants_sets && !HasParameterSets(about_.codec, whole, units);
    if (!nal_units && add_sets) {
        MediaFrame joined;
        joined.SetBytes(whole.data(), whole.size(), parameter_sets_.data(), parameter_sets_.size());
        bytes = std::move(joined.bytes);
    } else if (nal_units && (add_sets || !HaveLongCodes(whole, units))) {
        const size_t place = ParameterSetPlace(about_.codec, whole, units);
        bytes = WithLongStartCodes(whole, units, add_sets ? ByteSpan(parameter_sets_) : ByteSpan(), place,
                                   MediaFrame::kSpare);
    } else {
        bytes = TakeOver(packet);
        if (length_size_ != 0) WriteStartCodes(bytes, units);
    }
    return true;
}

void StreamReader::TakeVideo(AVPacket& packet) {
    const uint32_t sub_type = SubType(packet);
    MediaFrame frame = Blank();
    frame.sub_type = sub_type;
    // Parameter sets may change on the way, and a file with several sample entries states the size of any of them.
    if (HasNalUnits(about_.codec) && parser_ && parser_->width > 0 && parser_->height > 0) {
        frame.width = static_cast<uint32_t>(parser_->width);
        frame.height = static_cast<uint32_t>(parser_->height);
        if (!reorder_us_) std::tie(about_.width, about_.height) = std::tie(frame.width, frame.height);
    }
    if (!TakeUnits(packet, frame.sub_type == MX_SUB_I, frame.bytes)) {
        ++damaged;
        return;
    }
    // The library wants times that rise: decoding times, moved so that the first one is when its picture is shown.
    const int64_t decode = TimeOf(packet, packet.dts);
    const int64_t show = packet.pts == AV_NOPTS_VALUE ? decode : ToUs(packet.pts);
    if (!reorder_us_) reorder_us_ = std::max<int64_t>(show - decode, 0);
    Push(std::move(frame), decode + *reorder_us_, std::max(show, decode), decode, DurationOf(packet));
}

void StreamReader::TakeAac(const AVPacket& packet) {
    MediaFrame frame = Blank();
    ByteSpan payload = Bytes(packet);
    AdtsConfig config = adts_.value_or(AdtsConfig{});
    if (!adts_) {
        if (!adts_trouble_.empty()) Fail("cannot be given as ADTS: " + adts_trouble_);
        const auto bare = AdtsPayload(payload, config);
        if (!bare) {
            ++damaged;
            return;
        }
        payload = *bare;
        if (config.Rate() != 0) frame.samples_per_sec = config.Rate();
    }
    constexpr size_t kLargest = (1u << 13) - 1;
    if (payload.size() + 7 > kLargest) {
        ++damaged;
        return;
    }
    const auto header = config.Header(payload.size());
    frame.SetBytes(payload.data(), payload.size(), header.data(), header.size());
    const int64_t time = TimeOf(packet, packet.pts);
    Push(std::move(frame), time, time, time, DurationOf(packet));
}

void StreamReader::TakePcm(const AVPacket& packet) {
    const int64_t time = packet.pts == AV_NOPTS_VALUE ? INT64_MIN : ToUs(packet.pts);
    const size_t block_align = about_.channels * (about_.bits_per_sample / 8);
    const int64_t held = static_cast<int64_t>(pcm_.size() / std::max<size_t>(block_align, 1));
    const int64_t expected =
        pcm_start_us_ + av_rescale(pcm_samples_ + held, 1000000, static_cast<int64_t>(about_.samples_per_sec));
    const bool first = pcm_samples_ == 0 && held == 0;
    if (time != INT64_MIN && (first || std::abs(time - expected) > kClockJumpUs)) {
        CutBlocks(true);
        pcm_start_us_ = time;
        pcm_samples_ = 0;
    }
    if (pcm_form_) {
        AppendAsS16Le(*pcm_form_, Bytes(packet), pcm_);
    } else {
        pcm_.insert(pcm_.end(), packet.data, packet.data + packet.size);
    }
    CutBlocks(false);
}

void StreamReader::CutBlocks(bool all) {
    const size_t align = std::max<size_t>(about_.channels * (about_.bits_per_sample / 8), 1);
    const size_t block = static_cast<size_t>(block_samples_) * align;
    size_t from = 0;
    while (from < pcm_.size()) {
        const size_t left = (pcm_.size() - from) / align * align;
        const size_t size = std::min(block, left);
        if (size == 0 || (size < block && !all)) break;
        MediaFrame frame = Blank();
        frame.SetBytes(pcm_.data() + from, size);
        const int64_t time =
            pcm_start_us_ + av_rescale(pcm_samples_, 1000000, static_cast<int64_t>(about_.samples_per_sec));
        const int64_t samples = static_cast<int64_t>(size / align);
        pcm_samples_ += samples;
        from += size;
        Push(std::move(frame), time, time, time,
             av_rescale(samples, 1000000, static_cast<int64_t>(about_.samples_per_sec)));
    }
    pcm_.erase(pcm_.begin(), pcm_.begin() + static_cast<std::ptrdiff_t>(from));
    if (all) pcm_.clear();
}

MediaFrame StreamReader::Blank() const {
    MediaFrame frame;
    frame.type = about_.type;
    frame.codec = about_.codec;
    frame.width = about_.width;
    frame.height = about_.height;
    frame.frame_rate = about_.frame_rate;
    frame.samples_per_sec = about_.samples_per_sec;
    frame.bits_per_sample = about_.bits_per_sample;
    frame.channels = about_.channels;
    frame.rotation = about_.rotation;
    frame.bitrate = about_.type == MX_FRAME_AUDIO ? bitrate_ : 0;
    return frame;
}

void StreamReader::Push(MediaFrame frame, int64_t time_us, int64_t pts_us, int64_t dts_us, int64_t duration_us) {
    ready_bytes += frame.bytes.size();
    ready.push_back({time_us, pts_us, std::move(frame), dts_us, duration_us});
}

int64_t StreamReader::DurationOf(const AVPacket& packet) const {
    return packet.duration > 0 ? ToUs(packet.duration) : 0;
}

int64_t StreamReader::ToUs(int64_t stamp) const {
    return std::clamp(av_rescale_q(stamp, time_base_, kMicroseconds), -kFurthest, kFurthest);
}

int64_t StreamReader::TimeOf(const AVPacket& packet, int64_t stamp) {
    if (stamp == AV_NOPTS_VALUE && since_anchor_ < 0 && packet.pts != AV_NOPTS_VALUE) stamp = packet.pts;
    if (stamp != AV_NOPTS_VALUE) {
        anchor_us_ = ToUs(stamp);
        since_anchor_ = 0;
        return anchor_us_;
    }
    ++since_anchor_;
    const int64_t since =
        av_rescale(since_anchor_, 1000000 * static_cast<int64_t>(frame_length_.num), frame_length_.den);
    return std::clamp(anchor_us_ + std::clamp(since, -kFurthest, kFurthest), -kFurthest, kFurthest);
}

}  // namespace Orvane::Muxora::Tools
