#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace Orvane::Muxora {

// The two-byte big-endian length in front of a packet.
constexpr uint32_t kPrefixLength = 2;
// The fixed header of RFC 3550 5.1, without CSRC entries.
constexpr uint32_t kFixedHeaderLength = 12;
// What the packets of one frame may come to in the packager's own buffer.
constexpr uint32_t kRunCapacity = 0x300000;

// The longest payload that is copied before the end of its unit is known: the copy is in vain where the unit turns out
// to end early. Up to the size of a jumbo frame that costs little, however many small units a frame has.
constexpr int64_t kMostAhead = 9000;

// What identifies the packets of one stream.
struct RtpStream {
    uint32_t ssrc = 0;
    uint16_t sequence = 0;  // the last one used
    uint32_t timestamp = 0;
    uint32_t payload_type = 0;
    std::vector<uint8_t> custom_data;  // goes in front of each packet
};

// The header extension of RFC 3550 5.3.1, as it stands on the wire behind the fixed header.
class HeaderExtension {
  public:
    // Copies; null clears, and what Data() gave changes nothing.
    void Set(const void* data, uint32_t length);
    const uint8_t* Data() const { return length_ != 0 ? block_.data() + kHeadLength : nullptr; }
    uint32_t Length() const { return length_; }
    const std::vector<uint8_t>& Block() const { return block_; }

  private:
    static constexpr uint32_t kHeadLength = 4;

    std::vector<uint8_t> block_;  // empty without data
    uint32_t length_ = 0;
};

// The packets of one frame, back to back in one area: custom data, length prefix, RTP header, payload. The list of
// their sizes keeps its memory from frame to frame.
class PacketRun {
  public:
    // Starts a frame. `stream` and `extension` must outlive it.
    void Begin(std::span<uint8_t> area, RtpStream& stream, const HeaderExtension& extension, uint32_t max_length);

    // Where the payload of the next packet will stand, if there is room for `count` bytes of it; null if not. The
    // caller may write them ahead of Add.
    uint8_t* Place(uint32_t prefix_length, int64_t count) const {
        const int64_t head = custom_length_ + prefix_length + header_length_;
        return head + count <= room_ ? end_ + head : nullptr;
    }

    // Adds a packet up to its payload, and returns where the caller writes `payload_length` bytes; null if the area has
    // no room for it. `prefix_length` is kPrefixLength or 0.
    uint8_t* Add(uint32_t prefix_length, int64_t payload_length, bool marker);

    // The fragments of a unit that are all full: their payloads are `payload` bytes each, in front of them `fu_header`,
    // and none has the marker. Writes ahead as many as surely come before the next start code and before `end`, and
    // returns their number; none of them counts until AddWritten takes them.
    uint32_t WriteAhead(uint32_t prefix_length, std::span<const uint8_t> fu_header, const uint8_t* from,
                        const uint8_t* end, int64_t payload);

    // Adds `count` packets that WriteAhead has written. Returns the first one's FU header.
    uint8_t* AddWritten(uint32_t prefix_length, uint32_t fu_length, int64_t payload, uint32_t count);

    // The largest length that a packet should have.
    int64_t MaxLength() const { return max_length_; }
    int64_t CustomLength() const { return custom_length_; }
    int64_t HeaderLength() const { return header_length_; }
    int64_t ExtensionLength() const { return extension_->Length(); }

    const uint8_t* Data() const { return begin_; }
    uint32_t Size() const { return static_cast<uint32_t>(end_ - begin_); }
    const std::vector<uint32_t>& PacketSizes() const { return packet_sizes_; }

  private:
    // Everything in front of the payload; returns the place behind it.
    uint8_t* PutHead(uint8_t* out, uint32_t prefix_length, int64_t payload_length, uint32_t marker_and_sequence) const;

    uint8_t* begin_ = nullptr;
    uint8_t* end_ = nullptr;  // behind the last packet
    int64_t room_ = 0;        // from there on
    RtpStream* stream_ = nullptr;
    const HeaderExtension* extension_ = nullptr;
    uint32_t max_length_ = 0;
    int64_t custom_length_ = 0;
    int64_t header_length_ = 0;
    // The fixed header, but for marker and sequence number.
    uint32_t first_word_ = 0;
    uint8_t last_words_[8] = {};
    std::vector<uint32_t> packet_sizes_;
};

}  // namespace Orvane::Muxora
