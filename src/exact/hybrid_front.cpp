#include "exact/hybrid_front.h"

#include "exact/box_reader.h"
#include "exact/rescale.h"

namespace Orvane::Muxora {

namespace {

// Version 1 of a full box has wide fields; its flags do not matter here.
bool IsWide(FieldReader& in) {
    return in.BE32() >> 24 == 1;
}

// ISO/IEC 14496-12 8.3.2. The size is that of the picture as it is shown, so that its shape is in it already.
bool ReadTrackHeader(std::span<const uint8_t> payload, uint32_t& id, uint32_t& rotation, Mp4Entry& entry) {
    FieldReader in(payload);
    const bool wide = IsWide(in);
    in.Skip(wide ? 16 : 8);  // creation_time, modification_time
    id = in.BE32();
    in.Skip(wide ? 12 : 8);  // reserved, duration
    in.Skip(16);             // reserved, layer, alternate_group, volume, reserved
    const auto a = static_cast<int32_t>(in.BE32());
    const auto b = static_cast<int32_t>(in.BE32());
    in.Skip(28);
    entry.width = in.BE32() >> 16;
    entry.height = in.BE32() >> 16;
    rotation = 0;
    if (a < 0) rotation = 180;
    if (b != 0) rotation = b > 0 ? 90 : 270;
    return in.Ok();
}

// ISO/IEC 14496-12 8.6.6; no edits: from the beginning.
bool ReadEditShift(std::span<const uint8_t> trak, int64_t& shift) {
    shift = 0;
    const auto elst = FindBox(FindBox(trak, "edts"), "elst");
    if (elst.empty()) return true;
    FieldReader in(elst);
    const bool wide = IsWide(in);
    const uint32_t count = in.BE32();
    in.Skip(wide ? 8 : 4);  // segment_duration
    shift = wide ? static_cast<int64_t>(in.BE(8)) : int64_t{static_cast<int32_t>(in.BE32())};
    return in.Ok() && count == 1 && shift >= 0 && shift <= kLongestTime * kFinestScale;
}

// ISO/IEC 14496-12 8.5.2: the entries as they stand.
bool ReadEntries(std::span<const uint8_t> payload, const Mp4Entry& shown, std::vector<Mp4Entry>& entries) {
    FieldReader in(payload);
    in.Skip(4);
    const uint32_t count = in.BE32();
    std::span<const uint8_t> rest = in.Rest();
    while (const auto box = NextBox(rest)) {
        entries.push_back(shown);
        entries.back().box.assign(box->whole.begin(), box->whole.end());
    }
    return in.Ok() && rest.empty() && count == entries.size() && count != 0;
}

std::optional<Mp4Track> ReadTrack(std::span<const uint8_t> trak) {
    Mp4Track track;
    track.present = true;
    Mp4Entry shown;
    uint32_t id = 0;
    if (!ReadTrackHeader(FindBox(trak, "tkhd"), id, track.rotation, shown)) return std::nullopt;
    if (id != kMp4VideoTrack && id != kMp4AudioTrack) return std::nullopt;
    track.video = id == kMp4VideoTrack;
    if (!ReadEditShift(trak, track.edit_shift)) return std::nullopt;

    const auto mdia = FindBox(trak, "mdia");
    FieldReader header(FindBox(mdia, "mdhd"));
    const bool wide = IsWide(header);
    header.Skip(wide ? 16 : 8);  // creation_time, modification_time
    track.time_scale = header.BE32();
    if (!header.Ok() || track.time_scale == 0 || track.time_scale > kFinestScale) return std::nullopt;

    const auto stsd = FindBox(FindBox(FindBox(mdia, "minf"), "stbl"), "stsd");
    if (!ReadEntries(stsd, shown, track.entries)) return std::nullopt;
    return track;
}

}  // namespace

std::optional<std::vector<Mp4Track>> ReadHybridTracks(std::span<const uint8_t> movie) {
    std::vector<Mp4Track> tracks;
    while (const auto box = NextBox(movie)) {
        if (!box->Is("trak")) continue;
        auto track = ReadTrack(box->Payload());
        if (!track) return std::nullopt;
        // Pictures first, and one track of a kind.
        if (tracks.size() == 2 || (!tracks.empty() && (track->video || !tracks.front().video))) return std::nullopt;
        tracks.push_back(std::move(*track));
    }
    if (tracks.empty() || !movie.empty()) return std::nullopt;
    return tracks;
}

}  // namespace Orvane::Muxora
