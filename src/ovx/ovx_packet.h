#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "core/grow_buffer.h"
#include "core/package.h"
#include "ovx/encrypt.h"
#include "ovx/ovx_extension.h"

namespace Orvane::Muxora {

// OVX, the native format: each frame becomes one unit that describes itself (head, extension records, frame bytes,
// tail), and a file or stream is such units one after the other, with nothing around them.
class COvxPacket : public CPackage {
  public:
    explicit COvxPacket(uint32_t format, const MXCreateParam* param = nullptr);

    uint32_t init() override { return MX_OK; }
    uint32_t uninit() override { return MX_OK; }
    // Takes the clock options; writes nothing.
    uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) override;
    // The unit goes into the packet, which must have room for it, and to the callback as well.
    uint32_t inputFrameEx(MXFrameInfo* frame, Basalt::CPacket& packet) override;
    uint32_t inputFrame(MXFrameInfo* frame, uint32_t reserved) override;
    uint32_t createTailer(const void* /*info*/, uint32_t /*unused*/) override { return MX_OK; }
    uint32_t setEncryptType(uint32_t type, const void* key, uint32_t key_length) override;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

    // Bytes that the callback has taken so far.
    uint64_t totalWritten() const { return total_written_; }

  private:
    struct Head {
        uint8_t kind = 0;
        uint8_t sub_kind = 0;
        uint32_t sequence = 0;
        uint32_t length = 0;  // of the whole unit
        uint32_t ovx_time = 0;
        uint16_t timestamp = 0;
    };

    // `packet` is null when the unit is built in the buffer.
    uint32_t PackFrame(MXFrameInfo& frame, Basalt::CPacket* packet);
    uint32_t PackVideo(MXFrameInfo& frame, Basalt::CPacket* packet);
    uint32_t PackAudio(MXFrameInfo& frame, Basalt::CPacket* packet);
    // Empties the head, encrypts the frame and builds the extension block. False, with the frame untouched, if the unit
    // does not fit into the packet.
    bool StartUnit(MXFrameInfo& frame, const Basalt::CPacket* packet);
    void SendUnit(const MXFrameInfo& frame, Basalt::CPacket* packet);
    uint64_t UnitLength(const MXFrameInfo& frame) const;
    void WriteHead(uint8_t* out) const;

    uint32_t VideoSequence(const MXFrameInfo& frame);
    uint16_t VideoTimestamp(const MXFrameInfo& frame);
    uint32_t VideoDate(const MXFrameInfo& frame);
    uint32_t AudioSequence(const MXFrameInfo& frame);
    uint32_t AudioDate(const MXFrameInfo& frame) const;

    // The bytes of the frame that the cipher covers; empty when nothing is to be encrypted.
    std::span<uint8_t> EncryptStretch(const MXFrameInfo& frame) const;
    bool Encrypt(std::span<uint8_t> stretch);

    CGrowBuffer buffer_;
    uint64_t total_written_ = 0;
    uint32_t last_timestamp_ = 0;  // of the last video frame that brought none: derived from its number
    int64_t base_time_;            // seconds since 1970 at frame number base_count_
    int64_t cur_time_;             // date of the last video frame without utc_time
    OvxVideoInfo video_info_;
    uint32_t video_count_ = 1;  // number of the next video frame
    uint32_t base_count_ = 1;
    bool self_timed_ = false;
    uint32_t resync_period_ = 0;  // seconds between two settings of base_time_; 0: never
    OvxAudioInfo audio_info_;
    uint32_t audio_count_ = 1;  // number of the next audio frame
    Head head_;
    COvxExtension extension_;
    std::unique_ptr<IEncrypt> cipher_;
    uint8_t encrypt_type_ = 0;
    std::unique_ptr<uint8_t[]> work_buffer_;  // cipher text on its way back into the frame
    uint32_t work_capacity_ = 0;
};

}  // namespace Orvane::Muxora
