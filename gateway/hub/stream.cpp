#include "hub/stream.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <chrono>
#include <utility>

#include "bounds.h"

namespace Orvane::Muxora::Gateway {

namespace {

constexpr int64_t kRateWindowUs = 2000000;

const char* CodecName(const Tools::MediaFrame& frame) {
    switch (frame.codec) {
        case MX_VIDEO_MPEG4:
            return "MPEG-4 part 2";
        case MX_VIDEO_H264:
            return "H.264";
        case MX_VIDEO_MJPEG:
            return "Motion JPEG";
        case MX_VIDEO_MPEG2:
            return "MPEG-2 video";
        case MX_VIDEO_H265:
            return "H.265";
        case MX_AUDIO_PCM8:
            return "PCM, 8 bits";
        case MX_AUDIO_ALAW:
            return "A-law";
        case MX_AUDIO_PCM16:
            return "PCM, 16 bits";
        case MX_AUDIO_MULAW:
            return "mu-law";
        case MX_AUDIO_AAC:
            return "AAC";
        case MX_AUDIO_MPEG:
            return "MPEG audio";
        default:
            return frame.IsVideo() ? "video" : "audio";
    }
}

}  // namespace

int64_t WallClockUs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

std::string CodecText(const Tools::MediaFrame& frame) {
    const std::string name = CodecName(frame);
    if (frame.IsVideo()) return name + " " + std::to_string(frame.width) + "x" + std::to_string(frame.height);
    return name + " " + std::to_string(frame.samples_per_sec) + " Hz, " + std::to_string(frame.channels) + " ch";
}

Stream::Stream(std::string name, std::string input, Worker& home) : name_(std::move(name)), home_(home) {
    status_.name = name_;
    status_.input = std::move(input);
    status_.state = "waiting";
    header_.size = sizeof header_;
    header_.start_time_ms = MX_NO_START_TIME;
}

bool Stream::Push(Frame frame) {
    if (under_way_ >= kMaxFramesUnderWay) {
        const std::lock_guard lock(mutex_);
        ++status_.overruns;
        return false;
    }
    ++under_way_;
    boost::asio::post(home_.Context(), [self = shared_from_this(), moved = std::move(frame)]() mutable {
        --self->under_way_;
        self->Take(std::move(moved));
    });
    return true;
}

void Stream::Opened() {
    const std::lock_guard lock(mutex_);
    ++status_.opened;
    status_.state = "live";
    status_.trouble.clear();
}

void Stream::Lost(const std::string& trouble) {
    const std::lock_guard lock(mutex_);
    status_.state = "lost";
    status_.trouble = trouble;
}

void Stream::SetDamaged(uint64_t count) {
    const std::lock_guard lock(mutex_);
    status_.damaged = count;
}

void Stream::SetRelayed(uint64_t messages, uint64_t lost) {
    const std::lock_guard lock(mutex_);
    status_.relayed = messages;
    status_.relay_lost = lost;
}

StreamStatus Stream::Status() const {
    const std::lock_guard lock(mutex_);
    return status_;
}

MXHeaderInfo Stream::HeaderInfo() const {
    const std::lock_guard lock(mutex_);
    return header_;
}

void Stream::End() {
    removed_ = true;
    boost::asio::post(home_.Context(), [self = shared_from_this()] {
        if (self->ended_) return;
        self->ended_ = true;
        for (const auto& sink : std::exchange(self->sinks_, {}))
            sink->OnEnd();
        self->gop_.clear();
    });
}

void Stream::Attach(std::shared_ptr<FrameSink> sink, bool from_key) {
    if (ended_) {
        sink->OnEnd();
        return;
    }
    if (from_key) {
        for (const FramePtr& frame : gop_)
            sink->OnFrame(frame);
    }
    sinks_.push_back(std::move(sink));
}

void Stream::Detach(const FrameSink* sink) {
    std::erase_if(sinks_, [sink](const auto& one) { return one.get() == sink; });
}

void Stream::Take(Frame frame) {
    if (ended_) return;
    repair_.Take(frame);
    Count(frame);
    const FramePtr shared = std::make_shared<const Frame>(std::move(frame));
    Keep(shared);
    // A sink may detach itself, or another.
    const auto sinks = sinks_;
    for (const auto& sink : sinks)
        sink->OnFrame(shared);
}

void Stream::Keep(const FramePtr& frame) {
    if (frame->IsVideo()) has_video_ = true;
    const bool starts = has_video_ ? frame->IsVideo() && frame->IsKey() : true;
    const size_t size = frame->media.bytes.size();
    if (starts) {
        gop_.clear();
        gop_bytes_ = 0;
    } else if (gop_.size() >= kMaxGopFrames || gop_bytes_ + size > kMaxGopBytes) {
        // Too long to begin with: those who join wait for the next key frame.
        gop_.clear();
        gop_bytes_ = 0;
        return;
    } else if (gop_.empty()) {
        return;
    }
    gop_.push_back(frame);
    gop_bytes_ += size;
}

void Stream::Count(const Frame& frame) {
    const int64_t now = frame.arrival_us;
    const std::lock_guard lock(mutex_);
    status_.bytes += frame.media.Size();
    status_.last_arrival_us = now;
    status_.media_seconds = frame.DtsSeconds();
    status_.video_repairs = repair_.Video();
    status_.audio_repairs = repair_.Audio();
    window_bytes_ += frame.media.Size();
    if (frame.IsVideo()) {
        ++status_.pictures;
        ++window_pictures_;
        if (frame.IsKey()) {
            status_.video = CodecText(frame.media);
            header_.video_present = 1;
            header_.video_encode_type = frame.media.codec;
            header_.width = frame.media.width;
            header_.height = frame.media.height;
            header_.frame_rate = static_cast<int32_t>(frame.media.frame_rate);
            if (last_key_ != 0) status_.key_distance = frame.DtsSeconds() - last_key_;
            last_key_ = frame.DtsSeconds();
        }
    } else {
        if (status_.sounds++ == 0) {
            status_.audio = CodecText(frame.media);
            header_.audio_present = 1;
            header_.audio_encode_type = frame.media.codec;
            header_.channels = frame.media.channels;
            header_.bits_per_sample = frame.media.bits_per_sample;
            header_.samples_per_sec = frame.media.samples_per_sec;
        }
    }
    if (window_start_us_ == 0) window_start_us_ = now;
    const int64_t span = now - window_start_us_;
    if (span >= kRateWindowUs) {
        status_.bits_per_second = static_cast<double>(window_bytes_) * 8e6 / static_cast<double>(span);
        status_.pictures_per_second = static_cast<double>(window_pictures_) * 1e6 / static_cast<double>(span);
        window_start_us_ = now;
        window_bytes_ = 0;
        window_pictures_ = 0;
    }
}

}  // namespace Orvane::Muxora::Gateway
