#include "rtp/packet_run.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "core/byte_writer.h"

namespace Orvane::Muxora {

namespace {

constexpr uint8_t kVersion2 = 0x80;
constexpr uint8_t kExtensionBit = 0x10;
constexpr uint8_t kMarkerBit = 0x80;
constexpr uint8_t kPayloadTypeMask = 0x7F;

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
    area_ = area.first(std::min<size_t>(area.size(), std::numeric_limits<uint32_t>::max()));
    stream_ = &stream;
    extension_ = &extension;
    max_length_ = max_length;
    size_ = 0;
    packet_sizes_.clear();
}

uint8_t* PacketRun::Place(uint32_t prefix_length, int64_t count) const {
    const int64_t head = HeadLength(prefix_length);
    if (head + count > static_cast<int64_t>(area_.size()) - size_) return nullptr;
    return area_.data() + size_ + head;
}

uint8_t* PacketRun::Add(uint32_t prefix_length, int64_t payload_length, bool marker) {
    if (Place(prefix_length, payload_length) == nullptr) return nullptr;
    const std::vector<uint8_t>& custom = stream_->custom_data;
    const std::vector<uint8_t>& extension = extension_->Block();
    const uint8_t extension_bit = extension.empty() ? 0 : kExtensionBit;
    const uint8_t marker_bit = marker ? kMarkerBit : 0;
    ++stream_->sequence;  // raised first: the first packet carries the set value plus 1

    uint8_t* const begin = area_.data() + size_;
    uint8_t* out = begin;
    if (!custom.empty()) out = std::copy(custom.begin(), custom.end(), out);
    if (prefix_length != 0) out += PutBE16(out, static_cast<uint16_t>(HeaderLength() + payload_length));
    out += PutU8(out, kVersion2 | extension_bit);  // V, P, X, CC
    out += PutU8(out, static_cast<uint8_t>(marker_bit | (stream_->payload_type & kPayloadTypeMask)));
    out += PutBE16(out, stream_->sequence);
    out += PutBE32(out, stream_->timestamp);
    out += PutBE32(out, stream_->ssrc);
    if (!extension.empty()) out = std::copy(extension.begin(), extension.end(), out);

    const auto packet_size = static_cast<uint32_t>(out - begin + payload_length);
    size_ += packet_size;
    packet_sizes_.push_back(packet_size);
    return out;
}

}  // namespace Orvane::Muxora
