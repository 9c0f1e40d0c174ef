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
    if (!read) return {};
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
    if (!read) return {};
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
    const auto rest = [&] {  // no frame in it
        Restart();
        return UnitCut{bytes.size(), 0};
    };
    const auto cut = [&](size_t at, const AudioFrameHeader& frame) {
        info_ = frame.info;
        info_.key_frame = true;
        stream_ = frame.stream;
        in_step_ = true;
        return UnitCut{at, frame.size};
    };
    if (in_step_) {
        const std::optional<AudioFrameHeader> frame = HeaderAt(bytes, 0);
        if (!frame) return all ? std::optional(rest()) : std::nullopt;
        if (frame->size != 0 && frame->stream == stream_) {
            if (frame->size <= bytes.size()) return cut(0, *frame);
            return all ? std::optional(rest()) : std::nullopt;
        }
        in_step_ = false;
    }
    size_t scan = 0;
    for (;;) {
        const void* const sync = std::memchr(bytes.data() + scan, kSync, bytes.size() - scan);
        if (sync == nullptr) return UnitCut{bytes.size(), 0};
        scan = static_cast<size_t>(static_cast<const uint8_t*>(sync) - bytes.data());
        const std::optional<AudioFrameHeader> frame = HeaderAt(bytes, scan);
        if (!frame) break;
        if (frame->size != 0) {
            const size_t behind = scan + frame->size;
            if (behind == bytes.size() && all) return cut(scan, *frame);
            if (behind < bytes.size() || !all) {
                const auto next = behind <= bytes.size() ? HeaderAt(bytes, behind) : std::optional<AudioFrameHeader>();
                if (!next && !all) break;
                if (next && next->size != 0 && next->stream == frame->stream) return cut(scan, *frame);
            }
        }
        ++scan;
    }
    if (all) return rest();
    // What stands ahead of the candidate is of no use.
    return scan != 0 ? std::optional(UnitCut{scan, 0}) : std::nullopt;
}

}  // namespace Orvane::Muxora
