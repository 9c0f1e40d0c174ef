#include "common/sdp.h"

#include <cstdio>
#include <span>
#include <vector>

#include "media_input/nal_units.h"

namespace Orvane::Muxora::Tools {

namespace {

using Bytes = std::span<const uint8_t>;

Bytes BytesOf(const MediaFrame& frame) {
    return {frame.bytes.data(), frame.Size()};
}

std::string Hex(Bytes bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::string H264Parameters(const MediaFrame& frame) {
    std::string sets;
    std::string profile;
    for (const NalUnit& place : AnnexBUnits(BytesOf(frame))) {
        const Bytes unit = place.Body(BytesOf(frame));
        const int type = unit[0] & 0x1F;
        if (type != 7 && type != 8) continue;
        if (type == 7 && unit.size() >= 4 && profile.empty()) profile = Hex(unit.subspan(1, 3));
        sets += (sets.empty() ? "" : ",") + Base64(unit.data(), unit.size());
    }
    return "packetization-mode=1" + (profile.empty() ? "" : ";profile-level-id=" + profile) +
           (sets.empty() ? "" : ";sprop-parameter-sets=" + sets);
}

std::string H265Parameters(const MediaFrame& frame) {
    static constexpr const char* kNames[] = {"sprop-vps", "sprop-sps", "sprop-pps"};
    std::string text;
    for (const NalUnit& place : AnnexBUnits(BytesOf(frame))) {
        const Bytes unit = place.Body(BytesOf(frame));
        const int type = unit[0] >> 1 & 0x3F;
        if (type < 32 || type > 34) continue;
        text += (text.empty() ? "" : ";") + std::string(kNames[type - 32]) + "=" + Base64(unit.data(), unit.size());
    }
    return text;
}

// Everything in front of the first picture.
std::string Mpeg4Parameters(const MediaFrame& frame) {
    const Bytes bytes = BytesOf(frame);
    for (size_t i = 0; i + 4 <= bytes.size(); ++i) {
        const bool picture = bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1 && bytes[i + 3] == 0xB6;
        if (picture) return "profile-level-id=1;config=" + Hex(bytes.first(i));
    }
    return "";
}

// The AudioSpecificConfig that the ADTS header stands for.
std::string AacParameters(const MediaFrame& frame) {
    const Bytes bytes = BytesOf(frame);
    if (bytes.size() < 7) return "";
    const int object = (bytes[2] >> 6) + 1;
    const int rate = bytes[2] >> 2 & 15;
    const int channels = (bytes[2] & 1) << 2 | bytes[3] >> 6;
    const uint8_t config[2] = {static_cast<uint8_t>(object << 3 | rate >> 1),
                               static_cast<uint8_t>((rate & 1) << 7 | channels << 3)};
    return "streamtype=5;profile-level-id=1;mode=AAC-hbr;sizelength=13;indexlength=3;indexdeltalength=3;config=" +
           Hex(config);
}

struct Mapping {
    std::string name;
    std::string parameters;
};

Mapping VideoMapping(const SdpStream& video) {
    switch (video.stream->codec) {
        case MX_VIDEO_H264:
            return {"H264/90000", H264Parameters(*video.sample)};
        case MX_VIDEO_H265:
            return {"H265/90000", H265Parameters(*video.sample)};
        case MX_VIDEO_MPEG4:
            return {"MP4V-ES/90000", Mpeg4Parameters(*video.sample)};
        default:
            return {"JPEG/90000", ""};
    }
}

Mapping AudioMapping(const SdpStream& audio) {
    const std::string clock = std::to_string(audio.clock);
    const std::string layout = clock + "/" + std::to_string(audio.stream->channels);
    switch (audio.stream->codec) {
        case MX_AUDIO_AAC:
            return {"mpeg4-generic/" + layout, AacParameters(*audio.sample)};
        case MX_AUDIO_MPEG:
            return {"MPA/" + clock, ""};
        case MX_AUDIO_ALAW:
            return {"PCMA/" + layout, ""};
        case MX_AUDIO_MULAW:
            return {"PCMU/" + layout, ""};
        case MX_AUDIO_PCM8:
            return {"L8/" + layout, ""};
        default:
            return {"L16/" + layout, ""};
    }
}

std::string MediaLines(const char* kind, const SdpStream& stream, const Mapping& mapping) {
    const std::string type = std::to_string(stream.payload_type);
    std::string text = std::string("m=") + kind + " " + std::to_string(stream.port) + " RTP/AVP " + type + "\r\n";
    text += "a=rtpmap:" + type + " " + mapping.name + "\r\n";
    if (!mapping.parameters.empty()) text += "a=fmtp:" + type + " " + mapping.parameters + "\r\n";
    return text;
}

}  // namespace

std::string Base64(const uint8_t* data, size_t size) {
    static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t i = 0; i < size; i += 3) {
        const uint32_t word = static_cast<uint32_t>(data[i]) << 16 |
                              (i + 1 < size ? static_cast<uint32_t>(data[i + 1]) << 8 : 0u) |
                              (i + 2 < size ? static_cast<uint32_t>(data[i + 2]) : 0u);
        text += kDigits[word >> 18 & 63];
        text += kDigits[word >> 12 & 63];
        text += i + 1 < size ? kDigits[word >> 6 & 63] : '=';
        text += i + 2 < size ? kDigits[word & 63] : '=';
    }
    return text;
}

std::string Sdp(const std::string& host, const SdpStream& video, const SdpStream& audio) {
    const std::string kind = host.find(':') == std::string::npos ? "IP4" : "IP6";
    std::string text =
        "v=0\r\no=- 0 0 IN " + kind + " " + host + "\r\ns=muxora\r\nc=IN " + kind + " " + host + "\r\nt=0 0\r\n";
    if (video.stream != nullptr && video.sample != nullptr) text += MediaLines("video", video, VideoMapping(video));
    if (audio.stream != nullptr && audio.sample != nullptr) text += MediaLines("audio", audio, AudioMapping(audio));
    return text;
}

}  // namespace Orvane::Muxora::Tools
