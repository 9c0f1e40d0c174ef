#pragma once

#include <array>
#include <cstdint>

#include "MuxoraAPI.h"
#include "core/byte_writer.h"

namespace Orvane::Muxora {

// What the last key frame said of the picture.
struct OvxVideoInfo {
    bool valid = false;
    uint32_t encode_type = 0;
    uint32_t deinterlace = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t frame_rate = 0;
};

// What the last audio frame said of the sound.
struct OvxAudioInfo {
    bool valid = false;
    uint32_t encode_type = 0;
    uint32_t channels = 0;
    uint32_t samples_per_sec = 0;
    uint32_t bits_per_sample = 0;
    uint32_t bitrate = 0;
};

// The extension block of an OVX unit: tagged records between the head and the frame. A record that finds no room is
// left out, and the block goes on with the next.
class COvxExtension {
  public:
    // Starts the block anew for one frame, which is encrypted as `encrypted` says. The value of the data check is
    // missing yet.
    void Build(const MXFrameInfo& frame, const OvxVideoInfo& video, const OvxAudioInfo& audio, bool encrypted,
               uint8_t encrypt_type);
    // The CRC-32 of the frame's bytes as they go out.
    void SetCheckValue(uint32_t value);

    const uint8_t* Data() const { return store_.data(); }
    uint32_t Size() const { return size_; }  // 256 at most

  private:
    bool HasRoom(uint64_t length) const { return size_ + length <= store_.size(); }
    // A cursor over the next `length` bytes of the store, which become part of the block. Only after HasRoom().
    ByteCursor Record(uint32_t length);
    void AddImageSize(const OvxVideoInfo& video);
    void AddPlayBack(const OvxVideoInfo& video);
    void AddAudioFormat(const OvxAudioInfo& audio);
    void AddDataCheck();
    void AddEncrypt(const MXFrameInfo& frame, uint8_t encrypt_type);
    void AddSplitInfo(const MXFrameInfo& frame, const OvxVideoInfo& video);
    void AddFrameMarks(const MXFrameInfo& frame);

    std::array<uint8_t, 256> store_{};
    uint32_t size_ = 0;
    uint32_t check_value_at_ = 0;
};

}  // namespace Orvane::Muxora
