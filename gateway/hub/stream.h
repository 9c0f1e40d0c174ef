// One stream: what a source gives, with good times, to everybody who wants frames.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "hub/frame.h"
#include "hub/time_repair.h"
#include "hub/workers.h"

namespace Orvane::Muxora::Gateway {

// Wants the frames of a stream: a packager, a recorder, a relay. Called on the stream's thread.
class FrameSink {
  public:
    virtual ~FrameSink() = default;
    virtual void OnFrame(const FramePtr& frame) = 0;
    // The stream was removed, or the gateway ends: finish what was begun.
    virtual void OnEnd() = 0;
};

// What is told about a stream; a copy.
struct StreamStatus {
    std::string name;
    std::string input;
    std::string state;    // "waiting", "live", "lost"
    std::string trouble;  // why the input was lost, in one line
    std::string video;    // "H.264 1280x720", or empty
    std::string audio;    // "AAC 48000 Hz, 2 ch", or empty
    uint64_t pictures = 0;
    uint64_t sounds = 0;
    uint64_t bytes = 0;
    uint64_t opened = 0;      // times that the input was opened
    uint64_t damaged = 0;     // frames that the input marked as damaged
    uint64_t relayed = 0;     // messages that the relay's servers have of it
    uint64_t relay_lost = 0;  // frames that found no place on their way there
    uint64_t overruns = 0;    // frames thrown away because the stream's thread was behind
    RepairCounts video_repairs;
    RepairCounts audio_repairs;
    double bits_per_second = 0;  // over the last seconds
    double pictures_per_second = 0;
    double key_distance = 0;   // seconds between the last two key frames
    double media_seconds = 0;  // decoding time of the frame that came last
    int64_t last_arrival_us = 0;
};

class Stream : public std::enable_shared_from_this<Stream> {
  public:
    Stream(std::string name, std::string input, Worker& home);

    const std::string& Name() const { return name_; }
    Worker& Home() { return home_; }

    // ---- for the source, on any thread.

    // Takes the frame; false when too many are under way and the frame was thrown away.
    bool Push(Frame frame);
    size_t UnderWay() const { return under_way_; }
    void Opened();
    void Lost(const std::string& trouble);
    void SetDamaged(uint64_t count);
    // For who publishes it: see StreamStatus.
    void SetRelayed(uint64_t messages, uint64_t lost);

    // ---- for everybody, on any thread.

    StreamStatus Status() const;
    // The streams that were seen so far, as packagers are told of them.
    MXHeaderInfo HeaderInfo() const;
    // No frame comes any more: every sink is told, on the stream's thread.
    void End();
    // End() was called.
    bool Removed() const { return removed_; }

    // ---- for sinks, on the stream's thread.

    // The sink first gets the current group of pictures with the sound beside it, if `from_key`.
    void Attach(std::shared_ptr<FrameSink> sink, bool from_key = true);
    void Detach(const FrameSink* sink);
    // From the last key frame on.
    const std::deque<FramePtr>& CurrentGop() const { return gop_; }
    bool Ended() const { return ended_; }

  private:
    void Take(Frame frame);
    void Keep(const FramePtr& frame);
    void Count(const Frame& frame);

    const std::string name_;
    Worker& home_;
    std::atomic<size_t> under_way_{0};
    std::atomic<bool> removed_{false};

    // The stream's thread.
    TimeRepair repair_;
    std::deque<FramePtr> gop_;
    size_t gop_bytes_ = 0;
    bool has_video_ = false;
    bool ended_ = false;
    std::vector<std::shared_ptr<FrameSink>> sinks_;
    double last_key_ = 0;
    int64_t window_start_us_ = 0;
    uint64_t window_bytes_ = 0;
    uint64_t window_pictures_ = 0;

    mutable std::mutex mutex_;
    StreamStatus status_;
    MXHeaderInfo header_{};
};

using StreamPtr = std::shared_ptr<Stream>;

// "H.264 320x240" and "AAC 48000 Hz, 2 ch".
std::string CodecText(const Tools::MediaFrame& frame);

}  // namespace Orvane::Muxora::Gateway
