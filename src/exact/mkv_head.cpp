#include "exact/mkv_head.h"

#include "exact/ebml_tree.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kSeekHeadRoom = 128;
constexpr uint32_t kDurationSize = 11;
constexpr uint64_t kRectangular = 0;
constexpr uint64_t kVideoType = 1;
constexpr uint64_t kAudioType = 2;
constexpr uint64_t kBroadcastRange = 1;
constexpr uint64_t kFullRange = 2;
constexpr char kApplication[] = "Muxora";

void PutEbmlHeader(EbmlTree& out) {
    out.Begin(ElementId::kEbml);
    out.UInt(ElementId::kEbmlVersion, 1);
    out.UInt(ElementId::kEbmlReadVersion, 1);
    out.UInt(ElementId::kEbmlMaxIdLength, 4);
    out.UInt(ElementId::kEbmlMaxSizeLength, 8);
    out.Text(ElementId::kDocType, "matroska");
    out.UInt(ElementId::kDocTypeVersion, 4);
    out.UInt(ElementId::kDocTypeReadVersion, 2);
    out.End();
}

void PutSeek(EbmlTree& out, ElementId id, uint64_t position) {
    uint8_t number[4];
    PutBE32(number, static_cast<uint32_t>(id));
    out.Begin(ElementId::kSeek);
    out.Binary(ElementId::kSeekId, number);
    out.UInt8Bytes(ElementId::kSeekPosition, position);
    out.End();
}

void PutVideo(EbmlTree& out, const MkvTrack& track) {
    const SpsDetails& video = track.video;
    out.Begin(ElementId::kVideo);
    out.UInt(ElementId::kPixelWidth, video.width);
    out.UInt(ElementId::kPixelHeight, video.height);
    if (video.sar_width != video.sar_height) {
        out.UInt(ElementId::kDisplayWidth,
                 (uint64_t{video.width} * video.sar_width + video.sar_height / 2) / video.sar_height);
        out.UInt(ElementId::kDisplayHeight, video.height);
    }
    if (video.has_colour) {
        out.Begin(ElementId::kColour);
        out.UInt(ElementId::kMatrixCoefficients, video.matrix_coefficients);
        out.UInt(ElementId::kRange, video.full_range ? kFullRange : kBroadcastRange);
        out.UInt(ElementId::kTransferCharacteristics, video.transfer_characteristics);
        out.UInt(ElementId::kPrimaries, video.colour_primaries);
        out.End();
    }
    if (track.rotation % 360 != 0) {
        // Counter-clockwise, from -180 to 180.
        const double clockwise = track.rotation % 360;
        out.Begin(ElementId::kProjection);
        out.UInt(ElementId::kProjectionType, kRectangular);
        out.Float(ElementId::kProjectionPoseYaw, 0);
        out.Float(ElementId::kProjectionPosePitch, 0);
        out.Float(ElementId::kProjectionPoseRoll, clockwise > 180 ? 360 - clockwise : -clockwise);
        out.End();
    }
    out.End();
}

void PutTrack(EbmlTree& out, uint8_t number, const MkvTrack& track) {
    out.Begin(ElementId::kTrackEntry);
    out.UInt(ElementId::kTrackNumber, number);
    out.UInt(ElementId::kTrackUid, number);
    out.UInt(ElementId::kTrackType, number == MkvHead::kVideoTrack ? kVideoType : kAudioType);
    out.UInt(ElementId::kFlagLacing, 0);
    out.Text(ElementId::kLanguage, "und");
    out.Text(ElementId::kCodecId, track.codec_id);
    if (!track.codec_private.empty()) out.Binary(ElementId::kCodecPrivate, track.codec_private);
    if (track.codec_delay != 0) out.UInt(ElementId::kCodecDelay, track.codec_delay);
    if (track.default_duration != 0) out.UInt(ElementId::kDefaultDuration, track.default_duration);
    if (number == MkvHead::kVideoTrack) {
        PutVideo(out, track);
    } else {
        out.Begin(ElementId::kAudio);
        out.Float(ElementId::kSamplingFrequency, track.sample_rate);
        out.UInt(ElementId::kChannels, track.channels != 0 ? track.channels : 1);
        if (track.bit_depth != 0) out.UInt(ElementId::kBitDepth, track.bit_depth);
        out.End();
    }
    out.End();
}

}  // namespace

uint32_t MkvHead::SegmentStart() {
    EbmlTree out;
    PutEbmlHeader(out);
    out.Open(ElementId::kSegment, EbmlTree::kUnknownSize);
    return static_cast<uint32_t>(out.Position());
}

std::vector<uint8_t> MkvHead::Write(const std::optional<MkvTrack>& video, const std::optional<MkvTrack>& audio,
                                    const std::optional<MkvClosing>& closing) {
    EbmlTree tail;
    tail.Begin(ElementId::kInfo);
    tail.UInt(ElementId::kTimecodeScale, kTimestampScale);
    tail.Text(ElementId::kMuxingApp, kApplication);
    tail.Text(ElementId::kWritingApp, kApplication);
    if (closing) {
        tail.Float(ElementId::kDuration, closing->duration);
    } else {
        tail.Void(kDurationSize);
    }
    tail.End();
    const size_t tracks = tail.Position();
    tail.Begin(ElementId::kTracks);
    if (video) PutTrack(tail, kVideoTrack, *video);
    if (audio) PutTrack(tail, kAudioTrack, *audio);
    tail.End();

    EbmlTree out;
    PutEbmlHeader(out);
    out.Open(ElementId::kSegment, closing ? EbmlSize8(closing->segment_size) : EbmlTree::kUnknownSize);
    const size_t segment = out.Position();
    out.Begin(ElementId::kSeekHead);
    PutSeek(out, ElementId::kInfo, kSeekHeadRoom);
    PutSeek(out, ElementId::kTracks, kSeekHeadRoom + tracks);
    if (closing && closing->cues_position != 0) PutSeek(out, ElementId::kCues, closing->cues_position);
    out.End();
    out.Void(kSeekHeadRoom - static_cast<uint32_t>(out.Position() - segment));
    out.Bytes().insert(out.Bytes().end(), tail.Bytes().begin(), tail.Bytes().end());
    return std::move(out.Bytes());
}

}  // namespace Orvane::Muxora
