// The C interface: each function checks its handle and arguments and makes one or two calls of the packager. Nothing
// that is thrown below leaves it.
#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

#include "MuxoraAPI.h"
#include "api/format_table.h"
#include "build_stamp.h"
#include "core/exact_params.h"
#include "core/package.h"
#include "core/rtp_params.h"

using Orvane::Muxora::CPackage;
using Orvane::Muxora::IExactParams;
using Orvane::Muxora::IRtpParams;
using Orvane::Muxora::MakePackage;
using Orvane::Muxora::PackageCall;

#define MX_AT(record, field, place) static_assert(offsetof(record, field) == (place))

static_assert(sizeof(MXCreateParam) == 36);
MX_AT(MXCreateParam, user, 4);
MX_AT(MXCreateParam, alloc, 12);
MX_AT(MXCreateParam, free, 20);
MX_AT(MXCreateParam, output, 28);

static_assert(sizeof(MXOutputBlock) == 32);
MX_AT(MXOutputBlock, data, 4);
MX_AT(MXOutputBlock, length, 12);
MX_AT(MXOutputBlock, seek_type, 16);
MX_AT(MXOutputBlock, offset32, 20);
MX_AT(MXOutputBlock, offset, 24);

static_assert(sizeof(MXBlockInfo) == 16);
static_assert(sizeof(MXCapacityEntry) == 32);

static_assert(sizeof(MXFrameInfo) == 264);
MX_AT(MXFrameInfo, frame_pointer, 4);
MX_AT(MXFrameInfo, frame_size, 12);
MX_AT(MXFrameInfo, frame_type, 16);
MX_AT(MXFrameInfo, frame_sub_type, 20);
MX_AT(MXFrameInfo, encode_type, 24);
MX_AT(MXFrameInfo, timestamp, 28);
MX_AT(MXFrameInfo, utc_time, 32);
MX_AT(MXFrameInfo, width, 36);
MX_AT(MXFrameInfo, height, 40);
MX_AT(MXFrameInfo, frame_rate, 44);
MX_AT(MXFrameInfo, deinterlace, 48);
MX_AT(MXFrameInfo, samples_per_sec, 52);
MX_AT(MXFrameInfo, bits_per_sample, 56);
MX_AT(MXFrameInfo, channels, 60);
MX_AT(MXFrameInfo, bitrate, 64);
MX_AT(MXFrameInfo, encrypt_offset, 70);
MX_AT(MXFrameInfo, encrypt_length, 72);
MX_AT(MXFrameInfo, frame_seq, 76);
MX_AT(MXFrameInfo, ps_clock_rebase, 80);
MX_AT(MXFrameInfo, svc_head_0, 232);
MX_AT(MXFrameInfo, svc_head_1, 233);
MX_AT(MXFrameInfo, ma_total_channels, 234);
MX_AT(MXFrameInfo, ma_cur_channel, 235);
MX_AT(MXFrameInfo, has_blocks, 236);
MX_AT(MXFrameInfo, n_slice, 240);
MX_AT(MXFrameInfo, m_slice, 244);
MX_AT(MXFrameInfo, blocks, 248);
MX_AT(MXFrameInfo, rotation_angle, 256);
MX_AT(MXFrameInfo, tp_company_type, 260);
MX_AT(MXFrameInfo, tp_stream_header_len, 262);

static_assert(sizeof(MXHeaderInfo) == 276);
MX_AT(MXHeaderInfo, video_present, 4);
MX_AT(MXHeaderInfo, video_encode_type, 8);
MX_AT(MXHeaderInfo, width, 12);
MX_AT(MXHeaderInfo, height, 16);
MX_AT(MXHeaderInfo, frame_rate, 20);
MX_AT(MXHeaderInfo, audio_present, 132);
MX_AT(MXHeaderInfo, audio_encode_type, 136);
MX_AT(MXHeaderInfo, channels, 140);
MX_AT(MXHeaderInfo, bits_per_sample, 144);
MX_AT(MXHeaderInfo, samples_per_sec, 148);
MX_AT(MXHeaderInfo, reserved_gap, 260);
MX_AT(MXHeaderInfo, start_time_ms, 264);
MX_AT(MXHeaderInfo, self_timed, 268);
MX_AT(MXHeaderInfo, resync_period, 272);

