#include "exact/fmp4_packet.h"

#include "exact/mp4_boxes.h"

namespace Orvane::Muxora {

void CFmp4Packet::EmitTracks() {
    const std::vector<const Mp4Track*> tracks = Tracks();
    // Kept: the stream component hands these bytes out after the call.
    head_.clear();
    BoxWriter out(head_);
    {
        const auto ftyp = out.Box("ftyp");
        out.Text("iso6").BE32(0).Text("iso6").Text("mp41").Text("dash");
        if (tracks.size() == 1) out.Text("cmfc");  // one track a file: CMAF
    }
    WriteFragmentedMovie(out, tracks, false);
    uint32_t flags = 0;
    for (const Mp4Track* track : tracks)
        flags |= track->video ? MX_BLOCK_VIDEO : MX_BLOCK_AUDIO;
    EmitExact(head_.data(), static_cast<uint32_t>(head_.size()),
              {MX_BLOCK_HEADER, flags, tracks.front()->time_scale, 0, 0});
}

void CFmp4Packet::EmitFragment(std::span<const FragmentPart> parts, const BlockNote& note) {
    // The initialisation segment holds one entry a track: the one in force.
    FragmentPart own[2];
    for (size_t i = 0; i < parts.size(); ++i)
        own[i] = {parts[i].track, parts[i].samples, 1};
    const std::span<const FragmentPart> fragment(own, parts.size());

    fragment_head_.clear();
    BoxWriter out(fragment_head_);
    WriteFragmentHead(out, sequence_number_ + 1, fragment);
    head_.clear();
    WriteSegmentBoxes(fragment, note);
    head_.insert(head_.end(), fragment_head_.begin(), fragment_head_.end());
    const std::span<const uint8_t> block = Assemble(fragment, head_);
    ++sequence_number_;
    EmitExact(block.data(), static_cast<uint32_t>(block.size()), note);
}

// What stands ahead of moof.
void CFmp4Packet::WriteSegmentBoxes(std::span<const FragmentPart> parts, const BlockNote& note) {
    BoxWriter out(head_);
    const uint32_t boxes = Fragments().boxes;
    const bool by_frame = Fragments().mode == MX_FRAGMENT_CHUNK;
    const bool first_of_segment = !by_frame || (note.flags & MX_BLOCK_KEY) != 0;
    if ((boxes & MX_BOX_STYP) != 0 && first_of_segment) WriteSegmentType(out);
    // prft counts as a part of what sidx points to.

    producer_.clear();
    if ((boxes & MX_BOX_PRFT) != 0) {
        BoxWriter time(producer_);
        WriteProducerTime(time, parts[0]);
    }
    if ((boxes & MX_BOX_SIDX) != 0 && !by_frame) {
        uint64_t size = producer_.size() + fragment_head_.size();
        for (const FragmentPart& part : parts)
            size += part.samples->Media().Size();
        WriteSegmentIndex(out, parts[0], size);
    }
    out.Bytes(producer_.data(), producer_.size());
}

}  // namespace Orvane::Muxora
