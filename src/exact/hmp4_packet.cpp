#include "exact/hmp4_packet.h"

#include "exact/hybrid_layout.h"
#include "exact/index_boxes.h"
#include "exact/mp4_boxes.h"

namespace Orvane::Muxora {

namespace {

constexpr size_t kBoxHead = 8;
constexpr uint32_t kFrontRoom = 16384;  // for further sample entries

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
    const std::vector<const Mp4Track*> tracks = Tracks();
    const size_t front = WriteFront(bytes, tracks);
    if (front == 0) return;
    front_size_ = front;
    uint32_t flags = 0;
    for (const Mp4Track* track : tracks)
        flags |= track->video ? MX_BLOCK_VIDEO : MX_BLOCK_AUDIO;
    const BlockNote note{first ? MX_BLOCK_HEADER : MX_BLOCK_PATCH, flags, tracks.front()->time_scale, 0, 0};
    const uint32_t taken = EmitExactAt(bytes.data(), static_cast<uint32_t>(bytes.size()),
                                       first ? 0 : kHybridFileTypeSize + kMediaHeadSize, note);
    if (first) position_ = taken;
}

// moov and the room behind it: the size of both, or 0 if that is no longer enough. What lies in the room is written
// once: a later moov is small then, and stays in the first page of the file, so that a kill finds the old one there or
// the new one.
size_t CHmp4Packet::WriteFront(std::vector<uint8_t>& bytes, const std::vector<const Mp4Track*>& tracks) const {
    BoxWriter out(bytes);
    const size_t begin = out.Size();
    WriteFragmentedMovie(out, tracks, true);
    const size_t movie = out.Size() - begin;
    const bool first = front_size_ == 0;
    const size_t size = first ? movie + kBoxHead + kFrontRoom : front_size_;
    if (movie + kBoxHead > size) return 0;
    out.BE32(static_cast<uint32_t>(size - movie)).Text("free");
    if (first) out.Zeros(kFrontRoom);
    return size;
}

void CHmp4Packet::EmitFragment(std::span<const FragmentPart> parts, const BlockNote& note) {
    FragmentSamples samples[2];
    for (size_t i = 0; i < parts.size(); ++i)
        samples[i] = {parts[i].track->video, parts[i].samples->Samples(), parts[i].description};
    index_.Reserve({samples, parts.size()});
    head_.clear();
    BoxWriter out(head_);
    WriteFragmentHead(out, sequence_number_ + 1, parts);
    const std::span<const uint8_t> block = Assemble(parts, head_);
    ++sequence_number_;
    const uint64_t guard = position_;
    const uint64_t begin = guard + kGuardSize;
    EmitGuard(guard, kOpenGuard);
    position_ = begin + EmitExactAt(block.data(), static_cast<uint32_t>(block.size()), begin, note);
    EmitGuard(guard, kGuardSize);
    index_.Add({samples, parts.size()}, begin + head_.size());
}

// A patch as well, though it goes behind what is there: a sink that only goes forward has no use for it.
void CHmp4Packet::EmitGuard(uint64_t position, uint32_t size) {
    uint8_t guard[kGuardSize];
    ByteCursor(guard).BE32(size).Text("free");
    EmitExactAt(guard, kGuardSize, position, {MX_BLOCK_PATCH, 0, 0, 0, 0});
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
