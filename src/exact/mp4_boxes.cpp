#include "exact/mp4_boxes.h"

#include <algorithm>
#include <limits>

#include "MuxoraAPI.h"
#include "core/clock.h"

namespace Orvane::Muxora {

namespace {

constexpr uint64_t kSecondsFrom1904To1970 = 2082844800;
constexpr uint32_t kOne = 0x10000;          // 16.16
constexpr uint32_t kUnit = 0x40000000;      // 2.30
constexpr uint16_t kUndetermined = 0x55C4;  // "und" (ISO 639-2/T), three letters of 5 bits
constexpr uint32_t kEnabledInMovie = 3;     // track_enabled, track_in_movie

// objectTypeIndication (ISO/IEC 14496-1 7.2.6.6.2).
constexpr uint8_t kObjectMpeg4Visual = 0x20;
constexpr uint8_t kObjectMpeg4Audio = 0x40;
constexpr uint8_t kObjectMpeg2Visual = 0x61;
constexpr uint8_t kObjectMpeg2Audio = 0x69;  // lower sampling frequencies
constexpr uint8_t kObjectMpeg1Audio = 0x6B;
constexpr uint8_t kObjectJpeg = 0x6C;

bool IsWide(uint64_t value) {
    return value > std::numeric_limits<uint32_t>::max();
}

uint64_t BoxTime() {
    return static_cast<uint64_t>(CurrentTime()) + kSecondsFrom1904To1970;
}

// The nine numbers of a matrix that turns the picture clockwise (ISO/IEC 14496-12 8.3.2.3), about its corner: players
// bring the result back to 0, 0.
void WriteMatrix(BoxWriter& out, uint32_t rotation, uint32_t width, uint32_t height) {
    struct Turn {
        int32_t a, b, c, d;
        uint32_t x, y;
    };
    Turn turn{1, 0, 0, 1, 0, 0};
    if (rotation == 90) turn = {0, 1, -1, 0, height, 0};
    if (rotation == 180) turn = {-1, 0, 0, -1, width, height};
    if (rotation == 270) turn = {0, -1, 1, 0, 0, width};
    const auto fixed = [](int32_t value) { return static_cast<uint32_t>(value * static_cast<int32_t>(kOne)); };
    out.BE32(fixed(turn.a)).BE32(fixed(turn.b)).BE32(0);
    out.BE32(fixed(turn.c)).BE32(fixed(turn.d)).BE32(0);
    out.BE32(turn.x << 16).BE32(turn.y << 16).BE32(kUnit);
}

// A descriptor's tag and its length in four bytes (ISO/IEC 14496-1 8.3.3).
void WriteDescriptor(BoxWriter& out, uint8_t tag, size_t length) {
    const auto group = [=](uint32_t shift) { return static_cast<uint8_t>((length >> shift & 0x7F) | 0x80); };
    out.U8(tag).U8(group(21)).U8(group(14)).U8(group(7)).U8(static_cast<uint8_t>(length & 0x7F));
}

uint8_t ObjectType(const Mp4Entry& entry, bool video) {
    if (video) {
        if (entry.encode_type == MX_VIDEO_MJPEG) return kObjectJpeg;
        return entry.encode_type == MX_VIDEO_MPEG2 ? kObjectMpeg2Visual : kObjectMpeg4Visual;
    }
    if (entry.encode_type == MX_AUDIO_AAC) return kObjectMpeg4Audio;
    return entry.sample_rate < 32000 ? kObjectMpeg2Audio : kObjectMpeg1Audio;
}

// ISO/IEC 14496-14 5.6, with the descriptors of ISO/IEC 14496-1 7.2.6.5 to 7.2.6.8.
void WriteEsds(BoxWriter& out, const Mp4Entry& entry, bool video) {
    constexpr size_t kHead = 5;
    const size_t specific = entry.config.empty() ? 0 : kHead + entry.config.size();
    const auto esds = out.FullBox("esds", 0, 0);
    WriteDescriptor(out, 3, 3 + kHead + 13 + specific + kHead + 1);  // ES_Descriptor
    out.BE16(0).U8(0);                                               // ES_ID, flags and streamPriority
    WriteDescriptor(out, 4, 13 + specific);                          // DecoderConfigDescriptor
    out.U8(ObjectType(entry, video))
        .U8(video ? 0x11 : 0x15)  // streamType, upStream, reserved
        .BE24(0)                  // bufferSizeDB
        .BE32(0)                  // maxBitrate
        .BE32(0);                 // avgBitrate
    if (specific != 0) {
        WriteDescriptor(out, 5, entry.config.size());  // DecoderSpecificInfo
        out.Bytes(entry.config.data(), entry.config.size());
    }
    WriteDescriptor(out, 6, 1);  // SLConfigDescriptor
    out.U8(2);                   // predefined: MP4
}

// ISO/IEC 14496-12 12.1.3 to 12.1.5
void WriteVisualFields(BoxWriter& out, const Mp4Entry& entry) {
    out.Zeros(6).BE16(1);  // reserved, data_reference_index
    out.Zeros(16)          // pre_defined, reserved
        .BE16(static_cast<uint16_t>(entry.width))
        .BE16(static_cast<uint16_t>(entry.height))
        .BE32(72 * kOne)  // horizresolution
        .BE32(72 * kOne)  // vertresolution
        .BE32(0)          // reserved
        .BE16(1)          // frame_count
        .Zeros(32)        // compressorname
        .BE16(24)         // depth
        .BE16(0xFFFF);    // pre_defined
}

void WriteShapeAndColour(BoxWriter& out, const Mp4Entry& entry) {
    if (entry.sar_width != entry.sar_height) {
        const auto pasp = out.Box("pasp");
        out.BE32(entry.sar_width).BE32(entry.sar_height);
    }
    if (entry.has_colour) {
        const auto colr = out.Box("colr");
        out.Text("nclx")
            .BE16(entry.colour_primaries)
            .BE16(entry.transfer_characteristics)
            .BE16(entry.matrix_coefficients)
            .U8(entry.full_range ? 0x80 : 0);
    }
}

void WriteVisualEntry(BoxWriter& out, const Mp4Entry& entry) {
    const auto write_with_record = [&](const char(&type)[5], const char(&record)[5]) {
        const auto box = out.Box(type);
        WriteVisualFields(out, entry);
        {
            const auto configuration = out.Box(record);
            out.Bytes(entry.config.data(), entry.config.size());
        }
        WriteShapeAndColour(out, entry);
    };
    switch (entry.encode_type) {
        case MX_VIDEO_H264:
            return write_with_record("avc1", "avcC");
        case MX_VIDEO_H265:
            return write_with_record("hvc1", "hvcC");
        default:
            break;
    }
    const auto box = out.Box("mp4v");
    WriteVisualFields(out, entry);
    WriteEsds(out, entry, true);
    WriteShapeAndColour(out, entry);
}

// ISO/IEC 14496-12 12.2.3; PCM and G.711 under the codes that QuickTime gave them, which every reader knows.
void WriteAudioEntry(BoxWriter& out, const Mp4Entry& entry) {
    const auto write = [&](const char(&type)[5], bool descriptors) {
        const auto box = out.Box(type);
        out.Zeros(6).BE16(1);  // reserved, data_reference_index
        out.Zeros(8)           // reserved
            .BE16(static_cast<uint16_t>(entry.channels))
            .BE16(static_cast<uint16_t>(entry.bits_per_sample))
            .BE32(0)  // pre_defined, reserved
            .BE32(entry.sample_rate < kOne ? entry.sample_rate << 16 : 0);
        if (descriptors) WriteEsds(out, entry, false);
    };
    switch (entry.encode_type) {
        case MX_AUDIO_ALAW:
            return write("alaw", false);
        case MX_AUDIO_MULAW:
        case MX_AUDIO_MULAW_ALT:
            return write("ulaw", false);
        case MX_AUDIO_PCM16:
            return write("sowt", false);
        case MX_AUDIO_PCM8:
            return write("raw ", false);
        default:
            return write("mp4a", true);
    }
}

}  // namespace

// ISO/IEC 14496-12 8.2.2
void WriteMovieHeader(BoxWriter& out, uint32_t time_scale, uint64_t duration) {
    const uint64_t now = BoxTime();
    const bool wide = IsWide(duration) || IsWide(now);
    const auto mvhd = out.FullBox("mvhd", wide ? 1 : 0, 0);
    out.BE(now, wide).BE(now, wide).BE32(time_scale).BE(duration, wide);
    out.BE32(kOne)    // rate
        .BE16(0x100)  // volume
        .Zeros(10);   // reserved
    WriteMatrix(out, 0, 0, 0);
    out.Zeros(24)                   // pre_defined
        .BE32(kMp4AudioTrack + 1);  // next_track_ID
}

// ISO/IEC 14496-12 8.3.2
void WriteTrackHeader(BoxWriter& out, const Mp4Track& track, uint64_t duration) {
    const uint64_t now = BoxTime();
    const bool wide = IsWide(duration) || IsWide(now);
    const Mp4Entry& entry = track.entries.front();
    const auto height = static_cast<uint32_t>(std::min(entry.height, 0xFFFFu));
    const auto width = static_cast<uint32_t>(std::min<uint64_t>(
        (uint64_t{entry.width} * entry.sar_width + entry.sar_height / 2) / entry.sar_height, 0xFFFF));
    const auto tkhd = out.FullBox("tkhd", wide ? 1 : 0, kEnabledInMovie);
    out.BE(now, wide).BE(now, wide).BE32(track.Id()).BE32(0).BE(duration, wide);
    out.Zeros(8)                        // reserved
        .BE16(0)                        // layer
        .BE16(track.video ? 0 : 1)      // alternate_group
        .BE16(track.video ? 0 : 0x100)  // volume
        .BE16(0);                       // reserved
    WriteMatrix(out, track.video ? track.rotation : 0, width, height);
    out.BE32(width << 16).BE32(height << 16);
}

// ISO/IEC 14496-12 8.6.6
void WriteEdits(BoxWriter& out, std::span<const Mp4Edit> edits) {
    if (edits.empty()) return;
    const bool wide = std::ranges::any_of(edits, [](const Mp4Edit& edit) {
        return IsWide(edit.duration) || edit.media_time > std::numeric_limits<int32_t>::max();
    });
    const auto edts = out.Box("edts");
    const auto elst = out.FullBox("elst", wide ? 1 : 0, 0);
    out.BE32(static_cast<uint32_t>(edits.size()));
    for (const Mp4Edit& edit : edits)
        out.BE(edit.duration, wide).BE(static_cast<uint64_t>(edit.media_time), wide).BE32(kOne);  // media_rate
}

// ISO/IEC 14496-12 8.4.2, 8.4.3
void WriteMediaHeader(BoxWriter& out, const Mp4Track& track, uint64_t duration) {
    const uint64_t now = BoxTime();
    const bool wide = IsWide(duration) || IsWide(now);
    {
        const auto mdhd = out.FullBox("mdhd", wide ? 1 : 0, 0);
        out.BE(now, wide).BE(now, wide).BE32(track.time_scale).BE(duration, wide).BE16(kUndetermined).BE16(0);
    }
    const auto hdlr = out.FullBox("hdlr", 0, 0);
    out.BE32(0);  // pre_defined
    if (track.video) {
        out.Text("vide").Zeros(12).Text("VideoHandler").U8(0);
    } else {
        out.Text("soun").Zeros(12).Text("SoundHandler").U8(0);
    }
}

// ISO/IEC 14496-12 12.1.2, 12.2.2, 8.7.1, 8.7.2
void WriteMediaInformation(BoxWriter& out, const Mp4Track& track) {
    if (track.video) {
        const auto vmhd = out.FullBox("vmhd", 0, 1);
        out.Zeros(8);  // graphicsmode, opcolor
    } else {
        const auto smhd = out.FullBox("smhd", 0, 0);
        out.Zeros(4);  // balance, reserved
    }
    const auto dinf = out.Box("dinf");
    const auto dref = out.FullBox("dref", 0, 0);
    out.BE32(1);                                 // entry_count
    const auto url = out.FullBox("url ", 0, 1);  // the media is in this very file
}

void WriteSampleDescriptions(BoxWriter& out, const Mp4Track& track, bool all) {
    const std::span<const Mp4Entry> entries =
        all ? std::span<const Mp4Entry>(track.entries) : std::span<const Mp4Entry>(&track.entries[track.entry], 1);
    const auto stsd = out.FullBox("stsd", 0, 0);
    out.BE32(static_cast<uint32_t>(entries.size()));
    for (const Mp4Entry& entry : entries) {
        if (!entry.box.empty()) {
            out.Bytes(entry.box.data(), entry.box.size());
        } else if (track.video) {
            WriteVisualEntry(out, entry);
        } else {
            WriteAudioEntry(out, entry);
        }
    }
}

void WriteFragmentedMovie(BoxWriter& out, std::span<const Mp4Track* const> tracks, bool all_entries) {
    constexpr uint32_t kMovieTimeScale = 1000;
    const auto moov = out.Box("moov");
    WriteMovieHeader(out, kMovieTimeScale, 0);
    for (const Mp4Track* track : tracks) {
        const auto trak = out.Box("trak");
        WriteTrackHeader(out, *track, 0);
        if (track->edit_shift != 0) {
            const Mp4Edit edit{0, track->edit_shift};
            WriteEdits(out, {&edit, 1});
        }
        const auto mdia = out.Box("mdia");
        WriteMediaHeader(out, *track, 0);
        const auto minf = out.Box("minf");
        WriteMediaInformation(out, *track);
        const auto stbl = out.Box("stbl");
        WriteSampleDescriptions(out, *track, all_entries);
        const auto empty_table = [&](const char(&type)[5], uint32_t zeros) {
            const auto box = out.FullBox(type, 0, 0);
            out.Zeros(zeros);
        };
        empty_table("stts", 4);
        empty_table("stsc", 4);
        empty_table("stsz", 8);
        empty_table("stco", 4);
    }
    const auto mvex = out.Box("mvex");
    for (const Mp4Track* track : tracks) {
        const auto trex = out.FullBox("trex", 0, 0);
        out.BE32(track->Id())
            .BE32(1)     // default_sample_description_index
            .Zeros(12);  // default_sample_duration, default_sample_size, default_sample_flags
    }
}

}  // namespace Orvane::Muxora
