#include "rtp/packet_run.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include "core/byte_writer.h"

namespace Orvane::Muxora {

namespace {

// The first word of the fixed header: V, P, X, CC, M, PT, sequence number.
constexpr uint32_t kVersion2 = 0x80000000;
constexpr uint32_t kExtensionBit = 0x10000000;
constexpr uint32_t kMarkerBit = 0x00800000;
constexpr uint32_t kPayloadTypeMask = 0x7F;

}  // namespace

void HeaderExtension::Set(const void* data, uint32_t length) {
    if (data != nullptr && data == Data()) return;
    std::vector<uint8_t> block;
    if (data == nullptr) length = 0;
    if (length != 0) {
        const uint64_t words = (uint64_t{length} + 3) / 4;
        block.resize(static_cast<size_t>(kHeadLength + 4 * words));  // "defined by profile" and the padding are 0
        PutBE16(block.data() + 2, static_cast<uint16_t>(words));
        const auto* bytes = static_cast<const uint8_t*>(data);
        std::copy(bytes, bytes + length, block.begin() + kHeadLength);
    }
    // The old block goes last: the new bytes may have come from it.
    block_ = std::move(block);
    length_ = length;
}

void PacketRun::Begin(std::span<uint8_t> area, RtpStream& stream, const HeaderExtension& extension,
                      uint32_t max_length) {
    begin_ = end_ = area.data();
    room_ = static_cast<int64_t>(std::min<size_t>(area.size(), std::numeric_limits<uint32_t>::max()));
    stream_ = &stream;
    extension_ = &extension;
    max_length_ = max_length;
    custom_length_ = static_cast<int64_t>(stream.custom_data.size());
    header_length_ = kFixedHeaderLength + static_cast<int64_t>(extension.Block().size());
    packet_sizes_.clear();
    // What all packets of the frame have in common.
    const bool extended = header_length_ != kFixedHeaderLength;
    first_word_ = kVersion2 | (extended ? kExtensionBit : 0) | (stream.payload_type & kPayloadTypeMask) << 16;
    ByteCursor(last_words_).BE32(stream.timestamp).BE32(stream.ssrc);
}

uint8_t* PacketRun::Add(uint32_t prefix_length, int64_t payload_length, bool marker) {
    uint8_t* const payload = Place(prefix_length, payload_length);
    if (payload == nullptr) return nullptr;
    ++stream_->sequence;  // raised first: the first packet carries the set value plus 1

    uint8_t* out = end_;
    if (custom_length_ != 0) out = std::copy(stream_->custom_data.begin(), stream_->custom_data.end(), out);
    if (prefix_length != 0) out += PutBE16(out, static_cast<uint16_t>(header_length_ + payload_length));
    out += PutBE32(out, first_word_ | (marker ? kMarkerBit : 0) | stream_->sequence);
    out = std::copy(std::begin(last_words_), std::end(last_words_), out);
    if (out != payload) std::copy(extension_->Block().begin(), extension_->Block().end(), out);

    const auto packet_size = static_cast<uint32_t>(payload - end_ + payload_length);
    end_ += packet_size;
    room_ -= packet_size;
    packet_sizes_.push_back(packet_size);
    return payload;
}

}  // namespace Orvane::Muxora
