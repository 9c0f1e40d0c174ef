#include "containers/avi_packet.h"

#include "codec/audio_measures.h"
#include "codec/audio_specific_config.h"
#include "containers/wave_audio.h"
#include "core/frame_kinds.h"

namespace Orvane::Muxora {

namespace {

constexpr MXCapacityEntry kEncodeVideo[] = {{MX_VIDEO_H264_ALT, 0, 0, 0, {}},
                                            {MX_VIDEO_MPEG4, 0, 0, 0, {}},
                                            {MX_VIDEO_H265, 0, 0, 0, {}},
                                            {MX_VIDEO_MJPEG, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecVideo[] = {{2, 0, 0, 0, {}}, {1, 0, 0, 0, {}}, {5, 0, 0, 0, {}}, {3, 0, 0, 0, {}}};

bool HasAdtsSync(const MXFrameInfo& frame) {
    return FrameBytes(frame)[0] == 0xFF && FrameBytes(frame)[1] == 0xF1;
}

// The part of a frame that goes into the file: AAC leaves its ADTS header behind. Nothing for a frame shorter than
// that.
std::optional<AviChunk> MakeChunk(const MXFrameInfo& frame) {
    const AviStream stream = frame.frame_type == MX_FRAME_VIDEO ? AviStream::Video : AviStream::Audio;
    const bool adts = stream == AviStream::Audio && frame.encode_type == MX_AUDIO_AAC;
    const uint32_t skipped = adts ? kAdtsHeaderSize : 0;
    if (frame.frame_size < skipped) return std::nullopt;
    return AviChunk{stream, frame.frame_sub_type, FrameBytes(frame) + skipped, frame.frame_size - skipped};
}

}  // namespace

CAviPacket::CAviPacket(uint32_t format, const MXCreateParam* param) : CPackage(format, param), riff_(Output(), work_) {
}

uint32_t CAviPacket::createHeader(MXHeaderInfo* info, uint32_t /*unused*/) {
    if (info != nullptr) {
        if (info->video_present != 0) {
            header_.OpenVideo(info->video_encode_type, info->width, info->height,
                              static_cast<uint32_t>(info->frame_rate));
        }
        if (info->audio_present != 0) {
            header_.OpenAudio(info->audio_encode_type, info->channels, info->bits_per_sample, info->samples_per_sec);
        }
    }
    riff_.WriteStart(header_);
    started_ = true;
    return MX_OK;
}

uint32_t CAviPacket::inputFrame(MXFrameInfo* frame, uint32_t /*reserved*/) {
    if (frame == nullptr) return MX_FAILED;
    if (!checkFrame(frame)) return MX_FRAME_REFUSED;
    // Callers rely on this: without data there is nothing to write, which is no failure; data of no length is one.
    if (frame->frame_pointer == nullptr) return MX_OK;
    if (frame->frame_size == 0) return MX_FAILED;
    if (!started_) return MX_OK;
    const std::optional<AviChunk> chunk = MakeChunk(*frame);
    if (!chunk) return MX_OK;
    return past_first_ ? InputAvix(*frame, *chunk) : InputFirstRiff(*frame, *chunk);
}

uint32_t CAviPacket::createTailer(const void* /*info*/, uint32_t /*unused*/) {
    if (!started_) return MX_OK;
    if (!past_first_) {
        riff_.Close();
    } else if (avix_) {
        // Readers rely on this: the RIFF stays open, so another tail closes it again, with its indexes once more.
        avix_->Close();
        EndRiff(*avix_);
    }
    riff_.WriteHeaderList(header_);
    return MX_OK;
}

bool CAviPacket::checkFrame(const MXFrameInfo* frame) const {
    switch (frame->frame_type) {
        case MX_FRAME_VIDEO:
            return IsH264(frame->encode_type) || frame->encode_type == MX_VIDEO_MPEG4 ||
                   frame->encode_type == MX_VIDEO_H265 || frame->encode_type == MX_VIDEO_MJPEG;
        case MX_FRAME_AUDIO:
            return IsWaveAudio(frame->encode_type);
        default:
            return false;
    }
}

uint32_t CAviPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kEncodeVideo, kWaveEncodeAudio, table, count);
}

uint32_t CAviPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kCodecVideo, kWaveCodecAudio, table, count);
}

// What is taken by the callback is not asked for: the indexes state where the chunks belong.
AviOutput CAviPacket::Output() {
    return {[](void* user, const void* data, uint32_t length, uint64_t position) {
                static_cast<CAviPacket*>(user)->EmitAt(data, length, position);
            },
            this};
}

uint32_t CAviPacket::InputFirstRiff(const MXFrameInfo& frame, const AviChunk& chunk) {
    // Behind the tail there is no place for chunks any more. Callers rely on this: a frame that there is no memory for
    // is dropped like one that no stream takes; it opens none either.
    if (riff_.Closed() || !riff_.Reserve(chunk) || !StreamOpen(frame)) return MX_OK;
    riff_.Write(chunk);
    Count(frame, chunk);
    if (riff_.PastLimit()) {
        riff_.Close();
        EndRiff(riff_);
        BeginAvix();
    }
    return MX_OK;
}

// No stream opens here any more: what comes is written.
uint32_t CAviPacket::InputAvix(const MXFrameInfo& frame, const AviChunk& chunk) {
    if (!avix_) return MX_NULL_RECORD;
    if (!avix_->Reserve(chunk)) return MX_OK;
    avix_->Write(chunk);
    Count(frame, chunk);
    if (avix_->PastLimit()) {
        // Readers rely on this: a RIFF that ends by its size has its indexes twice, and the second ones count.
        avix_->Close();
        avix_->Close();
        EndRiff(*avix_);
        BeginAvix();
    }
    return MX_OK;
}

// Is there a stream for the frame, or does the frame open it?
bool CAviPacket::StreamOpen(const MXFrameInfo& frame) {
    if (frame.frame_type == MX_FRAME_VIDEO) {
        const bool opens = IsSyncFrame(frame.frame_sub_type) || frame.encode_type == MX_VIDEO_MJPEG;
        if (!header_.VideoPresent() && opens) {
            header_.OpenVideo(frame.encode_type, frame.width, frame.height, frame.frame_rate);
        }
        return header_.VideoPresent();
    }
    if (!header_.VideoPresent()) return false;
    if (!header_.AudioPresent()) OpenAudio(frame);
    return header_.AudioPresent();
}

void CAviPacket::OpenAudio(const MXFrameInfo& frame) {
    if (frame.encode_type != MX_AUDIO_AAC) {
        header_.OpenAudio(frame.encode_type, frame.channels, frame.bits_per_sample, frame.samples_per_sec);
    } else if (HasAdtsSync(frame)) {
        header_.OpenAac(frame.channels, frame.bits_per_sample, frame.samples_per_sec,
                        AudioSpecificConfigFromAdts(FrameBytes(frame)));
    }
}

void CAviPacket::Count(const MXFrameInfo& frame, const AviChunk& chunk) {
    if (chunk.stream == AviStream::Video) {
        header_.CountVideo(chunk.length);
    } else {
        const bool measured = frame.encode_type != MX_AUDIO_AAC || HasAdtsSync(frame);
        header_.CountAudio(measured ? chunk.length : 0);
    }
}

void CAviPacket::EndRiff(const AviRiff& riff) {
    next_riff_ += riff.Size();
    riff.EnterSuperIndexes(header_);
}

void CAviPacket::BeginAvix() {
    past_first_ = true;
    avix_.emplace(Output(), work_, next_riff_);
}

}  // namespace Orvane::Muxora
