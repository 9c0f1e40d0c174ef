#include "units/audio_cutter.h"

#include <cstring>

#include "codec/audio_header.h"
#include "codec/audio_measures.h"

namespace Orvane::Muxora {

namespace {

constexpr size_t kMpegHeaderSize = 4;
constexpr uint8_t kSync = 0xFF;

AudioFrameHeader ReadAdts(const uint8_t* header) {
    const std::optional<AdtsHeader> read = ReadAdtsFields({header, kAdtsHeaderSize});
    if (!read || read->frame_size < read->header_size) return {};
    AudioFrameHeader frame;
    frame.size = read->frame_size;
    // adts_fixed_header(), but for private_bit, original_copy and home (ISO/IEC 13818-7 6.2.1).
    frame.stream = static_cast<uint32_t>(header[1] << 16 | (header[2] & 0xFD) << 8 | (header[3] & 0xC0));
    frame.info.samples_per_sec = read->sample_rate;
    frame.info.channels = read->channel_configuration == 7 ? 8u : read->channel_configuration;
    frame.info.samples = read->samples;
    return frame;
}

AudioFrameHeader ReadMpegAudio(const uint8_t* header) {
    const std::optional<MpegAudioHeader> read = ReadMpegAudioHeader({header, kMpegHeaderSize});
    if (!read || read->frame_size < kMpegHeaderSize) return {};
    AudioFrameHeader frame;
    frame.size = read->frame_size;
    frame.stream = static_cast<uint32_t>((header[1] & 0xFE) << 8 | (header[2] & 0x0C));  // ID, layer, frequency
    frame.info.samples_per_sec = read->sample_rate;
    frame.info.channels = read->channels;
    frame.info.samples = read->samples;
    return frame;
}

}  // namespace

const AudioFraming kAdtsFraming{kAdtsHeaderSize, ReadAdts};
const AudioFraming kMpegAudioFraming{kMpegHeaderSize, ReadMpegAudio};

void AudioCutter::Restart() {
    scan_ = 0;
    in_step_ = false;
}

// Nothing if the bytes for a header are not there.
std::optional<AudioFrameHeader> AudioCutter::HeaderAt(std::span<const uint8_t> bytes, size_t at) const {
    if (bytes.size() - at < framing_.header_size) return std::nullopt;
    if (bytes[at] != kSync) return AudioFrameHeader{};
    return framing_.read(bytes.data() + at);
}

std::optional<UnitCut> AudioCutter::Next(std::span<const uint8_t> bytes, BytesEnd end) {
    const bool all = end == BytesEnd::kStream;
    const auto rest = [&]() -> std::optional<UnitCut> {  // no frame in it
        Restart();
        return all && !bytes.empty() ? std::optional(UnitCut{bytes.size(), 0}) : std::nullopt;
    };
    const auto cut = [&](size_t at, const AudioFrameHeader& frame) {
        info_ = frame.info;
        info_.key_frame = true;
        stream_ = frame.stream;
        in_step_ = true;
        scan_ = 0;
        return UnitCut{at, frame.size};
    };
    if (in_step_) {
        const std::optional<AudioFrameHeader> frame = HeaderAt(bytes, 0);
        if (!frame) return all ? rest() : std::nullopt;
        if (frame->size != 0 && frame->stream == stream_) {
            if (frame->size <= bytes.size()) return cut(0, *frame);
            return all ? rest() : std::nullopt;
        }
        in_step_ = false;
        scan_ = 0;
    }
    while (scan_ < bytes.size()) {
        const void* const sync = std::memchr(bytes.data() + scan_, kSync, bytes.size() - scan_);
        if (sync == nullptr) {
            scan_ = 0;
            return UnitCut{bytes.size(), 0};
        }
        scan_ = static_cast<size_t>(static_cast<const uint8_t*>(sync) - bytes.data());
        const std::optional<AudioFrameHeader> frame = HeaderAt(bytes, scan_);
        if (!frame) break;
        if (frame->size != 0) {
            const size_t behind = scan_ + frame->size;
            if (behind == bytes.size() && all) return cut(scan_, *frame);
            if (behind < bytes.size() || !all) {
                const auto next = behind <= bytes.size() ? HeaderAt(bytes, behind) : std::optional<AudioFrameHeader>();
                if (!next && !all) break;
                if (next && next->size != 0 && next->stream == frame->stream) return cut(scan_, *frame);
            }
        }
        ++scan_;
    }
    if (all) return rest();
    // What stands ahead of the candidate is of no use.
    if (scan_ == 0) return std::nullopt;
    const UnitCut garbage{scan_, 0};
    scan_ = 0;
    return garbage;
}

}  // namespace Orvane::Muxora
