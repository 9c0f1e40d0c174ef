#include "units/video_cutter.h"

#include <algorithm>
#include <utility>

#include "codec/avc_slice.h"
#include "codec/start_code.h"

namespace Orvane::Muxora {

namespace {

constexpr size_t kStartCodeSize = 3;
constexpr size_t kUsualNals = 64;

}  // namespace

VideoCutter::VideoCutter(std::unique_ptr<INalRules> rules) : rules_(std::move(rules)) {
    short_codes_.reserve(kUsualNals);
}

void VideoCutter::Restart() {
    CutUnit(0);
}

std::optional<UnitCut> VideoCutter::Next(std::span<const uint8_t> bytes, BytesEnd end) {
    if (cut_) short_codes_.clear();
    cut_ = false;
    const uint8_t* const begin = bytes.data();
    const uint8_t* const behind = begin + bytes.size();
    for (;;) {
        const uint8_t* const code = FindStartCode(begin + scan_, behind);
        const auto at = static_cast<size_t>(code - begin);
        if (code == behind) return WithoutStartCode(bytes, end);
        scan_ = at;
        const std::span<const uint8_t> nal = bytes.subspan(at + kStartCodeSize);
        const std::span<const uint8_t> head = nal.first(std::min<size_t>(nal.size(), kSliceHeadSize));
        if (head.empty() && end == BytesEnd::kStream) return LastUnit(bytes);
        // At the end of a NAL unit a short one is all there.
        if (head.empty() || (end == BytesEnd::kOpen && head.size() < rules_->HeadSize(head))) return std::nullopt;

        // zero_byte goes with the start code that it stands before, not with the unit that ends there (H.264 B.1.2).
        const size_t seam = at != 0 && begin[at - 1] == 0 ? at - 1 : at;
        if (nal_ == 0 && seam != 0) {
            scan_ = 0;
            return UnitCut{seam, 0};
        }
        EndNal(bytes, seam);
        const NalPlace place = rules_->HasPicture() ? rules_->Place(head) : NalPlace::kInside;
        if (place == NalPlace::kFirst) return CutUnit(perhaps_.value_or(seam));
        if (place == NalPlace::kPerhaps && !perhaps_) perhaps_ = seam;
        if (place == NalPlace::kPicture) perhaps_.reset();
        rules_->Begin(head);
        if (seam == at) short_codes_.push_back(at);
        nal_ = at + kStartCodeSize;
        scan_ = nal_;
    }
}

std::optional<UnitCut> VideoCutter::WithoutStartCode(std::span<const uint8_t> bytes, BytesEnd end) {
    if (end == BytesEnd::kStream) return LastUnit(bytes);
    // One may begin with the last two bytes, and the zero ahead of it.
    if (nal_ == 0 && bytes.size() > kStartCodeSize) return UnitCut{bytes.size() - kStartCodeSize, 0};
    scan_ = std::max(scan_, bytes.size() - std::min<size_t>(bytes.size(), kStartCodeSize - 1));
    return std::nullopt;
}

// What has no picture is no unit.
UnitCut VideoCutter::LastUnit(std::span<const uint8_t> bytes) {
    EndNal(bytes, bytes.size());
    const bool whole = rules_->HasPicture();
    CutUnit(bytes.size());
    return whole ? UnitCut{0, bytes.size()} : UnitCut{bytes.size(), 0};
}

void VideoCutter::EndNal(std::span<const uint8_t> bytes, size_t end) {
    if (nal_ != 0 && nal_ < end) rules_->End(bytes.subspan(nal_, end - nal_));
}

UnitCut VideoCutter::CutUnit(size_t length) {
    info_ = rules_->Finish();
    scan_ = 0;
    nal_ = 0;
    perhaps_.reset();
    short_count_ =
        static_cast<size_t>(std::lower_bound(short_codes_.begin(), short_codes_.end(), length) - short_codes_.begin());
    cut_ = true;
    return {0, length};
}

}  // namespace Orvane::Muxora
