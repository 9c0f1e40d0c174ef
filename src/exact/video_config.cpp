#include "exact/video_config.h"

#include <algorithm>

#include "codec/mpeg4_headers.h"
#include "codec/start_code.h"
#include "core/package.h"

namespace Orvane::Muxora {

std::optional<FrameNals> CVideoConfig::Take(const MXFrameInfo& frame) {
    const std::span<const uint8_t> bytes(FrameBytes(frame), frame.frame_size);
    const bool nal = IsAvc(frame.encode_type) || frame.encode_type == MX_VIDEO_H265;
    const uint32_t codec = IsAvc(frame.encode_type) ? uint32_t{MX_VIDEO_H264} : frame.encode_type;
    if (nal && FindStartCode(bytes.data(), bytes.data() + bytes.size()) == bytes.data() + bytes.size()) {
        return std::nullopt;
    }
    if (codec != codec_) {
        codec_ = codec;
        changed_ = true;
        sets_.reset();
        mpeg4_headers_.clear();
        reorder_depth_ = 0;
        if (nal) sets_.emplace(codec == MX_VIDEO_H264 ? NalCodec::kAvc : NalCodec::kHevc);
    }
    depth_before_ = reorder_depth_;
    changed_before_ = changed_;
    if (!nal) {
        const auto headers = FindMpeg4Headers(codec == MX_VIDEO_MPEG4 ? bytes : std::span<const uint8_t>{});
        if (!headers.empty() && !std::ranges::equal(headers, mpeg4_headers_)) {
            mpeg4_headers_.assign(headers.begin(), headers.end());
            changed_ = true;
        }
        FrameNals found;
        found.has_picture = true;
        found.has_parameter_sets = !headers.empty();
        return found;
    }
    const FrameNals found = sets_->ScanAnnexB(bytes);
    if (found.changed) {
        changed_ = true;
        const auto details = sets_->Details();
        reorder_depth_ = details ? details->max_reorder : 0;
    }
    return found;
}

bool CVideoConfig::Complete() const {
    if (sets_) return sets_->Complete();
    return codec_ != MX_VIDEO_MPEG4 || !mpeg4_headers_.empty();
}

void CVideoConfig::Undo() {
    if (!sets_) return;
    sets_->Undo();
    reorder_depth_ = depth_before_;
    changed_ = changed_before_;
}

SpsDetails CVideoConfig::Details(const MXFrameInfo& frame) const {
    if (sets_) {
        if (const auto details = sets_->Details()) return *details;
    }
    SpsDetails details;
    details.width = frame.width;
    details.height = frame.height;
    return details;
}

}  // namespace Orvane::Muxora
