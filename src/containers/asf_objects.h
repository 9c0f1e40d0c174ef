// The objects of an ASF file (Advanced Systems Format, revision 01.20) in the one shape in which they are
// written: a header of fixed size, the head of the Data Object, data packets of fixed size, and the Simple Index.
#pragma once

#include <cstdint>
#include <cstring>
#include <optional>

#include "core/byte_writer.h"

namespace Orvane::Muxora {

constexpr uint32_t kAsfHeaderSize = 768;
constexpr uint32_t kAsfDataHeadSize = 50;
constexpr uint32_t kAsfIndexHeadSize = 56;
constexpr uint32_t kAsfIndexEntrySize = 6;
constexpr uint32_t kAsfPacketHeadSize = 28;
constexpr uint32_t kAsfPacketPayload = 2048;
constexpr uint32_t kAsfPacketSize = kAsfPacketHeadSize + kAsfPacketPayload;
constexpr uint32_t kAsfMaxVideoConfig = 64;

struct AsfVideoStream {
    uint32_t encode_type = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t frame_rate = 0;
    uint32_t config_size = 0;
    uint8_t config[kAsfMaxVideoConfig] = {};  // of MPEG-4 video
};

// The values of an audio stream that is announced before its first frame.
struct AsfAudioStream {
    uint16_t tag = 1;
    uint32_t channels = 1;
    uint32_t samples_per_sec = 16000;
    uint32_t bits_per_sample = 16;
    uint16_t audio_specific_config = 0;
};

// Header Object and the head of the Data Object. A broadcast has constants in the place of what only the end tells.
struct AsfHeader {
    void Write(ByteCursor& out) const;

    bool broadcast = false;
    uint64_t file_size = 0;
    uint64_t creation_date = 0;  // seconds since 1970
    uint64_t packets = 0;
    uint64_t play_duration = 0;  // 100 ns
    AsfVideoStream video;
    std::optional<AsfAudioStream> audio;

  private:
    void WriteFileProperties(ByteCursor& out) const;
    void WriteHeaderExtension(ByteCursor& out) const;
    void WriteExtendedStreamProperties(ByteCursor& out) const;
    void WriteVideoStreamProperties(ByteCursor& out) const;
    void WriteAudioStreamProperties(ByteCursor& out) const;
    void WriteDataHead(ByteCursor& out) const;
    uint32_t VideoStreamSize() const;
    uint32_t AudioStreamSize() const;
};

// What the packets of one frame have in common.
struct AsfMediaObject {
    uint32_t size;
    uint32_t send_time;     // ms
    uint8_t stream_number;  // with the key frame bit
    uint8_t number;
    uint32_t presentation_time;  // ms
};

// The heads of a frame's data packets, each with one payload: composed once, patched for each packet.
class AsfPacketHead {
  public:
    explicit AsfPacketHead(const AsfMediaObject& object);
    // Writes kAsfPacketHeadSize bytes for the piece at `offset` of the frame.
    void Write(uint8_t* out, uint32_t offset, uint32_t payload_size) const {
        std::memcpy(out, bytes_, kAsfPacketHeadSize);
        PutLE16(out + kPaddingLengthAt, static_cast<uint16_t>(kAsfPacketPayload - payload_size));
        PutLE32(out + kOffsetAt, offset);
    }

  private:
    static constexpr uint32_t kPaddingLengthAt = 5;
    static constexpr uint32_t kOffsetAt = 15;

    uint8_t bytes_[kAsfPacketHeadSize];
};

void WriteAsfIndexHead(ByteCursor& out, uint32_t entries);

}  // namespace Orvane::Muxora
