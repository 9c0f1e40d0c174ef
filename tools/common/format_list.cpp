#include "common/format_list.h"

#include <algorithm>
#include <cctype>
#include <memory>

namespace Orvane::Muxora::Tools {

namespace {

constexpr bool kFile = false;
constexpr bool kStream = true;
constexpr bool kSeeks = true;
constexpr bool kForward = false;

// By number, so that a format stands where a reader looks for it.
constexpr Format kFormats[] = {
    {MX_FORMAT_MP4, "mp4", "", kFile, kSeeks, "MP4, classic"},
    {MX_FORMAT_ASF, "asf", "asf wmv wma", kFile, kSeeks, "ASF with index"},
    {MX_FORMAT_AVI, "avi", "avi", kFile, kSeeks, "AVI, OpenDML past 1 GiB"},
    {MX_FORMAT_OVX, "ovx", "ovx", kStream, kForward, "OVX, the native format"},
    {MX_FORMAT_FLV, "flv", "", kFile, kSeeks, "FLV, classic"},
    {MX_FORMAT_ASF_STREAM, "asfstream", "", kStream, kForward, "ASF, forward only"},
    {MX_FORMAT_MOV, "mov", "mov qt", kFile, kSeeks, "QuickTime movie"},
    {MX_FORMAT_3GP, "3gp", "3gp", kFile, kSeeks, "3GP: the bytes of mp4"},
    {MX_FORMAT_FLV_STREAM, "flvstream", "", kStream, kForward, "FLV, forward only"},
    {MX_FORMAT_RTP, "rtp", "rtp", kStream, kForward, "RTP packets, each behind its 16-bit length"},
    {MX_FORMAT_TS, "ts", "", kStream, kForward, "MPEG-2 transport stream, classic"},
    {MX_FORMAT_PS, "ps", "ps mpg mpeg vob", kStream, kForward, "MPEG-2 program stream"},
    {MX_FORMAT_MP4_NOSEEK, "mp4noseek", "", kFile, kForward, "MP4, forward only"},
    {MX_FORMAT_MKV, "mkv", "", kFile, kSeeks, "Matroska, classic"},
    {MX_FORMAT_MP4_64, "mp464", "", kFile, kSeeks, "MP4 with 64-bit offsets"},
    {MX_FORMAT_MOV_64, "mov64", "", kFile, kSeeks, "QuickTime movie with 64-bit offsets"},
    {MX_FORMAT_WAV, "wav", "wav", kFile, kSeeks, "WAV"},
    {MX_FORMAT_PS_OV, "ovps", "", kStream, kForward, "program stream with descriptors"},
    {MX_FORMAT_PS_GAYS, "gaysps", "", kStream, kForward, "program stream, GAYS dialect"},
    {MX_FORMAT_OVX_ALT, "ovxalt", "", kStream, kForward, "OVX under its second number"},
    {MX_FORMAT_PS_GD, "gdps", "", kStream, kForward, "program stream, GD dialect"},
    {MX_FORMAT_FMP4, "fmp4", "m4s cmfv cmfa", kStream, kForward, "fragmented MP4 with exact times"},
    {MX_FORMAT_HMP4, "hmp4", "mp4 m4v m4a", kFile, kSeeks, "MP4 with exact times, plays while it grows"},
    {MX_FORMAT_XMKV, "xmkv", "mkv mka", kFile, kForward, "Matroska with exact times"},
    {MX_FORMAT_XFLV, "xflv", "flv", kFile, kForward, "FLV with exact times"},
    {MX_FORMAT_XTS, "xts", "ts m2ts mts", kStream, kForward, "MPEG-2 transport stream with exact times"},
};

std::string Lower(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

bool HasWord(std::string_view words, std::string_view word) {
    while (!words.empty()) {
        const size_t end = std::min(words.find(' '), words.size());
        if (words.substr(0, end) == word) return true;
        words.remove_prefix(std::min(end + 1, words.size()));
    }
    return false;
}

}  // namespace

bool Format::IsIso() const {
    switch (number) {
        case MX_FORMAT_MP4:
        case MX_FORMAT_MOV:
        case MX_FORMAT_3GP:
        case MX_FORMAT_MP4_NOSEEK:
        case MX_FORMAT_MP4_64:
        case MX_FORMAT_MOV_64:
            return true;
        default:
            return false;
    }
}

std::string_view Format::ExactKin() const {
    switch (number) {
        case MX_FORMAT_FLV:
        case MX_FORMAT_FLV_STREAM:
            return "xflv";
        case MX_FORMAT_TS:
        case MX_FORMAT_PS:
        case MX_FORMAT_PS_OV:
        case MX_FORMAT_PS_GAYS:
        case MX_FORMAT_PS_GD:
            return "xts";
        case MX_FORMAT_MP4_NOSEEK:
            return "fmp4";
        default:
            return IsIso() ? "hmp4" : "xmkv";
    }
}

bool Format::StatesRotation(uint32_t degrees) const {
    const bool mp4 = number == MX_FORMAT_FMP4 || number == MX_FORMAT_HMP4;
    return number == MX_FORMAT_XMKV || (mp4 && degrees % 90 == 0);
}

std::span<const Format> Formats() {
    return kFormats;
}

const Format* FormatByKey(std::string_view key) {
    const std::string wanted = Lower(key);
    const auto* found = std::find_if(std::begin(kFormats), std::end(kFormats),
                                     [&](const Format& format) { return format.key == wanted; });
    return found != std::end(kFormats) ? found : nullptr;
}

const Format* FormatByPath(std::string_view path) {
    const size_t slash = path.rfind('/');
    const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    const size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot + 1 == name.size()) return nullptr;
    const std::string extension = Lower(name.substr(dot + 1));
    for (const Format& format : kFormats) {
        if (HasWord(format.extensions, extension)) return &format;
    }
    return FormatByKey(extension);
}

std::string FormatKeys() {
    std::string keys;
    for (const Format& format : kFormats) {
        if (!keys.empty()) keys += ' ';
        keys += format.key;
    }
    return keys;
}

std::string VideoCodecName(uint32_t codec) {
    switch (codec) {
        case MX_VIDEO_MPEG4:
            return "MPEG-4";
        case MX_VIDEO_H264:
        case MX_VIDEO_H264_ALT:
        case MX_VIDEO_H264_STREAM:
            return "H.264";
        case MX_VIDEO_MJPEG:
            return "MJPEG";
        case MX_VIDEO_MPEG2:
            return "MPEG-2";
        case MX_VIDEO_H265:
            return "H.265";
        default:
            return "video " + std::to_string(codec);
    }
}

std::string AudioCodecName(uint32_t codec) {
    switch (codec) {
        case MX_AUDIO_PCM8:
            return "PCM 8 bit";
        case MX_AUDIO_PCM16:
            return "PCM 16 bit";
        case MX_AUDIO_ALAW:
            return "A-law";
        case MX_AUDIO_MULAW:
        case MX_AUDIO_MULAW_ALT:
            return "mu-law";
        case MX_AUDIO_AAC:
            return "AAC";
        case MX_AUDIO_MPEG:
            return "MPEG audio";
        default:
            return "audio " + std::to_string(codec);
    }
}

std::vector<MXCapacityEntry> Capacity(const Format& format, uint32_t type) {
    const std::unique_ptr<void, decltype(&MX_DestroyHandle)> handle(MX_CreateHandle(format.Maker(), nullptr),
                                                                    MX_DestroyHandle);
    // Some packagers know their codecs only once they are set up.
    MXHeaderInfo info{};
    if (!handle || MX_CreateHeader(handle.get(), &info) != MX_OK) return {};
    const void* table = nullptr;
    uint32_t count = 0;
    if (MX_GetPacketCapacity(handle.get(), type, &table, &count) != MX_OK || table == nullptr) return {};
    const auto* entries = static_cast<const MXCapacityEntry*>(table);
    return {entries, entries + count};
}

std::string CapacityText(const Format& format, uint32_t type) {
    std::vector<std::string> names;
    for (const MXCapacityEntry& entry : Capacity(format, type)) {
        std::string name = type == MX_CAPACITY_VIDEO ? VideoCodecName(entry.codec) : AudioCodecName(entry.codec);
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(std::move(name));
    }
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text.empty() ? "none" : text;
}

}  // namespace Orvane::Muxora::Tools
