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

uint8_t* PacketRun::Add(uint32_t prefix_length, int64_t payload_length, bool marker) {
    const int64_t rtp_length = HeaderLength() + payload_length;
    const int64_t packet_size = CustomLength() + prefix_length + rtp_length;
    if (packet_size > static_cast<int64_t>(area_.size()) - size_) return nullptr;

    const std::vector<uint8_t>& custom = stream_->custom_data;
    const std::vector<uint8_t>& extension = extension_->Block();
    const uint8_t extension_bit = extension.empty() ? 0 : kExtensionBit;
    const uint8_t marker_bit = marker ? kMarkerBit : 0;
    ++stream_->sequence;  // raised first: the first packet carries the set value plus 1

    ByteCursor out(area_.data() + size_, static_cast<uint32_t>(packet_size));
    out.Bytes(custom.data(), static_cast<uint32_t>(custom.size()));
    if (prefix_length != 0) out.BE16(static_cast<uint16_t>(rtp_length));
    out.U8(kVersion2 | extension_bit)  // V, P, X, CC
        .U8(static_cast<uint8_t>(marker_bit | (stream_->payload_type & kPayloadTypeMask)))
        .BE16(stream_->sequence)
        .BE32(stream_->timestamp)
        .BE32(stream_->ssrc)
        .Bytes(extension.data(), static_cast<uint32_t>(extension.size()));

    uint8_t* const payload = area_.data() + size_ + out.Size();
    size_ += static_cast<uint32_t>(packet_size);
    packet_sizes_.push_back(static_cast<uint32_t>(packet_size));
    return payload;
}

}  // namespace Orvane::Muxora
