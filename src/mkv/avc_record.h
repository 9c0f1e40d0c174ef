#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// The parameter sets of an H.264 stream: gathered from its frames, given back as a decoder configuration.
class CAvcRecord {
  public:
    static constexpr uint32_t kMaxParameterSet = 255;
    static constexpr uint32_t kMaxConfiguration = 11 + 2 * kMaxParameterSet;

    // Turns the Annex-B frame into NAL units behind 4-byte big-endian lengths, in place, and keeps its parameter sets.
    // Every NAL unit has to stand behind 00 00 00 01, the first one at the start of the frame: a 00 00 01 is data here,
    // and what stands ahead of the first start code is overwritten.
    // What becomes of the frame goes to `copy` as well, which has room for it and does not overlap it, or is null.
    void ScanAvcFrame(uint8_t* frame, uint32_t length, uint8_t* copy = nullptr);

    // Writes the AVCDecoderConfigurationRecord (ISO/IEC 14496-15 5.3.3.1), with zeros for what was not seen yet.
    // Returns its size.
    uint32_t WriteConfiguration(uint8_t (&area)[kMaxConfiguration]) const;

  private:
    struct ParameterSet {
        uint8_t count = 0;
        uint8_t length = 0;
        uint8_t bytes[kMaxParameterSet] = {};

        void Set(const uint8_t* nal, uint32_t nal_length);
    };

    void Keep(const uint8_t* nal, uint32_t length);

    uint8_t version_ = 0;
    uint8_t profile_[3] = {};  // AVCProfileIndication, profile_compatibility, AVCLevelIndication
    ParameterSet sps_;
    ParameterSet pps_;
};

}  // namespace Orvane::Muxora
