// Records a stream: files of about the same length, each beginning with a key frame, the old ones deleted.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "bounds.h"
#include "hub/frame_queue.h"
#include "hub/stream.h"
#include "recording/recording_file.h"

namespace Orvane::Muxora::Gateway {

struct RecordingSettings {
    std::string folder;  // empty: nothing is recorded
    double segment_seconds = 600;
    // What is kept of each stream; 0: everything.
    double keep_seconds = 0;
    uint64_t keep_bytes = 0;
};

// "10m", "7d", "90" are seconds. False when the text is none.
bool ParseSpan(const std::string& text, double& seconds);
// "20G" are bytes, "7d" is a span: sets one of the two.
bool ParseKeep(const std::string& text, RecordingSettings& settings);

// A sink of frames. The disk has a thread of its own, so that a slow one holds up nobody.
class Recorder final : public FrameSink {
  public:
    // Throws std::runtime_error when the folder cannot be made.
    Recorder(const StreamPtr& stream, const RecordingSettings& settings);
    // Ends the file that grows.
    ~Recorder() override;

    void OnFrame(const FramePtr& frame) override;
    void OnEnd() override;

    // Waits until all that was given is written and the file has its index.
    void Wait();

  private:
    void Run();
    void Take(const FramePtr& frame);
    void Begin(const Frame& frame);
    void Finish();
    void DeleteOld() const;

    const StreamPtr stream_;
    const RecordingSettings settings_;
    const std::string folder_;

    std::mutex mutex_;
    std::condition_variable changed_;
    FrameQueue frames_{kRecordingQueueBytes};
    bool ended_ = false;

    // The thread's own.
    std::unique_ptr<RecordingFile> file_;
    double began_ = 0;
    double next_try_ = 0;  // in seconds of media
    bool told_ = false;
    bool has_video_ = false;
    std::thread thread_;
};

}  // namespace Orvane::Muxora::Gateway
