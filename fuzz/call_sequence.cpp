// Turns its input into a sequence of calls on a handle: create, parameters, header, frames with all fields, backup and
// tail, in any order. The build chooses the formats (FUZZ_FORMATS); a new format of a family joins its list here.
//
// Beside what the sanitizers see, it holds the library to this: the same calls with the frames in other places of
// memory, by other kernels, give the same bytes; a snapshot of an MP4 or MOV is whole whenever it is taken; a reserved
// gap and 64-bit positions change nothing of what a reader gets; and a handle stays sound when memory runs out, when
// its callback throws, and when that comes back to it.
//
// The second byte of an input says what kind of run it is. Most are small and fast.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "MuxoraExt.h"
#include "core/clock.h"
#include "harness/file.h"
#include "harness/frames.h"
#include "harness/input.h"
#include "harness/kernels.h"
#include "harness/pool.h"
#include "support/allocation_counter.h"
#include "support/iso_file.h"

namespace {

using fuzz::Input;
using fuzz::Pool;
using fuzz::Require;

#define FUZZ_OVX MX_FORMAT_OVX, MX_FORMAT_OVX_ALT
#define FUZZ_ISO MX_FORMAT_MP4, MX_FORMAT_MOV, MX_FORMAT_MP4_NOSEEK, MX_FORMAT_MP4_64, MX_FORMAT_MOV_64
#define FUZZ_AVI MX_FORMAT_AVI
#define FUZZ_ASF MX_FORMAT_ASF, MX_FORMAT_ASF_STREAM
#define FUZZ_FLV MX_FORMAT_FLV, MX_FORMAT_FLV_STREAM
#define FUZZ_WAV MX_FORMAT_WAV
#define FUZZ_MKV MX_FORMAT_MKV
#define FUZZ_PS MX_FORMAT_PS, MX_FORMAT_PS_OV, MX_FORMAT_PS_GAYS, MX_FORMAT_PS_GD
#define FUZZ_TS MX_FORMAT_TS
#define FUZZ_RTP MX_FORMAT_RTP
#define FUZZ_XFLV MX_FORMAT_XFLV
#define FUZZ_XMKV MX_FORMAT_XMKV
#define FUZZ_XTS MX_FORMAT_XTS
#define FUZZ_EXACT_MP4 MX_FORMAT_FMP4, MX_FORMAT_HMP4

constexpr uint32_t kFormats[] = {FUZZ_FORMATS};

enum class Kind {
    kPlain,
    kSnapshotsRead = 8,  // the boxes of each are followed
    kComesBack = 9,      // the callback calls its own handle
    kThrows = 10,        // the callback throws
    kNoMemory = 11,      // an allocation of a frame fails
    kNoWorkBuffer = 12,  // one of the caller's does
    kOtherForms = 13,    // MP4 and MOV: with a gap, and with 64-bit positions; not in short inputs
    kOtherBuffers = 14,  // the same once more
    kLarge = 15,         // frames of megabytes; in long inputs
};

// What takes much longer than all else needs an input longer than those that scripts/fuzz.sh tries most: the comparison
// of forms ten times as long, large frames a hundred times. Snapshots take as long as twenty frames.
constexpr size_t kShortInput = 1024;
constexpr size_t kLongInput = 4096;
constexpr int kLargeFrames = 4;
constexpr int kSnapshots = 4;

// One way through an input.
struct Pass {
    Kind kind = Kind::kPlain;
    MXHandle handle = nullptr;
    uint32_t blocks_since_shortening = 0;
    int large_frames_left = 0;
    int snapshots_left = kSnapshots;
    size_t offset = 0;  // of each frame in its block of memory
    uint64_t hash = 0xCBF29CE484222325;
    int64_t clock = 0;
};

// FNV-1a, of one byte in `step`.
uint64_t Hash(uint64_t hash, const void* data, size_t count, size_t step = 1) {
    const auto* const bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < count; i += step)
        hash = (hash ^ bytes[i]) * 0x100000001B3;
    return hash;
}

