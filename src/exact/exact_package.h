#pragma once

#include <cstdint>

#include "codec/audio_frames.h"
#include "core/exact_params.h"
#include "core/package.h"
#include "exact/frame_clock.h"

namespace Orvane::Muxora {

// What MXExactBlock tells beside the bytes.
struct BlockNote {
    MXBlockKind kind = MX_BLOCK_MEDIA;
    uint32_t flags = 0;  // MXBlockFlags
    uint32_t time_scale = 0;
    int64_t dts = 0;
    int64_t duration = 0;
};

// The base of the formats with exact times: the order of calls, the clock, the output blocks.
//
// A stream begins with init, so that a front end that makes no header packs as well; createHeader after that changes
// nothing, and what a reader needs first goes out ahead of the media. createTailer ends it. Frames of another channel
// of multi-channel sound than the first one vanish.
class CExactPackage : public CPackage, public IExactParams {
  public:
    uint32_t init() override;
    uint32_t uninit() override;
    uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) override;
    uint32_t inputFrame(MXFrameInfo* frame, uint32_t reserved) final;
    uint32_t createTailer(const void* info, uint32_t unused) final;
    uint32_t SetFragmentParam(const MXFragmentParam& param) override;
    void GetTimeRepairs(MXTimeRepairs& repairs) const final { repairs = clock_.Repairs(); }

  protected:
    // `scale`: see FrameClock.
    CExactPackage(uint32_t format, const MXCreateParam* param, uint32_t scale,
                  FrameClock::Origin origin = FrameClock::Origin::kAsGiven)
        : CPackage(format, param), clock_(scale, origin) {}

    // A frame that checkFrame takes, with bytes. Results as of inputFrame; a frame that ends in anything but MX_OK
    // should have left no trace in the output. Where memory runs out (MX_NO_RESOURCES or std::bad_alloc) the frame is
    // as if it had not been given: its time is taken back here, everything else is up to the format.
    virtual uint32_t PackVideo(const MXFrameInfo& frame) = 0;
    virtual uint32_t PackAudio(const MXFrameInfo& frame, const AudioMeasure& measure) = 0;
    // Memory ran out for the frame, a picture or sound: takes back what it has changed so far.
    virtual void Forget(bool /*picture*/) {}
    // The end of the stream. It may come again if memory ran out, and then goes on where that happened.
    virtual uint32_t Finish() = 0;

    // Are frames taken?
    bool IsOpen() const { return state_ == State::kOpen; }
    // Each frame that is written asks for its time, once and in order.
    FrameTime VideoTime(const MXFrameInfo& frame, uint32_t reorder_depth) {
        timed_ = true;
        return clock_.Video(frame, reorder_depth);
    }
    FrameTime AudioTime(const MXFrameInfo& frame, const AudioMeasure& measure) {
        timed_ = true;
        return clock_.Audio(frame, measure);
    }

    // As EmitNext and EmitAt, with a block of 64 bytes.
    uint32_t EmitExact(const void* data, uint32_t length, const BlockNote& note);
    uint32_t EmitExactAt(const void* data, uint32_t length, uint64_t position, const BlockNote& note);

  private:
    enum class State { kNew, kOpen, kFinished };

    uint32_t Emit(const void* data, uint32_t length, uint32_t seek_type, uint64_t position, const BlockNote& note);
    uint32_t Pack(const MXFrameInfo& frame);
    uint32_t PackChannel(const MXFrameInfo& frame);

    State state_ = State::kNew;
    bool has_channel_ = false;
    uint8_t channel_ = 0;
    bool timed_ = false;  // the frame at hand has its time
    FrameClock clock_;
};

}  // namespace Orvane::Muxora
