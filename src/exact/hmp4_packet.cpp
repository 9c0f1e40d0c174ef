#include "exact/hmp4_packet.h"

#include "exact/hybrid_layout.h"
#include "exact/index_boxes.h"
#include "exact/mp4_boxes.h"

namespace Orvane::Muxora {

namespace {

constexpr size_t kBoxHead = 8;
constexpr size_t kFrontRoom = 2048;  // for further sample entries

void WriteFileType(BoxWriter& out) {
    const auto ftyp = out.Box("ftyp");
    out.Text("isom").BE32(0x200).Text("isom").Text("iso6").Text("iso2").Text("avc1").Text("mp41");
}

}  // namespace

void CHmp4Packet::EmitTracks() {
    std::vector<uint8_t> bytes;
    const bool first = front_size_ == 0;
    if (first) {
        BoxWriter out(bytes);
        WriteFileType(out);
        // Becomes the head of mdat.
        const auto free = out.Box("free");
        out.Zeros(kMediaHeadSize - kBoxHead);
    }
    const size_t front = bytes.size();
    WriteFront(bytes);
    if (!first && bytes.size() > front_size_) return;  // no more room
    if (first) front_size_ = bytes.size() - front;
    uint32_t flags = 0;
    for (const Mp4Track* track : Tracks())
        flags |= track->video ? MX_BLOCK_VIDEO : MX_BLOCK_AUDIO;
    const BlockNote note{first ? MX_BLOCK_HEADER : MX_BLOCK_PATCH, flags, Tracks().front()->time_scale, 0, 0};
    const uint32_t taken = EmitExactAt(bytes.data(), static_cast<uint32_t>(bytes.size()),
                                       first ? 0 : kHybridFileTypeSize + kMediaHeadSize, note);
    if (first) position_ = taken;
}

// moov and the room behind it: as much as the first time, if that suffices.
void CHmp4Packet::WriteFront(std::vector<uint8_t>& bytes) {
    BoxWriter out(bytes);
    const size_t begin = out.Size();
    WriteFragmentedMovie(out, Tracks(), true);
    const size_t movie = out.Size() - begin;
    const size_t wanted = front_size_ != 0 ? front_size_ : movie + kBoxHead + kFrontRoom;
    if (movie == wanted) return;
    const auto free = out.Box("free");
    if (movie + kBoxHead < wanted) out.Zeros(static_cast<uint32_t>(wanted - movie - kBoxHead));
}

void CHmp4Packet::EmitFragment(std::span<const FragmentPart> parts, const BlockNote& note) {
    FragmentSamples samples[2];
    for (size_t i = 0; i < parts.size(); ++i)
        samples[i] = {parts[i].track->video, parts[i].samples->Samples(), parts[i].description};
    index_.Reserve({samples, parts.size()});
    head_.clear();
    BoxWriter out(head_);
    WriteFragmentHead(out, ++sequence_number_, parts);
    const std::span<const uint8_t> block = Assemble(parts, head_);
    const uint64_t position = position_;
    position_ += EmitExactAt(block.data(), static_cast<uint32_t>(block.size()), position_, note);
    index_.Add({samples, parts.size()}, position + head_.size());
}

uint32_t CHmp4Packet::Finish() {
    const uint32_t result = CFragmentedMp4::Finish();
    if (front_size_ == 0) return result;  // not one frame
    EmitIndex();
    EmitMediaHeader();
    return result;
}

void CHmp4Packet::EmitIndex() {
    const BlockNote note{MX_BLOCK_INDEX, 0, 0, 0, 0};
    uint64_t at = position_;
    WriteIndexedMovie(Tracks(), index_, NeedsLargeOffsets(position_), [&](std::span<const uint8_t> piece) {
        at += EmitExactAt(piece.data(), static_cast<uint32_t>(piece.size()), at, note);
    });
}

// The last step, and the one that makes a plain file of it: until then the one in front counts.
void CHmp4Packet::EmitMediaHeader() {
    uint8_t area[kMediaHeadSize];
    const uint32_t length = WriteMediaHead(area, position_);
    EmitExactAt(area, length, kHybridFileTypeSize, {MX_BLOCK_PATCH, 0, 0, 0, 0});
}

}  // namespace Orvane::Muxora