int32_t TakeBlock(const MXOutputBlock* block, void* user) {
    auto& pass = *static_cast<Pass*>(user);
    const auto* const bytes = static_cast<const uint8_t*>(block->data);
    // Every byte that goes out must be there to be read, the last one above all.
    pass.hash = Hash(pass.hash, bytes, block->length, 61);
    if (block->length != 0) pass.hash = Hash(pass.hash, bytes + block->length - 1, 1);
    pass.hash = Hash(pass.hash, &block->offset, sizeof block->offset);
    if (pass.kind == Kind::kOtherBuffers) {
        pass.hash ^= std::hash<std::string_view>()({static_cast<const char*>(block->data), block->length});
    }
    // Now and then the sink takes less.
    const uint32_t number = ++pass.blocks_since_shortening;
    if (number % 13 == 0) const_cast<MXOutputBlock*>(block)->length /= 2;
    if (pass.kind == Kind::kThrows && number % 5 == 0) throw number;
    if (pass.kind == Kind::kComesBack && pass.handle != nullptr) {
        Require(MX_CreateTailer(pass.handle, nullptr) == MX_FAILED);
        Require(MX_DestroyHandle(pass.handle) == MX_FAILED);
        MXOutputBlock snapshot{};
        MX_GetBackup(pass.handle, &snapshot);
    }
    return 0;
}

void SetRtp(void* handle, Input& in) {
    const std::vector<uint8_t> extension = in.Bytes(in.U8());
    const std::vector<uint8_t> custom = in.Bytes(in.U8());
    MXRtpParam param{};
    param.size = sizeof param;
    param.max_rtp_packet_length = in.Number();
    param.rtp_sequence_number = in.U32();
    param.rtp_timestamp = in.U32();
    param.rtp_audio_sample = in.Number();
    param.rtp_payload_type = in.U8();
    param.rtp_extension_data = extension.data();
    param.rtp_extension_data_length = static_cast<uint32_t>(extension.size());
    param.rtp_custom_data = custom.data();
    param.rtp_custom_data_length = static_cast<uint32_t>(custom.size());
    param.rtp_packet_output_all_flag = in.U8() & 1;
    param.rtp_audio_custom_data = custom.data();
    param.rtp_audio_custom_data_length = static_cast<uint8_t>(custom.size());
    MX_SetParam(handle, in.U8() & 1, &param, sizeof param);
    uint32_t size = sizeof param;
    MX_GetParam(handle, MX_PARAM_RTP, &param, &size);
}

void SetFragments(void* handle, Input& in) {
    MXFragmentParam param{};
    param.size = in.U8() == 255 ? in.U32() : static_cast<uint32_t>(sizeof param);
    param.mode = in.U8() % 4;
    param.duration_ms = in.Number();
    param.tracks = in.U8() % 4;
    param.boxes = in.U8();
    param.wait_ms = in.Number();
    MXSetFragmentParam(handle, &param);
    MXTimeRepairs repairs{};
    MXGetTimeRepairs(handle, &repairs);
}

void SetHeader(void* handle, MXHeaderInfo& info, Input& in) {
    const uint8_t kind = in.U8();
    info.video_present = kind & 1;
    info.video_encode_type = in.Choose(fuzz::kVideoCodecs);
    info.frame_rate = static_cast<int32_t>(in.Number());
    info.audio_present = kind & 2;
    info.audio_encode_type = in.Choose(fuzz::kAudioCodecs);
    info.channels = in.Number();
    info.bits_per_sample = in.Number();
    info.samples_per_sec = in.Choose(fuzz::kRates);
    info.reserved_gap = in.U16();
    info.start_time_ms = kind & 4 ? MX_NO_START_TIME : in.Number();
    info.self_timed = kind & 8;
    info.resync_period = in.U8();
    MX_CreateHeader(handle, kind & 16 ? nullptr : &info);
}

void GiveFrame(void* handle, uint32_t format, Pass& pass, Input& in) {
    const size_t spare = format == MX_FORMAT_RTP ? 1 : 0;
    fuzz::Frame frame(in, pass.large_frames_left-- > 0, {pass.offset, spare},
                      format >= MX_FORMAT_FMP4 ? &pass.clock : nullptr);
    std::optional<test::FailingAllocations> failing;
    if (pass.kind == Kind::kNoMemory) {
        const uint8_t successes = in.U8();
        failing.emplace(successes % 16, 1 + successes / 16);
    }
    MX_InputFrame(handle, frame.Record());
}

