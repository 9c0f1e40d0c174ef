#pragma once

#include <vector>

#include "containers/asf_objects.h"
#include "core/package.h"

namespace Orvane::Muxora {

// ASF: packets of one size with a piece of one frame each. The file form writes an index and its final header at the
// end, the stream form is never gone back to. The first key frame opens the file; what comes before is left out.
class CAsfPacket : public CPackage {
  public:
    explicit CAsfPacket(uint32_t format, const MXCreateParam* param = nullptr);

    uint32_t init() override { return MX_OK; }
    uint32_t uninit() override;
    uint32_t createHeader(MXHeaderInfo* /*info*/, uint32_t /*unused*/) override { return MX_OK; }
    uint32_t inputFrame(MXFrameInfo* frame, uint32_t reserved) override;
    uint32_t createTailer(const void* info, uint32_t unused) override;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

  private:
    bool IsFile() const { return format() == MX_FORMAT_ASF; }
    uint32_t InputVideo(MXFrameInfo& frame);
    uint32_t InputAudio(const MXFrameInfo& frame);
    void OpenFile(const MXFrameInfo& frame, const uint8_t* config, uint32_t config_size);
    void OpenAudio(const MXFrameInfo& frame);
    uint32_t WritePackets(const uint8_t* data, const AsfMediaObject& object, uint32_t at);
    uint32_t SendTime() const;
    void MakeIndexRoom();
    void AddIndexEntry();
    void EmitWork(uint32_t length);

    LargeBuffer work_;       // all output is composed here
    uint64_t position_ = 0;  // where it goes
    bool header_ready_ = false;
    AsfHeader header_;
    std::vector<uint8_t> index_;  // room for the Simple Index head, the entries behind it
    // Readers rely on this: the index head counts all entries that there ever were; the entries themselves go with the
    // first tail.
    uint32_t index_entries_ = 0;

    uint32_t key_packet_ = 0;        // number of the last key frame's first packet
    uint16_t key_packet_count_ = 0;  // and how many packets it took
    uint32_t frame_duration_ = 0;    // ms
    uint32_t video_object_ = 1;      // media object number
    uint32_t video_time_ = 0;        // ms
    uint32_t first_video_timestamp_ = 0;
    uint32_t audio_object_ = 1;
    uint32_t audio_time_ = 0;      // ms
    uint32_t audio_duration_ = 0;  // of the last audio frame, ms
    uint8_t channel_ = 0;          // the one that the first audio frame came on
};

}  // namespace Orvane::Muxora
