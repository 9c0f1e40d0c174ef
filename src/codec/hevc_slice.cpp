#include "codec/hevc_slice.h"

#include <algorithm>
#include <bit>

#include "codec/rbsp.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kNalHeaderSize = 2;
constexpr uint32_t kPictureTiming = 1;

// Bits of slice_segment_address: Ceil(Log2(PicSizeInCtbsY)).
uint32_t AddressBits(const SpsDetails& sps) {
    const uint32_t ctb = 1u << sps.log2_ctb_size;
    const uint64_t columns = (uint64_t{sps.coded_width} + ctb - 1) / ctb;
    const uint64_t rows = (uint64_t{sps.coded_height} + ctb - 1) / ctb;
    return static_cast<uint32_t>(std::bit_width(columns * rows - 1));
}

}  // namespace

void HevcParameterSets::Enter(std::span<const uint8_t> nal) {
    if (nal.size() < kNalHeaderSize || HevcLayerOf(nal[0], nal[1]) != 0) return;
    if (HevcNalTypeOf(nal[0]) == kHevcSpsNal) {
        const std::optional<SpsDetails> read = ReadHevcSps(nal);
        if (read && read->id < sps.size()) sps[read->id] = read;
        return;
    }
    if (HevcNalTypeOf(nal[0]) != kHevcPpsNal) return;
    Rbsp data(nal.subspan(kNalHeaderSize, std::min<size_t>(nal.size(), kSliceHeadSize) - kNalHeaderSize));
    CBitReader& bits = data.Bits();
    const uint32_t id = bits.ReadUe();
    const uint32_t sps_id = bits.ReadUe();
    if (id >= pps.size() || sps_id >= sps.size()) return;
    HevcPps read;
    read.sps_id = static_cast<uint8_t>(sps_id);
    read.dependent_slice_segments_enabled = bits.ReadBit() != 0;
    bits.Skip(1);  // output_flag_present_flag
    read.num_extra_slice_header_bits = static_cast<uint8_t>(bits.Read(3));
    pps[id] = read;
}

HevcSlice ReadHevcSlice(std::span<const uint8_t> nal, const HevcParameterSets& sets) {
    HevcSlice slice;
    if (nal.size() <= kNalHeaderSize) return slice;
    slice.nal_type = HevcNalTypeOf(nal[0]);
    Rbsp data(nal.subspan(kNalHeaderSize, std::min<size_t>(nal.size(), kSliceHeadSize) - kNalHeaderSize));
    CBitReader& bits = data.Bits();
    slice.first_in_picture = bits.ReadBit() != 0;
    if (slice.nal_type >= kHevcFirstIrapNal && slice.nal_type <= kHevcLastIrapNal) bits.Skip(1);
    const uint32_t pps_id = bits.ReadUe();
    if (pps_id >= sets.pps.size() || !sets.pps[pps_id]) return slice;
    const HevcPps& pps = *sets.pps[pps_id];
    if (!sets.sps[pps.sps_id]) return slice;
    slice.sps = &*sets.sps[pps.sps_id];
    if (!slice.first_in_picture) {
        // A dependent segment goes on in the slice of the one before.
        if (pps.dependent_slice_segments_enabled && bits.ReadBit() != 0) return slice;
        bits.Skip(AddressBits(*slice.sps));
    }
    bits.Skip(pps.num_extra_slice_header_bits);
    constexpr SliceKind kKinds[] = {SliceKind::kB, SliceKind::kP, SliceKind::kI};  // Table 7-7
    const uint32_t slice_type = bits.ReadUe();
    if (slice_type < std::size(kKinds)) slice.kind = kKinds[slice_type];
    return slice;
}

std::optional<uint32_t> HevcPicStruct(std::span<const uint8_t> nal) {
    if (nal.size() <= kNalHeaderSize || HevcNalTypeOf(nal[0]) != kHevcPrefixSeiNal) return std::nullopt;
    Rbsp data(nal.subspan(kNalHeaderSize));
    const std::optional<std::span<const uint8_t>> payload = FindSeiMessage(data.Bytes(), kPictureTiming);
    if (!payload || payload->empty()) return std::nullopt;
    return (*payload)[0] >> 4;
}

}  // namespace Orvane::Muxora