// A configuration of MPEG-4 Visual that takes a second byte of its descriptor's length: its esds is larger than it
// says, as a message tells, and boxes are no measure behind it. ISO/IEC 14496-1 8.3.3
bool HasOutgrownEsds(const std::vector<uint8_t>& bytes) {
    constexpr uint8_t kHead[] = {'e', 's', 'd', 's', 0, 0, 0, 0, 3, 0x80, 0x80, 0x80};
    for (auto at = bytes.begin();; ++at) {
        at = std::search(at, bytes.end(), std::begin(kHead), std::end(kHead));
        if (bytes.end() - at <= std::ssize(kHead)) return false;
        if (at[std::ssize(kHead)] >= 0x80) return true;
    }
}

// A snapshot: boxes within boxes, each ending with its parent.
void TakeBackup(void* handle, uint32_t format, Pass& pass) {
    if (pass.snapshots_left-- <= 0) return;
    MXOutputBlock block{};
    const uint32_t size = MX_GetBackup(handle, &block);
    if (block.data == nullptr || size != block.length) return;
    const auto* const bytes = static_cast<const uint8_t*>(block.data);
    pass.hash = Hash(pass.hash, bytes, size);
    if (pass.kind != Kind::kSnapshotsRead || format >= MX_FORMAT_FMP4) return;
    std::vector<uint8_t> snapshot(bytes, bytes + size);
    if (!HasOutgrownEsds(snapshot)) test::IsoFile(std::move(snapshot));
}

// What a caller gets wrong is refused; RTP's parameters are nothing to other formats, right or wrong.
void CallWrongly(void* handle, uint32_t format) {
    Require(MX_CreateHeader(nullptr, nullptr) == MX_NULL_HANDLE && MX_DestroyHandle(nullptr) == MX_NULL_HANDLE);
    MXOutputBlock block{};
    Require(MX_GetBackup(nullptr, &block) == MX_NULL_HANDLE && MX_GetBackup(handle, nullptr) == 0);
    uint32_t count = 0;
    const void* table = nullptr;
    Require(MX_GetPacketCapacity(handle, MX_CAPACITY_VIDEO, nullptr, &count) != MX_OK);
    Require(MX_GetPacketCapacity(handle, MX_CAPACITY_VIDEO, &table, nullptr) != MX_OK);
    MXRtpParam rtp{};
    uint32_t size = 0;
    Require(MX_SetParam(handle, MX_PARAM_RTP, nullptr, sizeof rtp) == MX_FAILED);
    Require(MX_GetParam(handle, MX_PARAM_RTP, nullptr, &size) == MX_FAILED);
    Require(MX_GetParam(handle, MX_PARAM_RTP, &rtp, nullptr) == MX_FAILED);
    const uint32_t too_small = format == MX_FORMAT_RTP ? MX_FAILED : MX_OK;
    Require(MX_SetParam(handle, MX_PARAM_RTP, &rtp, 8) == too_small &&
            MX_GetParam(handle, MX_PARAM_RTP, &rtp, &size) == too_small);
    if (format < MX_FORMAT_FMP4) return;
    Require(MX_SetParam(handle, MX_PARAM_FRAGMENT, &rtp, 8) == MX_FAILED);
    Require(MX_GetParam(handle, MX_PARAM_TIME_REPAIRS, &rtp, &size) == MX_FAILED);
}

void Run(Input in, uint32_t format, Pass& pass) {
    pass.blocks_since_shortening = in.U8();
    std::srand(1);  // SSRCs
    MXCreateParam param{};
    param.user = &pass;
    param.output = TakeBlock;
    Pool::Use(param);
    void* const handle = MX_CreateHandle(format, &param);
    Require(handle != nullptr);
    pass.handle = handle;

    if (format >= MX_FORMAT_FMP4) SetFragments(handle, in);
    MXHeaderInfo info{};
    if (in.U8() < 230) SetHeader(handle, info, in);
    while (!in.Empty()) {
        const uint8_t call = in.U8();
        if (call < 200) {
            GiveFrame(handle, format, pass, in);
        } else if (call < 212) {
            TakeBackup(handle, format, pass);
        } else if (call < 224) {
            SetRtp(handle, in);
        } else if (call < 234) {
            const std::vector<uint8_t> key = in.Bytes(in.U8() % 40);
            MX_SetEncryptType(handle, in.U8() % 4 == 3, key.data(), static_cast<uint32_t>(key.size()));
        } else if (call < 244) {
            const void* table = nullptr;
            uint32_t count = 0;
            MX_GetPacketCapacity(handle, in.U8() % 3, &table, &count);
        } else if (call < 250) {
            MX_CreateTailer(handle, nullptr);
        } else if (call < 255) {
            SetHeader(handle, info, in);
        } else {
            CallWrongly(handle, format);
        }
    }
    MX_CreateTailer(handle, nullptr);
    pass.handle = nullptr;
    Require(MX_DestroyHandle(handle) == MX_OK);
}

