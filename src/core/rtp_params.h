#pragma once

#include <cstdint>

#include "MuxoraAPI.h"

namespace Orvane::Muxora {

// What the front ends need of an RTP packager to set and read its parameters. CRtpPacket implements it; the front ends
// reach it by a cast from CPackage when the format is MX_FORMAT_RTP.
class IRtpParams {
  public:
    virtual ~IRtpParams() = default;
    // Every field of the record, in its order; nothing is validated.
    virtual void SetRtpParam(const MXRtpParam& param) = 0;
    // Fills the record; `rtp_custom_data` is only given if it was not null on entry.
    virtual void GetRtpParam(MXRtpParam& param) const = 0;
    // One parameter by its key, narrowed to its width. Unknown keys do nothing.
    virtual void SetRtpValue(const char* key, int64_t value) = 0;
    virtual void GetRtpValue(const char* key, int64_t& value) const = 0;
    // Custom data behind each packet's header; copied. False if refused.
    virtual bool SetCustomData(const void* data, uint32_t length) = 0;
    virtual bool SetAudioCustomData(const void* data, uint32_t length) = 0;
};

}  // namespace Orvane::Muxora
