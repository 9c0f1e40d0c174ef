#include "exact/video_config.h"

#include <algorithm>
#include <utility>

#include "codec/mpeg4_headers.h"
#include "core/package.h"

namespace Orvane::Muxora {

std::optional<FrameNals> CVideoConfig::Take(const MXFrameInfo& frame) {
    const std::span<const uint8_t> bytes(FrameBytes(frame), frame.frame_size);
    const bool avc = IsAvc(frame.encode_type);
    const bool nal = avc || frame.encode_type == MX_VIDEO_H265;
    const uint32_t codec = avc ? uint32_t{MX_VIDEO_H264} : frame.encode_type;
    replaced_ = false;
    before_.reorder_depth = now_.reorder_depth;
    before_.changed = now_.changed;
    if (codec != now_.codec) {
        State other{codec, {}, {}, 0, true};
        if (nal) other.sets.emplace(avc ? NalCodec::kAvc : NalCodec::kHevc);
        Replace(std::move(other));
    }
    if (nal) return TakeSets(bytes);
    FrameNals found;
    found.has_picture = true;
    if (codec == MX_VIDEO_MPEG4) {
        const auto headers = FindMpeg4Headers(bytes);
        found.has_parameter_sets = !headers.empty();
        TakeMpeg4(headers);
    }
    return found;
}

void CVideoConfig::TakeMpeg4(std::span<const uint8_t> headers) {
    if (headers.empty() || std::ranges::equal(headers, now_.mpeg4_headers)) return;
    State other{MX_VIDEO_MPEG4, {}, {headers.begin(), headers.end()}, 0, true};
    if (replaced_) {
        now_ = std::move(other);
    } else {
        Replace(std::move(other));
    }
}

std::optional<FrameNals> CVideoConfig::TakeSets(std::span<const uint8_t> bytes) {
    const FrameNals found = now_.sets->ScanAnnexB(bytes);
    if (!found.has_start_code) {
        Undo();
        return std::nullopt;
    }
    if (found.changed) {
        now_.changed = true;
        const auto details = now_.sets->Details();
        now_.reorder_depth = details ? details->max_reorder : 0;
    }
    return found;
}

void CVideoConfig::Replace(State with) {
    before_ = std::exchange(now_, std::move(with));
    replaced_ = true;
}

bool CVideoConfig::Complete() const {
    if (now_.sets) return now_.sets->Complete();
    return now_.codec != MX_VIDEO_MPEG4 || !now_.mpeg4_headers.empty();
}

void CVideoConfig::Undo() {
    if (replaced_) {
        now_ = std::move(before_);
        replaced_ = false;
        return;
    }
    if (now_.sets) now_.sets->Undo();
    now_.reorder_depth = before_.reorder_depth;
    now_.changed = before_.changed;
}

SpsDetails CVideoConfig::Details(const MXFrameInfo& frame) const {
    if (now_.sets) {
        if (const auto details = now_.sets->Details()) return *details;
    }
    SpsDetails details;
    details.width = frame.width;
    details.height = frame.height;
    return details;
}

}  // namespace Orvane::Muxora
