// A stream as segments for HLS and DASH: pictures and sound apart, cut together. It lives on the stream's thread.
#pragma once

#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "hub/stream.h"
#include "packaging/packager.h"
#include "packaging/segment_list.h"

namespace Orvane::Muxora::Gateway {

class Segments : public FrameSink, public std::enable_shared_from_this<Segments> {
  public:
    // What is told once it is known.
    struct Description {
        std::string video_codec;
        std::string audio_codec;
        uint32_t width = 0;
        uint32_t height = 0;
        uint32_t sample_rate = 0;
        uint32_t channels = 0;
        double frame_rate = 0;
        int64_t start_ms = 0;  // wall clock at media time 0
    };

    // Null when the library does not make the format. Any thread.
    static std::shared_ptr<Segments> Make(const StreamPtr& stream, const SegmentSettings& settings);

    // All below on the stream's thread.

    void OnFrame(const FramePtr& frame) override;
    void OnEnd() override;

    // Null when the stream has no such track (yet).
    const SegmentList* Video() const { return video_ ? &video_->list : nullptr; }
    const SegmentList* Audio() const { return audio_ ? &audio_->list : nullptr; }
    // In the names of all files: no other run of the stream has it.
    const std::string& Generation() const { return generation_; }
    const Description& About() const { return about_; }

    // Calls back once `ready` is true, or with false when that takes too long.
    void Wait(std::function<bool()> ready, std::function<void(bool)> done);

    const StreamPtr& Source() const { return stream_; }

  private:
    struct Track {
        Track(const SegmentSettings& settings, uint32_t tracks, bool paced, Segments& owner);
        SegmentList list;
        Packager packager;
    };
    struct Waiter {
        std::function<bool()> ready;
        std::function<void(bool)> done;
        std::chrono::steady_clock::time_point until;
    };

    Segments(StreamPtr stream, const SegmentSettings& settings);
    void Take(Track* track, const BlockPtr& block);
    void WakeWaiters();
    void ArmTimer();

    StreamPtr stream_;
    SegmentSettings settings_;
    std::string generation_;
    Description about_;
    std::optional<Track> video_;
    std::optional<Track> audio_;
    std::list<Waiter> waiters_;
    boost::asio::steady_timer timer_;
    bool ended_ = false;
};

}  // namespace Orvane::Muxora::Gateway
