// The boxes that hold the configuration of a decoder: avcC, hvcC (ISO/IEC 14496-15) and esds (ISO/IEC 14496-14).
#pragma once

#include <cstdint>

#include "codec/hevc_sps.h"
#include "iso/box.h"
#include "iso/track_records.h"

namespace Orvane::Muxora {

// Room for one parameter set. A longer one is left out.
constexpr uint32_t kParameterSetRoom = 256;

// From the parameter sets of the track's first frame; later ones are not noticed. Without any, the record stays empty.
class CBox_avcC final : public CBox {
  public:
    CBox_avcC();
    void Init(const VideoTrackInfo& info);

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    // What is written without a sequence parameter set.
    uint8_t AVCProfileIndication_ = 77;
    uint8_t profile_compatibility_ = 64;
    uint8_t AVCLevelIndication_ = 30;
    uint8_t sps_count_ = 0;
    uint16_t sps_length_ = 0;
    uint8_t sps_[kParameterSetRoom] = {};
    uint8_t pps_count_ = 0;
    uint16_t pps_length_ = 0;
    uint8_t pps_[kParameterSetRoom] = {};
};

// The same for H.265.
class CBox_hvcC final : public CBox {
  public:
    CBox_hvcC();
    void Init(const VideoTrackInfo& info);

  private:
    struct NalArray {
        uint8_t type;
        uint16_t byte_count;                   // 0: the array is not written
        uint8_t block[kParameterSetRoom + 4];  // the NAL unit behind its length; zeros behind it for the SPS reader
    };
    using Finder = int32_t (*)(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap);

    uint32_t WriteData(CGrowBuffer* buffer) const override;
    bool Find(Finder find, const VideoTrackInfo& info, NalArray& array);

    HevcSpsSummary sps_summary_;
    uint8_t numOfArrays_ = 0;
    NalArray vps_{0x20, 0, {}};
    NalArray sps_{0x21, 0, {}};
    NalArray pps_{0x22, 0, {}};
};

// The elementary stream descriptor of MPEG-4 video, AAC and MPEG audio (ISO/IEC 14496-1 7.2.6). MPEG-4 video goes on
// refining it: the last intra frame decides.
class CBox_esds final : public CBox {
  public:
    CBox_esds();
    void Init(uint32_t trackType, const TrackInfo* info);
    void Update(const SampleInfo& sample);

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
    void InitAudio(const AudioTrackInfo& info);
    void Refresh();

    uint8_t codec_ = 0;
    uint8_t objectTypeIndication_ = 0;
    uint8_t stream_type_byte_ = 0;
    uint16_t ES_ID_ = 0;
    uint32_t specific_length_ = 0;
    uint8_t specific_[256] = {};
    uint32_t decoderConfigLength_ = 0;
    uint32_t esLength_ = 0;
};

}  // namespace Orvane::Muxora