static_assert(sizeof(MXRtpParam) == 96);
MX_AT(MXRtpParam, max_rtp_packet_length, 4);
MX_AT(MXRtpParam, rtp_sequence_number, 8);
MX_AT(MXRtpParam, rtp_timestamp, 12);
MX_AT(MXRtpParam, rtp_ssrc, 16);
MX_AT(MXRtpParam, rtp_audio_sample, 20);
MX_AT(MXRtpParam, rtp_payload_type, 24);
MX_AT(MXRtpParam, rtp_extension_data, 32);
MX_AT(MXRtpParam, rtp_extension_data_length, 40);
MX_AT(MXRtpParam, rtp_custom_data, 48);
MX_AT(MXRtpParam, rtp_custom_data_length, 56);
MX_AT(MXRtpParam, rtp_packet_output_all_flag, 60);
MX_AT(MXRtpParam, rtp_audio_payload_type, 64);
MX_AT(MXRtpParam, rtp_audio_custom_data, 72);
MX_AT(MXRtpParam, rtp_audio_custom_data_length, 80);
MX_AT(MXRtpParam, rtp_audio_sequence_number, 84);
MX_AT(MXRtpParam, rtp_audio_timestamp, 88);
MX_AT(MXRtpParam, rtp_audio_ssrc, 92);

#undef MX_AT

namespace {

// Runs a call of the packager behind a handle, unless the handle is inside a call already. Memory that runs out becomes
// a result.
template <typename Call>
uint32_t WithPackage(MXHandle handle, Call call) noexcept {
    if (handle == nullptr) return MX_NULL_HANDLE;
    auto& package = *static_cast<CPackage*>(handle);
    const PackageCall inside(package);
    if (!inside) return MX_FAILED;
    uint32_t result = MX_NO_RESOURCES;
    try {
        result = call(package);
    } catch (...) {
        result = MX_NO_RESOURCES;
    }
    const bool threw = package.TakeOutputThrew();
    return result == MX_OK && threw ? uint32_t{MX_FAILED} : result;
}

// Has the first kilobyte of a frame on its way before the packager looks at its first bytes: a recorder's frames lie
// cold in memory.
void Announce([[maybe_unused]] const MXFrameInfo* frame) {
#if defined(__GNUC__)
    constexpr uint32_t kLine = 64;
    constexpr uint32_t kAhead = 1024;
    if (frame == nullptr || frame->frame_pointer == nullptr) return;
    const char* const bytes = static_cast<const char*>(frame->frame_pointer);
    const auto fetch = [bytes](uint32_t count) {
        for (uint32_t at = 0; at < count; at += kLine)
            __builtin_prefetch(bytes + at);
    };
    frame->frame_size < kAhead ? fetch(frame->frame_size) : fetch(kAhead);
#endif
}

// The RTP parameters of a packager; null for other formats and other types of parameter.
IRtpParams* RtpParams(CPackage& package, uint32_t type) {
    if (type != MX_PARAM_RTP || package.format() != MX_FORMAT_RTP) return nullptr;
    return dynamic_cast<IRtpParams*>(&package);
}

// The parameters of a format with exact times; null for other formats and other types of parameter.
IExactParams* ExactParams(CPackage& package, uint32_t type, uint32_t wanted) {
    if (type != wanted || package.format() < MX_FORMAT_FMP4) return nullptr;
    return dynamic_cast<IExactParams*>(&package);
}

}  // namespace