// A recording as it should be made: head, frames, tail; every block is taken.
struct Recording {
    Recording(Input in, uint32_t format, uint32_t gap) {
        MXCreateParam param{};
        param.user = &file;
        param.output = fuzz::File::Take;
        Pool::Use(param);
        void* const handle = MX_CreateHandle(format, &param);
        Require(handle != nullptr);
        MXHeaderInfo info{};
        info.reserved_gap = gap;
        finished = MX_CreateHeader(handle, &info) == MX_OK;
        while (!in.Empty()) {
            fuzz::Frame frame(in, false, {}, nullptr);
            results.push_back(MX_InputFrame(handle, frame.Record()));
        }
        finished = MX_CreateTailer(handle, nullptr) == MX_OK && finished && !file.overflown;
        Require(MX_DestroyHandle(handle) == MX_OK);
    }

    fuzz::File file;
    std::vector<uint32_t> results;
    bool finished = false;
};

// What a reader gets of two recordings of the same frames must be the same.
void RequireSameMedia(const Recording& one, const Recording& other) {
    Require(one.results == other.results && one.finished == other.finished);
    if (!one.finished || HasOutgrownEsds(one.file.bytes)) return;
    const test::IsoFile first(one.file.bytes);
    const test::IsoFile second(other.file.bytes);
    // An index that fills its gap to the byte lies inside the box that is the gap.
    if (!first.Has("moov") || !second.Has("moov")) return;
    Require(first.TrackCount() == second.TrackCount());
    for (size_t track = 0; track < first.TrackCount(); ++track) {
        Require(first.Samples(track) == second.Samples(track));
        Require(first.Runs(track) == second.Runs(track));
    }
}

void CompareForms(Input in, uint32_t format) {
    const uint32_t wide = format == MX_FORMAT_MP4 ? MX_FORMAT_MP4_64 : format == MX_FORMAT_MOV ? MX_FORMAT_MOV_64 : 0;
    const uint32_t gap = in.U16();
    const Recording plain(in, format, 0);
    if (format != MX_FORMAT_MP4_NOSEEK) RequireSameMedia(plain, Recording(in, format, gap));
    if (wide != 0) RequireSameMedia(plain, Recording(in, wide, 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint32_t format = kFormats[data[0] % std::size(kFormats)];
    const uint8_t variant = data[1] / 16;
    const size_t kernels = variant / 4;
    fuzz::UseKernels(kernels);
    Pass pass;
    pass.kind = static_cast<Kind>(data[1] % 16);
    // The heads hold the time of day.
    const Orvane::Muxora::ScopedClock clock(1700000000);
    const Input in(data + 2, size - 2);
    if (pass.kind == Kind::kLarge && size > kLongInput) pass.large_frames_left = kLargeFrames;
    const bool iso =
        format == MX_FORMAT_MP4 || format == MX_FORMAT_MOV || format == MX_FORMAT_MP4_64 || format == MX_FORMAT_MOV_64;
    if (pass.kind == Kind::kOtherForms && iso && size > kShortInput) {
        CompareForms(in, format);
        return 0;
    }
    if (pass.kind == Kind::kNoWorkBuffer) Pool::FailAt(1 + variant % 2);
    Run(in, format, pass);
    Pool::FailAt(0);
    if (pass.kind != Kind::kOtherBuffers) return 0;

    Pass again;
    again.kind = pass.kind;
    again.offset = 1 + variant;
    Pool::Fill(0xE7);
    fuzz::UseKernels(3 - kernels);
    Run(in, format, again);
    Require(again.hash == pass.hash);
    return 0;
}
