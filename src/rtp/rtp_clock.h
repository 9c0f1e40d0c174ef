#pragma once

#include <cstdint>

#include "MuxoraAPI.h"

namespace Orvane::Muxora {

// The RTP time of both streams: 90 kHz for video, samples for audio. The first frame of a stream takes the stream's
// start, each later one a step of whole milliseconds from the frame before. Whichever stream comes second starts where
// the other one stands.
class RtpClock {
  public:
    // The RTP time of a frame. A frame without a timestamp gets one, by the frame rate or by the last duration.
    uint32_t StepVideo(MXFrameInfo& frame);
    uint32_t StepAudio(MXFrameInfo& frame, double duration);
    // Closes a frame, whatever became of it.
    void EndVideo(const MXFrameInfo& frame);
    void EndAudio(const MXFrameInfo& frame, double duration);

    // The audio clock rate in Hz. Below 1000 there is no audio.
    void SetAudioSample(uint32_t rate);
    uint32_t AudioSample() const { return audio_sample_; }
    uint32_t AudioGranularity() const { return audio_granularity_; }

    uint32_t video_start = 0;
    uint32_t audio_start = 0;

  private:
    uint32_t video_timestamp_ = 0;
    uint32_t audio_timestamp_ = 0;
    bool video_seen_ = false;
    bool audio_seen_ = false;
    uint32_t last_video_ts_ = 0;  // ms
    uint32_t last_audio_ts_ = 0;  // ms
    double video_fraction_ = 0;   // parts of a ms that no step has taken yet
    double last_audio_duration_ = 0;
    uint32_t audio_sample_ = 0;
    uint32_t audio_granularity_ = 0;  // samples in a ms
};

}  // namespace Orvane::Muxora
