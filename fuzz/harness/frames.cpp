#include "harness/frames.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace fuzz {

namespace {

constexpr size_t kLongest = FrameMemory::kMost - (64u << 10);  // what the fuzzer adds of its own comes on top
constexpr uint32_t kFrameTypes[] = {1, 1, 1, 2, 2, 3, 0};

struct Piece {
    uint8_t length;
    uint8_t bytes[12];
};

// Start codes, and heads that formats look for.
constexpr Piece kPieces[] = {
    {5, {0, 0, 0, 1, 0x65}},                          // H.264 IDR
    {8, {0, 0, 0, 1, 0x67, 0x64, 0, 0x28}},           // SPS
    {6, {0, 0, 0, 1, 0x68, 0xEE}},                    // PPS
    {4, {0, 0, 1, 0x41}},                             // slice, short start code
    {6, {0, 0, 0, 1, 0x40, 1}},                       // H.265 VPS
    {8, {0, 0, 0, 1, 0x42, 1, 1, 1}},                 // SPS
    {6, {0, 0, 0, 1, 0x44, 1}},                       // PPS
    {5, {0, 0, 1, 0xB0, 1}},                          // MPEG-4 sequence
    {4, {0, 0, 1, 0xB6}},                             // VOP
    {4, {0, 0, 1, 0xB3}},                             // MPEG-2 sequence
    {7, {0xFF, 0xF1, 0x4C, 0x80, 0x02, 0x1F, 0xFC}},  // ADTS
    {4, {0xFF, 0xFD, 0x84, 0xC0}},                    // MPEG audio
    {7, {0xFF, 0xD8, 0xFF, 0xDB, 0, 0x43, 0}},        // JPEG, quantisation table
    {8, {0xFF, 0xC0, 0, 0x11, 8, 1, 0x20, 1}},        // its frame header
    {6, {0xFF, 0xDA, 0, 0x0C, 3, 1}},                 // its scan
    {3, {0, 0, 0}},
};

void Append(std::vector<uint8_t>& bytes, Input& in, size_t count) {
    const uint8_t* const first = in.Take(count);
    bytes.insert(bytes.end(), first, first + count);
}

// The fuzzer's own bytes, heads put among them, or a run of one byte. They stand until the next call.
const std::vector<uint8_t>& FrameBytes(Input& in, bool large) {
    static std::vector<uint8_t> bytes;
    bytes.clear();
    for (uint8_t steps = in.U8() % 8; steps != 0; --steps) {
        const uint8_t what = in.U8();
        if (what < 128) {
            const Piece& piece = kPieces[what % std::size(kPieces)];
            bytes.insert(bytes.end(), piece.bytes, piece.bytes + piece.length);
        } else if (what < 240) {
            Append(bytes, in, in.U8());
        } else if (what < 250) {
            Append(bytes, in, in.U16() % 4096);
        } else {
            // Large ones go past the work buffers of 2 and 3 MiB.
            const size_t run = !large ? in.U16() % 2048 : what == 255 ? 0x40000u + in.U16() * 64u : in.U16();
            bytes.insert(bytes.end(), std::min(run, kLongest - std::min(kLongest, bytes.size())), in.U8());
        }
    }
    return bytes;
}

// Mostly in rising order, at any scale; now and then anything.
void GiveTimes(MXFrameInfo& frame, Input& in, int64_t& clock) {
    constexpr uint32_t kScales[] = {90000, 1000, 48000, 44100, 30000, 24000, 1000000, 1, 0};
    clock += in.U8();
    const uint8_t kind = in.U8();
    const int64_t dts = kind < 240 ? clock : static_cast<int64_t>(in.U64());
    const int64_t pts = kind < 240 ? dts + in.U8() : static_cast<int64_t>(in.U64());
    MXSetFrameTimes(&frame, in.Choose(kScales), dts, pts, kind < 250 ? in.U8() : static_cast<int64_t>(in.U64()));
}

}  // namespace

Frame::Frame(Input& in, bool large, Placement placement, int64_t* clock) {
    const std::vector<uint8_t>& bytes = FrameBytes(in, large);
    memory_.emplace(bytes.size() + placement.spare, placement.offset);
    uint8_t* const data = memory_->Data();
    if (!bytes.empty()) std::memcpy(data, bytes.data(), bytes.size());
    if (placement.spare != 0) std::memset(data + bytes.size(), 0xA5, placement.spare);

    record_.size = in.U8() == 255 ? in.U32() : static_cast<uint32_t>(sizeof record_);
    record_.frame_pointer = in.U8() == 255 ? nullptr : data;
    record_.frame_size = static_cast<uint32_t>(bytes.size());
    record_.frame_type = in.Choose(kFrameTypes);
    record_.frame_sub_type = in.Choose(kSubTypes);
    record_.encode_type = record_.frame_type == MX_FRAME_VIDEO ? in.Choose(kVideoCodecs) : in.Choose(kAudioCodecs);
    record_.timestamp = in.Number();
    record_.frame_rate = in.Number();
    record_.samples_per_sec = in.Choose(kRates);
    record_.bits_per_sample = in.Number();
    record_.channels = in.Number();
    const uint8_t extras = in.U8();
    if (extras & 1) {
        record_.utc_time = in.U32();
        record_.width = in.Number();
        record_.height = in.Number();
        record_.deinterlace = in.Number();
        record_.bitrate = in.Number();
    }
    if (extras & 2) {
        record_.encrypt_offset = in.U16();
        record_.encrypt_length = in.Number();
        record_.frame_seq = in.Number();
        record_.ps_clock_rebase = in.U8();
    }
    if (extras & 4) {
        record_.n_slice = in.U8() % 20;
        record_.m_slice = in.U8() % 20;
        record_.has_blocks = in.U8();
        blocks_.resize(size_t{record_.n_slice} * record_.m_slice);
        record_.blocks = blocks_.empty() ? nullptr : blocks_.data();
    }
    if (extras & 8) {
        record_.svc_head_0 = in.U8();
        record_.svc_head_1 = in.U8();
        record_.ma_total_channels = in.U8();
        record_.ma_cur_channel = in.U8();
        record_.rotation_angle = in.Number();
        record_.tp_company_type = in.U16();
        record_.tp_stream_header_len = in.U16();
    }
    if (clock != nullptr && in.U8() < 200) GiveTimes(record_, in, *clock);
    missing_ = in.U8() == 255;
}

}  // namespace fuzz
