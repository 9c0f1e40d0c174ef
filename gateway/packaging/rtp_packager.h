// Frames as RTP packets, for RTSP: one block a frame, with the ends of its packets.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "packaging/packager.h"

namespace Orvane::Muxora::Gateway {

// How a track goes over RTP; the same for every stream of that codec.
struct RtpTrack {
    uint32_t payload_type = 96;
    uint32_t clock = 90000;
    uint32_t ssrc = 0;
};

// What RFC 3551 and the payload formats give a codec; clock 0: it does not go over RTP.
RtpTrack RtpTrackOf(const MXHeaderInfo& header, bool video);

class RtpPackager final : public FramePacker {
  public:
    RtpPackager(const MXHeaderInfo& header, Sink sink);

    bool Good() const override { return handle_ != nullptr; }
    bool Give(const Frame& frame) override;

    // The source of every stream's packets in this gateway.
    static constexpr uint32_t kVideoSsrc = 0x4D580001;
    static constexpr uint32_t kAudioSsrc = 0x4D580002;

  private:
    static int32_t Output(const MXOutputBlock* block, void* user);
    bool Input(MXFrameInfo& info, const Frame& frame);

    Sink sink_;
    RtpTrack video_;
    RtpTrack audio_;
    std::unique_ptr<void, decltype(&MX_DestroyHandle)> handle_{nullptr, MX_DestroyHandle};
    bool bare_ = false;  // the packets of this frame come without their length in front
    std::shared_ptr<Block> now_;
    std::vector<uint8_t> copy_;
    // Wall clock at media time 0, the same for both tracks, so that reports keep sound and picture together.
    std::optional<int64_t> epoch_us_;
};

}  // namespace Orvane::Muxora::Gateway
