// What could not be cheaper: each row does no more than a family of formats has to do with the bytes, on the same
// streams, and against the same memcpy. Where a format stands above its wanted figure, its floor tells how much of that
// the work itself takes.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "codec/fragments.h"
#include "codec/kernels/start_code_kernels.h"
#include "codec/kernels/target.h"
#include "codec/piece_copy.h"
#include "measure.h"

#if defined(MUXORA_X86_KERNELS)
#include <immintrin.h>
#endif

namespace bench {
namespace {

using namespace Orvane::Muxora;

constexpr Codecs kH264Aac{MX_VIDEO_H264, MX_AUDIO_AAC};
constexpr uint32_t kArea = 0x300000;

// RTP: 18 bytes of length, header and FU header, and 1382 of payload.
constexpr uint32_t kRtpHead = 18;
constexpr uint32_t kRtpPayload = 1382;

// The cuts of RTP and no more: nothing is looked for, no unit, no clock, no list of packets, no call for each.
uint8_t* RtpCuts(uint8_t* out, const uint8_t* from, uint32_t size) {
    static const uint8_t kHead[kRtpHead] = {0x05, 0x76, 0x80, 0x60};
    for (uint32_t at = 0; at < size; at += kRtpPayload) {
        const uint32_t count = std::min(size - at, kRtpPayload);
        std::memcpy(out, kHead, kRtpHead);
        CopyPiece(out + kRtpHead, from + at, count);
        out += kRtpHead + count;
    }
    return out;
}

// The same with the C library's copy.
uint8_t* RtpCutsByMemcpy(uint8_t* out, const uint8_t* from, uint32_t size) {
    static const uint8_t kHead[kRtpHead] = {0x05, 0x76, 0x80, 0x60};
    for (uint32_t at = 0; at < size; at += kRtpPayload) {
        const uint32_t count = std::min(size - at, kRtpPayload);
        std::memcpy(out, kHead, kRtpHead);
        std::memcpy(out + kRtpHead, from + at, count);
        out += kRtpHead + count;
    }
    return out;
}

// The cuts along with the search for start codes.
uint8_t* RtpSearched(uint8_t* out, const uint8_t* from, uint32_t size) {
    static const uint8_t kHead[kFragmentHead] = {0x05, 0x76, 0x80, 0x60};
    FragmentRun run{};
    run.out = out;
    run.from = from;
    run.end = from + size;
    run.payload = kRtpPayload;
    run.count = (size - 1) / kRtpPayload;
    run.head = kHead;
    run.head_length = kRtpHead;
    run.sequence_at = 4;
    const uint32_t done = CutFragments(run);
    const uint32_t rest = done * kRtpPayload;
    return RtpCuts(out + done * (kRtpHead + kRtpPayload), from + rest, size - rest);
}

// One copy with the search in it: what MP4, FLV and Matroska have to do.
uint8_t* Searched(uint8_t* out, const uint8_t* from, uint32_t size) {
    constexpr int kShortCode = 3;
    const Kernels::StartCodeKernel& kernel = Kernels::start_code_choice.Get();
    const uint8_t* const end = from + size;
    while (from != end) {
        const uint8_t* const hit = kernel.copy(out, from, end);
        out += hit - from;
        from = hit;
        if (hit == end) break;
        std::memcpy(out, hit, kShortCode);
        out += kShortCode;
        from += kShortCode;
    }
    return out;
}

#if defined(MUXORA_X86_KERNELS)
// Stores past the caches, with the fence that makes them seen by others.
uint8_t* NonTemporal(uint8_t* out, const uint8_t* from, uint32_t size) {
    constexpr uint32_t kStep = 16;
    const auto ahead = static_cast<uint32_t>(-reinterpret_cast<uintptr_t>(out) % kStep);
    uint32_t at = std::min(ahead, size);
    std::memcpy(out, from, at);
    for (; at + kStep <= size; at += kStep) {
        _mm_stream_si128(reinterpret_cast<__m128i*>(out + at),
                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + at)));
    }
    std::memcpy(out + at, from + at, size - at);
    _mm_sfence();
    return out + size;
}
#endif

using CopyFrame = uint8_t* (*)(uint8_t* out, const uint8_t* from, uint32_t size);

// Each frame to the beginning of one area, as memcpy has it, or one behind the other for as long as a GOP is: what a
// format needs that knows its head when the GOP is complete.
template <CopyFrame kCopy, bool kGather>
void BenchFloor(benchmark::State& state, const WorkloadShape& shape) {
    const Workload& workload = StreamOf(shape, kH264Aac);
    const uint32_t room = 2 * workload.largest() + kArea;
    const uint64_t gathered = 2 * uint64_t{shape.key_frame_size} + 30 * uint64_t{shape.other_frame_size};
    std::vector<uint8_t> area(room + (kGather ? gathered : 0));
    Measure(state, workload, [&](uint32_t pass) {
        uint8_t* out = area.data();
        for (const auto& frame : workload.frames()) {
            const MXFrameInfo info = workload.Next(frame, pass);
            const bool begins = !kGather || (info.frame_type == MX_FRAME_VIDEO && info.frame_sub_type == MX_SUB_I);
            if (begins) out = area.data();
            out = kCopy(out, static_cast<const uint8_t*>(info.frame_pointer), info.frame_size);
            benchmark::DoNotOptimize(out);
            benchmark::ClobberMemory();
        }
    });
}

uint8_t* Plain(uint8_t* out, const uint8_t* from, uint32_t size) {
    std::memcpy(out, from, size);
    return out + size;
}

template <CopyFrame kCopy, bool kGather = false>
void Add(const WorkloadShape* shape, const char* name) {
    AddRow(*shape, std::string("floor_") + name,
           [=](benchmark::State& state) { BenchFloor<kCopy, kGather>(state, *shape); });
}

const bool kRegistered = [] {
    for (const WorkloadShape* shape : {&kFullHd, &kSmall, &kLarge, &kCold}) {
        Add<Searched>(shape, "copy_and_search");
        Add<RtpCuts>(shape, "rtp_cuts");
        Add<RtpCutsByMemcpy>(shape, "rtp_cuts_by_memcpy");
        Add<RtpSearched>(shape, "rtp_cuts_and_search");
        Add<Plain, true>(shape, "gathered_gop");
        Add<Searched, true>(shape, "copy_and_search_gathered");
#if defined(MUXORA_X86_KERNELS)
        Add<NonTemporal>(shape, "non_temporal");
        Add<NonTemporal, true>(shape, "non_temporal_gathered");
#endif
    }
    return true;
}();

}  // namespace
}  // namespace bench