extern "C" {

MXHandle MX_CreateHandle(uint32_t format, const MXCreateParam* param) noexcept {
    try {
        return MakePackage(format, param).release();
    } catch (...) {
        return nullptr;
    }
}

uint32_t MX_DestroyHandle(MXHandle handle) noexcept {
    if (handle == nullptr) return MX_NULL_HANDLE;
    auto* const package = static_cast<CPackage*>(handle);
    if (!PackageCall(*package)) return MX_FAILED;
    const std::unique_ptr<CPackage> owner(package);
    return MX_OK;
}

uint32_t MX_CreateHeader(MXHandle handle, MXHeaderInfo* info) noexcept {
    return WithPackage(handle, [=](CPackage& package) -> uint32_t {
        if (package.init() != MX_OK) return MX_FAILED;
        if (package.createHeader(info, 0) != MX_OK) return MX_FAILED;
        return MX_OK;
    });
}

uint32_t MX_InputFrame(MXHandle handle, MXFrameInfo* frame) noexcept {
    return WithPackage(handle, [=](CPackage& package) -> uint32_t {
        if (frame == nullptr || frame->size != sizeof(MXFrameInfo)) return MX_FAILED;
        Announce(frame);
        return package.inputFrame(frame, 0);
    });
}

uint32_t MX_CreateTailer(MXHandle handle, void* /*unused*/) noexcept {
    return WithPackage(handle, [](CPackage& package) -> uint32_t {
        if (package.createTailer(nullptr, 0) != MX_OK) return MX_FAILED;
        if (package.uninit() != MX_OK) return MX_FAILED;
        return MX_OK;
    });
}

uint32_t MX_SetParam(MXHandle handle, uint32_t type, const MXRtpParam* param, uint32_t size) noexcept {
    return WithPackage(handle, [=](CPackage& package) -> uint32_t {
        if (param == nullptr) return MX_FAILED;
        if (IExactParams* const exact = ExactParams(package, type, MX_PARAM_FRAGMENT)) {
            MXFragmentParam fragment;
            if (size < sizeof fragment) return MX_FAILED;
            std::memcpy(&fragment, param, sizeof fragment);
            if (fragment.size != sizeof fragment) return MX_FAILED;
            return exact->SetFragmentParam(fragment);
        }
        IRtpParams* const rtp = RtpParams(package, type);
        if (rtp == nullptr) return MX_OK;
        if (size < sizeof(MXRtpParam)) return MX_FAILED;
        rtp->SetRtpParam(*param);
        return MX_OK;
    });
}

uint32_t MX_GetParam(MXHandle handle, uint32_t type, MXRtpParam* param, uint32_t* size) noexcept {
    return WithPackage(handle, [=](CPackage& package) -> uint32_t {
        if (param == nullptr || size == nullptr) return MX_FAILED;
        if (const IExactParams* const exact = ExactParams(package, type, MX_PARAM_TIME_REPAIRS)) {
            MXTimeRepairs repairs;
            if (*size < sizeof repairs) return MX_FAILED;
            exact->GetTimeRepairs(repairs);
            std::memcpy(param, &repairs, sizeof repairs);
            *size = sizeof repairs;
            return MX_OK;
        }
        const IRtpParams* const rtp = RtpParams(package, type);
        if (rtp == nullptr) {
            *size = 0;
            return MX_OK;
        }
        if (*size < sizeof(MXRtpParam)) return MX_FAILED;
        rtp->GetRtpParam(*param);
        *size = sizeof(MXRtpParam);
        return MX_OK;
    });
}

uint32_t MX_SetEncryptType(MXHandle handle, uint32_t type, const void* key, uint32_t key_length) noexcept {
    return WithPackage(handle, [=](CPackage& package) { return package.setEncryptType(type, key, key_length); });
}

uint32_t MX_GetPacketCapacity(MXHandle handle, uint32_t capacity_type, const void** table, uint32_t* count) noexcept {
    return WithPackage(handle,
                       [=](CPackage& package) { return package.getEncodeCapacity(capacity_type, table, count); });
}

const char* MX_GetVersion() noexcept {
    return "[version] KMPT " MUXORA_BUILD_DATE;
}

uint32_t MX_GetBackup(MXHandle handle, MXOutputBlock* block) noexcept {
    if (handle == nullptr) return MX_NULL_HANDLE;
    // May run beside a call on another thread, and inside one: it changes nothing that a call relies on.
    if (block == nullptr) return 0;
    try {
        return static_cast<CPackage*>(handle)->getBackup(block);
    } catch (...) {
        return 0;
    }
}

}  // extern "C"
