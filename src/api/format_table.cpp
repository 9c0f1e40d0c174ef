#include "api/format_table.h"

#include <algorithm>

#include "MuxoraExt.h"
#include "containers/asf_packet.h"
#include "containers/avi_packet.h"
#include "containers/flv_packet.h"
#include "containers/wav_packet.h"
#include "exact/fmp4_packet.h"
#include "exact/hmp4_packet.h"
#include "exact/xflv_packet.h"
#include "exact/xmkv_packet.h"
#include "exact/xts_packet.h"
#include "iso/mp4_packet.h"
#include "mkv/mkv_packet.h"
#include "mpeg2/ps_packet.h"
#include "mpeg2/ts_packet.h"
#include "ovx/ovx_packet.h"
#include "rtp/rtp_packet.h"

namespace Orvane::Muxora {

namespace {

using Maker = std::unique_ptr<CPackage> (*)(uint32_t format, const MXCreateParam* param);

template <typename Packager>
std::unique_ptr<CPackage> Make(uint32_t format, const MXCreateParam* param) {
    return std::make_unique<Packager>(format, param);
}

// A key pair, lower and upper case; nothing between the two is a key.
struct Keys {
    std::string_view lower;
    std::string_view upper;

    bool Match(std::string_view key) const { return !key.empty() && (key == lower || key == upper); }
};

struct Row {
    uint32_t format;
    Maker make;
    bool by_number;    // MX_CreateHandle makes it
    Keys stream_keys;  // CMuxora makes it
    Keys file_keys;    // CFilePackage makes it
};

constexpr Keys kNone{};

constexpr Row kFormats[] = {
    {MX_FORMAT_MP4, Make<CMp4Packet>, true, kNone, {"mp4", "MP4"}},
    {MX_FORMAT_ASF, Make<CAsfPacket>, true, kNone, {"asf", "ASF"}},
    {MX_FORMAT_AVI, Make<CAviPacket>, true, kNone, {"avi", "AVI"}},
    {MX_FORMAT_OVX, Make<COvxPacket>, true, {"ovx", "OVX"}, {"ovx", "OVX"}},
    {MX_FORMAT_FLV, Make<CFlvPacket>, true, kNone, {"flv", "FLV"}},
    {MX_FORMAT_ASF_STREAM, Make<CAsfPacket>, true, {"asf", "ASF"}, kNone},
    {MX_FORMAT_MOV, Make<CMp4Packet>, true, kNone, {"mov", "MOV"}},
    {MX_FORMAT_3GP, Make<CMp4Packet>, false, kNone, {"3gp", "3GP"}},
    {MX_FORMAT_FLV_STREAM, Make<CFlvPacket>, true, {"flv", "FLV"}, kNone},
    {MX_FORMAT_RTP, Make<CRtpPacket>, true, {"rtp", "RTP"}, kNone},
    {MX_FORMAT_TS, Make<CTsPacket>, true, {"ts", "TS"}, kNone},
    {MX_FORMAT_PS, Make<CPsPacket>, true, {"ps", "PS"}, kNone},
    {MX_FORMAT_MP4_NOSEEK, Make<CMp4Packet>, true, kNone, {"mp4noseek", "MP4NOSEEK"}},
    {MX_FORMAT_MKV, Make<CMkvPacket>, true, kNone, {"mkv", "MKV"}},
    {MX_FORMAT_MP4_64, Make<CMp4Packet>, true, kNone, {"mp464", "MP464"}},
    {MX_FORMAT_MOV_64, Make<CMp4Packet>, true, kNone, {"mov64", "MOV64"}},
    {MX_FORMAT_WAV, Make<CWavPacket>, true, kNone, {"wav", "WAV"}},
    {MX_FORMAT_PS_OV, Make<CPsPacket>, true, {"ovps", "OVPS"}, kNone},
    {MX_FORMAT_PS_GAYS, Make<CPsPacket>, true, {"gaysps", "GAYSPS"}, kNone},
    {MX_FORMAT_OVX_ALT, Make<COvxPacket>, true, kNone, kNone},
    {MX_FORMAT_PS_GD, Make<CPsPacket>, true, {"gdps", "GDPS"}, kNone},
    {MX_FORMAT_XMKV, Make<CXmkvPacket>, true, {"xmkv", "XMKV"}, {"xmkv", "XMKV"}},
    {MX_FORMAT_XFLV, Make<CXflvPacket>, true, {"xflv", "XFLV"}, {"xflv", "XFLV"}},
    {MX_FORMAT_FMP4, Make<CFmp4Packet>, true, {"fmp4", "FMP4"}, {"fmp4", "FMP4"}},
    {MX_FORMAT_HMP4, Make<CHmp4Packet>, true, kNone, {"hmp4", "HMP4"}},
    {MX_FORMAT_XTS, Make<CXtsPacket>, true, {"xts", "XTS"}, {"xts", "XTS"}},
};

template <typename Predicate>
std::unique_ptr<CPackage> MakeFirst(Predicate matches, const MXCreateParam* param) {
    for (const Row& row : kFormats) {
        if (matches(row)) return row.make(row.format, param);
    }
    return nullptr;
}

}  // namespace

std::unique_ptr<CPackage> MakePackage(uint32_t format, const MXCreateParam* param) {
    return MakeFirst([=](const Row& row) { return row.by_number && row.format == format; }, param);
}

std::unique_ptr<CPackage> MakeStreamPackage(std::string_view key) {
    return MakeFirst([=](const Row& row) { return row.stream_keys.Match(key); }, nullptr);
}

std::unique_ptr<CPackage> MakeFilePackage(std::string_view key) {
    return MakeFirst([=](const Row& row) { return row.file_keys.Match(key); }, nullptr);
}

bool HasStreamPackage(std::string_view key) {
    return std::ranges::any_of(kFormats, [=](const Row& row) { return row.stream_keys.Match(key); });
}

bool HasFilePackage(std::string_view key) {
    return std::ranges::any_of(kFormats, [=](const Row& row) { return row.file_keys.Match(key); });
}

}  // namespace Orvane::Muxora
