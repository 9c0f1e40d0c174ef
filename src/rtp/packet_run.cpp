#include "rtp/packet_run.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include "codec/fragments.h"
#include "core/byte_writer.h"

namespace Orvane::Muxora {

namespace {

// The first word of the fixed header: V, P, X, CC, M, PT, sequence number.
constexpr uint32_t kVersion2 = 0x80000000;
constexpr uint32_t kExtensionBit = 0x10000000;
constexpr uint32_t kMarkerBit = 0x00800000;
constexpr uint32_t kPayloadTypeMask = 0x7F;
constexpr uint32_t kSequenceAt = 2;

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

uint8_t* PacketRun::PutHead(uint8_t* out, uint32_t prefix_length, int64_t payload_length,
                            uint32_t marker_and_sequence) const {
    if (custom_length_ != 0) out = std::copy(stream_->custom_data.begin(), stream_->custom_data.end(), out);
    if (prefix_length != 0) out += PutBE16(out, static_cast<uint16_t>(header_length_ + payload_length));
    out += PutBE32(out, first_word_ | marker_and_sequence);
    out = std::copy(std::begin(last_words_), std::end(last_words_), out);
    if (header_length_ != kFixedHeaderLength) {
        out = std::copy(extension_->Block().begin(), extension_->Block().end(), out);
    }
    return out;
}

uint8_t* PacketRun::Add(uint32_t prefix_length, int64_t payload_length, bool marker) {
    uint8_t* const payload = Place(prefix_length, payload_length);
    if (payload == nullptr) return nullptr;
    ++stream_->sequence;  // raised first: the first packet carries the set value plus 1
    PutHead(end_, prefix_length, payload_length, (marker ? kMarkerBit : 0) | stream_->sequence);

    const auto packet_size = static_cast<uint32_t>(payload - end_ + payload_length);
    end_ += packet_size;
    room_ -= packet_size;
    packet_sizes_.push_back(packet_size);
    return payload;
}

uint32_t PacketRun::WriteAhead(uint32_t prefix_length, std::span<const uint8_t> fu_header, const uint8_t* from,
                               const uint8_t* end, int64_t payload) {
    const auto fu_length = static_cast<int64_t>(fu_header.size());
    const int64_t head_length = custom_length_ + prefix_length + header_length_ + fu_length;
    if (head_length > kFragmentHead || payload < kFragmentHead || payload > kMostAhead) return 0;
    const int64_t count = std::min((end - from - 1) / payload, room_ / (head_length + payload));
    if (count <= 0) return 0;

    uint8_t head[kFragmentHead];
    std::copy(fu_header.begin(), fu_header.end(), PutHead(head, prefix_length, fu_length + payload, 0));
    FragmentRun run{};
    run.out = end_;
    run.from = from;
    run.end = end;
    run.payload = static_cast<uint32_t>(payload);
    run.count = static_cast<uint32_t>(count);
    run.head = head;
    run.head_length = static_cast<uint32_t>(head_length);
    run.sequence_at = static_cast<uint32_t>(custom_length_) + prefix_length + kSequenceAt;
    run.first_sequence = static_cast<uint16_t>(stream_->sequence + 1);
    return CutFragments(run);
}

uint8_t* PacketRun::AddWritten(uint32_t prefix_length, uint32_t fu_length, int64_t payload, uint32_t count) {
    const auto head_length = static_cast<uint32_t>(custom_length_ + prefix_length + header_length_);
    const auto packet_size = static_cast<uint32_t>(head_length + fu_length + payload);
    uint8_t* const fu_header = end_ + head_length;
    stream_->sequence = static_cast<uint16_t>(stream_->sequence + count);
    end_ += uint64_t{count} * packet_size;
    room_ -= int64_t{count} * packet_size;
    packet_sizes_.insert(packet_sizes_.end(), count, packet_size);
    return fu_header;
}

}  // namespace Orvane::Muxora
