#include "media_input/raw_video.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <string_view>
#include <utility>

namespace Orvane::Muxora::Tools {

namespace {

// The largest decoded picture buffer holds 16 frames (H.264 A.3.1, H.265 A.4.2), so no more can be out of order.
constexpr size_t kMostHeld = 32;  // fields
constexpr size_t kLargestPiece = size_t{1} << 30;
constexpr int64_t kHalvesOfFrame = 2;
constexpr int kLargestScale = 250000;

AVRational RateOf(const AVStream& stream) {
    return stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : stream.r_frame_rate;
}

// The picture order counts begin anew with it.
bool RestartsOrder(uint32_t codec, uint8_t head) {
    constexpr int kFirstBla = 16;
    constexpr int kLastIdr = 20;
    const int hevc_type = head >> 1 & 0x3F;
    return codec == MX_VIDEO_H264 ? (head & 0x1F) == 5 : hevc_type >= kFirstBla && hevc_type <= kLastIdr;
}

}  // namespace

bool RawVideo::Takes(const AVFormatContext& format, const AVStream& stream) {
    const std::string_view name = format.iformat->name;
    return (name == "h264" || name == "hevc") &&
           (stream.codecpar->codec_id == AV_CODEC_ID_H264 || stream.codecpar->codec_id == AV_CODEC_ID_HEVC);
}

RawVideo::RawVideo(const AVStream& stream, MediaStream about, uint32_t frame_rate, const std::string& path)
    : StreamQueue(std::move(about), 0),
      stated_rate_(frame_rate),
      rate_(RateOf(stream)),
      units_(MX_CreateAccessUnits(MX_FRAME_VIDEO, about_.codec, MX_UNITS_LONG_START_CODES)),
      path_(path) {
    const AVCodecParameters& par = *stream.codecpar;
    parser_.reset(av_parser_init(par.codec_id));
    parser_context_.reset(avcodec_alloc_context3(nullptr));
    if (!units_ || !parser_ || !parser_context_) throw std::bad_alloc();
    if (avcodec_parameters_to_context(parser_context_.get(), &par) < 0) throw std::bad_alloc();
    parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    if (par.extradata_size > 0) parameter_sets_.assign(par.extradata, par.extradata + par.extradata_size);
    delay_ = std::clamp(par.video_delay, 0, 16) * kHalvesOfFrame;
    // A file can be looked ahead into; a pipe may be live, and waits no longer than the stream says that it must.
    hold_ = path.empty() ? static_cast<size_t>(delay_) : kMostHeld;
    if (!path.empty()) file_ = std::make_unique<FileBytes>(path);
}

bool RawVideo::Fill() {
    while (ready.empty() && file_ && !ended_) {
        if (GetUnit()) continue;
        const ByteSpan rest = file_->All().subspan(given_);
        if (rest.empty()) {
            End();
            file_->CheckWhole(path_);
        } else {
            const size_t size = std::min(rest.size(), kLargestPiece);
            given_ += size;
            MX_PutBytes(units_.get(), rest.data(), static_cast<uint32_t>(size));
        }
    }
    return !ready.empty();
}

void RawVideo::Put(ByteSpan bytes) {
    MX_PutBytes(units_.get(), bytes.data(), static_cast<uint32_t>(bytes.size()));
    while (GetUnit()) {
    }
}

void RawVideo::End() {
    MX_EndAccessUnits(units_.get());
    while (GetUnit()) {
    }
    Settle(0);
    ended_ = true;
}

bool RawVideo::GetUnit() {
    MXAccessUnit unit{};
    unit.size = sizeof unit;
    const uint32_t result = MX_GetAccessUnit(units_.get(), &unit);
    if (result == MX_NO_RESOURCES) throw std::bad_alloc();
    if (result != MX_OK) return false;
    if (!begun_) Begin(unit);
    Take(unit);
    return true;
}

// What the user says of the rate holds, then what the SPS does, then libavformat's guess.
void RawVideo::Begin(const MXAccessUnit& first) {
    begun_ = true;
    const double stated =
        first.rate_denominator != 0 ? static_cast<double>(first.rate_numerator) / first.rate_denominator : 0;
    if (stated_rate_ != 0) {
        rate_ = {static_cast<int>(stated_rate_), 1};
    } else if (stated >= 1 && stated <= 1000 && first.rate_numerator <= INT32_MAX / 2) {
        rate_ = {static_cast<int>(first.rate_numerator), static_cast<int>(first.rate_denominator)};
    }
    if (rate_.num <= 0 || rate_.den <= 0) rate_ = {static_cast<int>(about_.frame_rate), 1};
    about_.exact_rate = av_q2d(rate_);
    about_.frame_rate = std::max<uint32_t>(static_cast<uint32_t>(std::lround(about_.exact_rate)), 1);
    time_scale_ = static_cast<uint32_t>(rate_.num <= kLargestScale / 2 ? rate_.num * 2 : kLargestScale);
}

void RawVideo::Take(const MXAccessUnit& unit) {
    Picture picture;
    MediaFrame& frame = picture.frame;
    frame.type = about_.type;
    frame.codec = about_.codec;
    frame.width = about_.width;
    frame.height = about_.height;
    frame.frame_rate = about_.frame_rate;
    frame.sub_type = unit.frame_sub_type;
    bool restarts = false;
    frame.bytes = BytesOf({static_cast<const uint8_t*>(unit.data), unit.length}, unit.key_frame != 0, restarts);
    // The SPS of H.264 counts frames, that of H.265 pictures, which may be fields.
    const bool half = unit.field != MX_UNIT_FRAME && (about_.codec == MX_VIDEO_H264 || stated_rate_ != 0);
    picture.length = half ? 1 : kHalvesOfFrame;
    picture.decode = decode_clock_;
    decode_clock_ += picture.length;
    const int order = PictureOrder(frame);
    if (restarts || FallsBack(order, unit.field == MX_UNIT_FRAME)) {
        while (!to_show_.empty())
            ShowOne();
        ++sequence_;
    }
    to_show_.emplace(sequence_, order, first_number_ + waiting_.size());
    waiting_.push_back(std::move(picture));
    Settle(hold_);
}

// A copy, which formats may change. Key frames get the stream's parameter sets unless they have their own.
FrameBytes RawVideo::BytesOf(ByteSpan unit, bool key, bool& restarts) const {
    if (key) {
        const NalUnits units = AnnexBUnits(unit);
        restarts = std::any_of(units.begin(), units.end(),
                               [&](const NalUnit& nal) { return RestartsOrder(about_.codec, nal.Body(unit)[0]); });
        if (!parameter_sets_.empty() && !HasParameterSets(about_.codec, unit, units)) {
            const size_t place = ParameterSetPlace(about_.codec, unit, units);
            return WithLongStartCodes(unit, units, parameter_sets_, place, MediaFrame::kSpare);
        }
    }
    MediaFrame copy;
    copy.SetBytes(unit.data(), unit.size());
    return std::move(copy.bytes);
}

int RawVideo::PictureOrder(const MediaFrame& frame) {
    const ByteSpan head = FrameHead(about_.codec, {frame.bytes.data(), frame.Size()}, 0, head_);
    uint8_t* out = nullptr;
    int out_size = 0;
    av_parser_parse2(parser_.get(), parser_context_.get(), &out, &out_size, head.data(), static_cast<int>(head.size()),
                     AV_NOPTS_VALUE, AV_NOPTS_VALUE, -1);
    return parser_->output_picture_number;
}

// A count that was shown, or that another picture has, comes again when a picture other than an IDR sets the counts
// back (memory_management_control_operation 5, H.264 8.2.1). A pipe is looked into too shortly to tell.
bool RawVideo::FallsBack(int order, bool frame) const {
    if (hold_ < kMostHeld) return false;
    const std::pair<int64_t, int> place(sequence_, order);
    if (last_shown_ && last_shown_->first == sequence_ && (frame ? place <= *last_shown_ : place < *last_shown_)) {
        return true;
    }
    const auto same = to_show_.lower_bound({sequence_, order, 0});
    return frame && same != to_show_.end() && std::get<0>(*same) == sequence_ && std::get<1>(*same) == order;
}

void RawVideo::ShowOne() {
    const auto [sequence, order, number] = *to_show_.begin();
    last_shown_ = {sequence, order};
    to_show_.erase(to_show_.begin());
    Picture& picture = waiting_[number - first_number_];
    picture.show = show_clock_;
    show_clock_ += picture.length;
    delay_ = std::max(delay_, picture.decode - picture.show);
}

// Gives out, in decoding order, what has both its times.
void RawVideo::Settle(size_t hold) {
    while (to_show_.size() > hold)
        ShowOne();
    while (!waiting_.empty() && waiting_.front().show >= 0) {
        Picture& picture = waiting_.front();
        ready_bytes += picture.frame.bytes.size();
        const int64_t length_us = ToUs(picture.decode + picture.length) - ToUs(picture.decode);
        ready.push_back({ToUs(picture.decode), ToUs(picture.show), std::move(picture.frame),
                         ToUs(picture.decode - delay_), length_us});
        waiting_.pop_front();
        ++first_number_;
    }
}

int64_t RawVideo::ToUs(int64_t halves) const {
    return av_rescale(halves, int64_t{1000000} * rate_.den, int64_t{kHalvesOfFrame} * rate_.num);
}

}  // namespace Orvane::Muxora::Tools
