#include "common/packer.h"

#include <algorithm>
#include <utility>

#include "common/errors.h"
#include "common/rtp_jpeg_frame.h"
#include "media_input/nal_units.h"

namespace Orvane::Muxora::Tools {

namespace {

std::string FrameText(const MediaFrame& frame) {
    if (frame.IsVideo()) return VideoCodecName(frame.codec) + " video";
    return AudioCodecName(frame.codec) + (frame.codec == MX_AUDIO_MPEG ? " (" : " audio (") +
           std::to_string(frame.samples_per_sec) + " Hz, " + std::to_string(frame.bits_per_sample) + " bits, " +
           std::to_string(frame.channels) + " ch)";
}

// By name: some codecs have two numbers.
bool IsListed(const Format& format, const MediaFrame& frame) {
    const auto name = [&](uint32_t codec) { return frame.IsVideo() ? VideoCodecName(codec) : AudioCodecName(codec); };
    const auto entries = Capacity(format, frame.IsVideo() ? MX_CAPACITY_VIDEO : MX_CAPACITY_AUDIO);
    return std::any_of(entries.begin(), entries.end(),
                       [&](const MXCapacityEntry& entry) { return name(entry.codec) == name(frame.codec); });
}

// Of the sound that FLV has a number for: ITU-T G.711 as telephones have it, PCM at four rates, layer III.
std::string FlvLimit(const MediaFrame& frame) {
    switch (frame.codec) {
        case MX_AUDIO_ALAW:
        case MX_AUDIO_MULAW:
            return "G.711 at 8000 Hz";
        case MX_AUDIO_PCM8:
        case MX_AUDIO_PCM16:
            return "PCM at 5512, 11025, 22050 and 44100 Hz";
        default:
            return "MPEG audio of layer III";
    }
}

// What the format takes in place of the frame, with the limits that the library states for the frame's codec.
std::string Taken(const Format& format, const MediaFrame& frame) {
    const uint32_t type = frame.IsVideo() ? MX_CAPACITY_VIDEO : MX_CAPACITY_AUDIO;
    std::string text = CapacityText(format, type);
    for (const MXCapacityEntry& entry : Capacity(format, type)) {
        if (entry.codec != frame.codec || entry.samples_per_sec == 0) continue;
        text +=
            " (" + AudioCodecName(entry.codec) + " at a rate such as " + std::to_string(entry.samples_per_sec) + " Hz)";
    }
    return text;
}

// Two headers describe sound that is always the same, whatever the frames are: the rate of it, or 0.
uint32_t FixedSoundRate(const Format& format) {
    if (format.number == MX_FORMAT_WAV) return 8000;
    return format.number == MX_FORMAT_ASF_STREAM ? 16000 : 0;
}

bool IsSoundOf(const MediaFrame& frame, uint32_t rate) {
    return frame.codec == MX_AUDIO_PCM16 && frame.samples_per_sec == rate && frame.channels == 1;
}

// The program and transport streams and the counting formats want times that rise; these two write the time as it is.
bool TakesPresentationTimes(const Format& format) {
    return format.number == MX_FORMAT_RTP || format.number == MX_FORMAT_OVX || format.number == MX_FORMAT_OVX_ALT;
}

}  // namespace

Packer::Packer(const Format& format, const PackerSettings& settings, const MediaStream* video, const MediaStream* audio,
               Sink sink)
    : format_(format), settings_(settings), sink_(std::move(sink)) {
    MXCreateParam param{};
    param.size = sizeof param;
    param.user = this;
    param.output = Output;
    handle_.reset(MX_CreateHandle(format.Maker(), &param));
    if (!handle_) throw Failure("the library does not make " + std::string(format.key));
    if (format.number == MX_FORMAT_RTP) {
        MX_SetParam(handle_.get(), MX_PARAM_RTP, &settings_.rtp, sizeof settings_.rtp);
    }
    if (settings_.fragment && MXSetFragmentParam(handle_.get(), &*settings_.fragment) != MX_OK) {
        throw Failure("the library does not cut " + std::string(format.key) + " like that");
    }
    if (!settings_.key.empty()) {
        MX_SetEncryptType(handle_.get(), MX_ENCRYPT_AES, settings_.key.data(),
                          static_cast<uint32_t>(settings_.key.size()));
    }
    MXHeaderInfo info{};
    info.size = sizeof info;
    info.start_time_ms = MX_NO_START_TIME;
    info.reserved_gap = settings_.reserve;
    // The transport stream's first map then names both streams, and the exact formats need not wait for the second one
    // to show itself. AVI learns more of them from the frames themselves.
    if (format.number == MX_FORMAT_TS || format.IsExact()) {
        if (video != nullptr) {
            info.video_present = 1;
            info.video_encode_type = video->codec;
            info.width = video->width;
            info.height = video->height;
            info.frame_rate = static_cast<int32_t>(video->frame_rate);
        }
        if (audio != nullptr) {
            info.audio_present = 1;
            info.audio_encode_type = audio->codec;
            info.channels = audio->channels;
            info.bits_per_sample = audio->bits_per_sample;
            info.samples_per_sec = audio->samples_per_sec;
        }
    }
    if (MX_CreateHeader(handle_.get(), &info) != MX_OK) {
        throw Failure("the library could not start " + std::string(format.key));
    }
}

int32_t Packer::Output(const MXOutputBlock* block, void* user) {
    auto* self = static_cast<Packer*>(user);
    self->grown_ += self->sink_(*block);
    return 0;
}

void Packer::Give(MediaFrame& frame) {
    if (format_.number == MX_FORMAT_RTP && frame.IsVideo() && frame.codec == MX_VIDEO_MJPEG) {
        const std::vector<uint8_t> jpeg = JpegForRtp({frame.bytes.data(), frame.Size()});
        frame.SetBytes(jpeg.data(), jpeg.size());
    }
    MXFrameInfo record = frame.Record();
    if (TakesPresentationTimes(format_)) record.timestamp = static_cast<uint32_t>(frame.pts_ms);
    // RTP cuts large pictures of the other kinds into packets that no receiver puts together.
    if (format_.number == MX_FORMAT_RTP && frame.IsVideo() && !frame.IsKey()) record.frame_sub_type = MX_SUB_P;
    if (format_.StatesRotation(frame.rotation)) record.rotation_angle = frame.rotation;
    record.encrypt_offset = settings_.encrypt_offset;
    record.encrypt_length = settings_.encrypt_length;
    Tally& tally = frame.IsVideo() ? video_tally_ : audio_tally_;
    // Until something of the stream is written, an error means that the format does not take it. A picture that cannot
    // begin a stream tells nothing.
    const bool decisive = tally.written == 0 && (!frame.IsVideo() || frame.IsKey());
    ++tally.given;
    tally.bytes += frame.Size();
    const uint32_t fixed_rate = frame.IsVideo() ? 0 : FixedSoundRate(format_);
    if (fixed_rate != 0 && !IsSoundOf(frame, fixed_rate)) {
        if (decisive) RefuseSound(frame, fixed_rate);
        ++tally.refused;
        return;
    }
    grown_ = 0;
    const uint32_t result = Input(frame, record);
    if (result != MX_OK) {
        if (result == MX_NO_RESOURCES && format_.number != MX_FORMAT_RTP) throw Failure("out of memory");
        if (decisive) Refuse(frame);
        const bool held_back = tally.written == 0 && result == MX_FRAME_REFUSED;
        ++(held_back ? tally.dropped : tally.refused);
    } else {
        // The classic formats hold no frame back: what is written is written during the call. The exact ones gather
        // fragments, and answer with an error what they do not take.
        ++(grown_ != 0 || format_.IsExact() ? tally.written : tally.dropped);
    }
}

uint32_t Packer::Input(const MediaFrame& frame, MXFrameInfo& record) {
    const bool split = settings_.split_units && frame.IsVideo() && frame.codec == MX_VIDEO_H264;
    const auto units = split ? AnnexBUnits({frame.bytes.data(), frame.Size()}) : std::vector<NalUnit>{};
    if (units.size() < 2) return MX_InputFrame(handle_.get(), &record);
    auto* bytes = static_cast<uint8_t*>(record.frame_pointer);
    for (const NalUnit& unit : units) {
        MXFrameInfo part = record;
        part.frame_pointer = bytes + unit.at;
        part.frame_size = static_cast<uint32_t>(unit.size);
        if (const uint32_t result = MX_InputFrame(handle_.get(), &part); result != MX_OK) return result;
    }
    return MX_OK;
}

void Packer::Refuse(const MediaFrame& frame) const {
    const std::string kind = frame.IsVideo() ? "video" : "audio";
    const Tally& other = frame.IsVideo() ? audio_tally_ : video_tally_;
    if (format_.number == MX_FORMAT_XMKV && other.written != 0 && IsListed(format_, frame)) {
        throw Failure("xmkv names its streams at its beginning, and here the " + kind +
                      " begins more than a second behind the rest (choose -f hmp4, or leave the stream out with --no-" +
                      kind + ")");
    }
    if (format_.number == MX_FORMAT_XFLV && !frame.IsVideo() && IsListed(format_, frame)) {
        throw Failure(
            "xflv does not take " + FrameText(frame) + ": FLV has numbers for " + FlvLimit(frame) +
            ", in one or two channels (choose another format with -f, such as hmp4 or xmkv, convert it ahead: "
            "ffmpeg -i INPUT -c:v copy -c:a aac converted.mov, or leave the stream out with --no-audio)");
    }
    constexpr size_t kLargePicture = 1u << 20;
    if (frame.IsVideo() && frame.Size() >= kLargePicture && IsListed(format_, frame)) {
        throw Failure(std::string(format_.key) + " does not take pictures as large as this one, of " +
                      std::to_string(frame.Size()) + " bytes (" + settings_.way_out + ", such as hmp4 or xmkv)");
    }
    throw Failure(std::string(format_.key) + " does not take " + FrameText(frame) + "; its " + kind + ": " +
                  Taken(format_, frame) + " (" + settings_.way_out + ", or leave the stream out with --no-" + kind +
                  ")");
}

void Packer::RefuseSound(const MediaFrame& frame, uint32_t rate) const {
    const std::string hertz = std::to_string(rate);
    const bool wav = format_.number == MX_FORMAT_WAV;
    throw Failure(std::string(format_.key) + " always states 16 bit PCM, " + hertz +
                  " Hz, one channel, and players would take " + FrameText(frame) +
                  " for that (choose another format with -f, " + (wav ? "" : "leave the stream out with --no-audio, ") +
                  "or convert it ahead: ffmpeg -i INPUT -c:a pcm_s16le -ar " + hertz + " -ac 1 " +
                  (wav ? "sound.wav" : "-c:v copy converted.mov") + ")");
}

void Packer::CheckNotEmpty(const Tally& tally, const char* kind) const {
    if (tally.given == 0 || tally.written != 0) return;
    const bool wav = format_.number == MX_FORMAT_WAV;
    throw Failure(std::string(format_.key) + " left out all " + std::to_string(tally.given) + " " + kind + " frames: " +
                  (wav ? "it drops the first block, and there was no other"
                       : "it begins with a video key frame, and none came before them; sound alone goes into "
                         "ts, ps or ovx"));
}

void Packer::Finish() {
    const uint32_t result = MX_CreateTailer(handle_.get(), nullptr);
    // RTP has no tail and says so.
    if (result != MX_OK && format_.number != MX_FORMAT_RTP) {
        throw Failure("the library could not finish " + std::string(format_.key));
    }
    if (video_tally_.given + audio_tally_.given == 0) throw Failure("the input holds no frame that can be read");
    CheckNotEmpty(video_tally_, "video");
    CheckNotEmpty(audio_tally_, "audio");
}

std::string StreamText(const MediaStream& stream) {
    if (stream.type == MX_FRAME_VIDEO) {
        return VideoCodecName(stream.codec) + " " + std::to_string(stream.width) + "x" + std::to_string(stream.height) +
               ", " + std::to_string(stream.frame_rate) + "/s";
    }
    return AudioCodecName(stream.codec) + " " + std::to_string(stream.samples_per_sec) + " Hz, " +
           std::to_string(stream.channels) + " ch";
}

}  // namespace Orvane::Muxora::Tools
