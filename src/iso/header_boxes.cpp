#include "iso/header_boxes.h"

#include <cstring>

#include "core/clock.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kSecondsFrom1904To1970 = 2082844800;

constexpr uint32_t kMvhdSize = 100;
constexpr uint32_t kTkhdSize = 84;
constexpr uint32_t kMdhdSize = 24;
constexpr uint32_t kHdlrFixedSize = 24;
constexpr uint32_t kVmhdSize = 12;
constexpr uint32_t kSmhdSize = 8;
constexpr uint32_t kUrlSize = 4;
constexpr uint32_t kDrefFixedSize = 8;

constexpr uint32_t kFixedPointOne = 0x10000;  // 16.16
constexpr uint16_t kFullVolume = 0x0100;      // 8.8
constexpr uint32_t kTrackFlags = 15;          // enabled, in movie, in preview, and the size is an aspect ratio
constexpr uint16_t kUndeterminedLanguage = 0x55C4;
constexpr uint32_t kVmhdFlags = 1;
constexpr uint32_t kSelfContained = 1;
constexpr uint32_t kLongestHandlerName = sizeof "ORVXExtHandler";

// The unity matrix { 0x00010000,0,0,0,0x00010000,0,0,0,0x40000000 }.
void PutUnityMatrix(ByteCursor& out) {
    out.BE32(kFixedPointOne).Zeros(12).BE32(kFixedPointOne).Zeros(12).BE32(0x40000000);
}

}  // namespace

uint32_t CurrentBoxTime() {
    return static_cast<uint32_t>(CurrentTime() + kSecondsFrom1904To1970);
}

CBox_mvhd::CBox_mvhd() : CBox("mvhd") {
    SetDataSize(kMvhdSize);
}

// ISO/IEC 14496-12 8.2.2.2
uint32_t CBox_mvhd::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kMvhdSize];
    ByteCursor out(area);
    out.BE32(0)                    // version, flags
        .BE32(creation_time_)      // creation_time
        .BE32(modification_time_)  // modification_time
        .BE32(kMovieTimeScale)     // timescale
        .BE32(duration_)           // duration
        .BE32(kFixedPointOne)      // rate
        .BE16(kFullVolume)         // volume
        .Zeros(10);                // reserved
    PutUnityMatrix(out);           // matrix
    out.Zeros(24)                  // pre_defined
        .BE32(next_track_ID_);     // next_track_ID
    return WriteChecked(buffer, out, "CBox_mvhd:WriteData error!\n");
}

CBox_tkhd::CBox_tkhd() : CBox("tkhd") {
    SetDataSize(kTkhdSize);
}

void CBox_tkhd::Init(uint32_t trackType, const TrackInfo* info) {
    if (info == nullptr) return;
    flags_ = kTrackFlags;
    creation_time_ = CurrentBoxTime();
    modification_time_ = CurrentBoxTime();
    track_ID_ = trackType;
    if (trackType == kVideoTrack) {
        if (const auto* video = std::get_if<VideoTrackInfo>(info)) {
            width_ = video->width;
            height_ = video->height;
        }
    } else if (trackType == kAudioTrack) {
        volume_ = kFullVolume;
    } else if (trackType == kExtTrack) {
        flags_ = 0;
    }
}

// ISO/IEC 14496-12 8.3.2.2
uint32_t CBox_tkhd::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kTkhdSize];
    ByteCursor out(area);
    out.U8(0)                      // version
        .BE24(flags_)              // flags
        .BE32(creation_time_)      // creation_time
        .BE32(modification_time_)  // modification_time
        .BE32(track_ID_)           // track_ID
        .BE32(0)                   // reserved
        .BE32(duration_)           // duration
        .Zeros(8)                  // reserved
        .BE16(0)                   // layer
        .BE16(0)                   // alternate_group
        .BE16(volume_)             // volume
        .BE16(0);                  // reserved
    PutUnityMatrix(out);           // matrix
    out.BE32(width_ << 16)         // width
        .BE32(height_ << 16);      // height
    return WriteChecked(buffer, out, "CBox_tkhd:WriteData error!\n");
}

CBox_mdhd::CBox_mdhd() : CBox("mdhd") {
    SetDataSize(kMdhdSize);
}

void CBox_mdhd::Init(uint32_t trackType, const TrackInfo* info) {
    if (trackType == kVideoTrack) {
        timescale_ = kMovieTimeScale;
    } else if (const auto* audio = std::get_if<AudioTrackInfo>(info); audio != nullptr && trackType == kAudioTrack) {
        timescale_ = audio->samples_per_sec;
    }
}

// ISO/IEC 14496-12 8.4.2.2
uint32_t CBox_mdhd::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kMdhdSize];
    ByteCursor out(area);
    out.BE32(0)                       // version, flags
        .BE32(creation_time_)         // creation_time
        .BE32(modification_time_)     // modification_time
        .BE32(timescale_)             // timescale
        .BE32(duration_)              // duration
        .BE16(kUndeterminedLanguage)  // language
        .BE16(0);                     // pre_defined
    return WriteChecked(buffer, out, "CBox_mdhd:WriteData error!\n");
}

void CBox_hdlr::Init(uint32_t trackType, const TrackInfo* info) {
    if (info == nullptr) return;
    if (trackType == kVideoTrack) {
        handler_type_ = "vide";
        name_ = "VideoHandler";
    } else if (trackType == kAudioTrack) {
        handler_type_ = "soun";
        name_ = "SoundHandler";
    } else if (trackType == kExtTrack) {
        handler_type_ = "ORVX";
        name_ = "ORVXExtHandler";
    }
    SetDataSize(kHdlrFixedSize + static_cast<uint32_t>(std::strlen(name_)) + 1);
}

// ISO/IEC 14496-12 8.4.3.2
uint32_t CBox_hdlr::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kHdlrFixedSize + kLongestHandlerName];
    ByteCursor out(area);
    out.BE32(0)                                                        // version, flags
        .BE32(0)                                                       // pre_defined
        .Bytes(handler_type_, 4)                                       // handler_type
        .Zeros(12)                                                     // reserved
        .Bytes(name_, static_cast<uint32_t>(std::strlen(name_)) + 1);  // name
    return WriteChecked(buffer, out, "CBox_hdlr::WriteData error!\n");
}

CBox_vmhd::CBox_vmhd() : CBox("vmhd") {
    SetDataSize(kVmhdSize);
}

// ISO/IEC 14496-12 8.4.5.2.2
uint32_t CBox_vmhd::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kVmhdSize];
    ByteCursor out(area);
    out.U8(0)              // version
        .BE24(kVmhdFlags)  // flags
        .BE16(0)           // graphicsmode
        .Zeros(6);         // opcolor
    return WriteChecked(buffer, out, "CBox_vmhd:WriteData error!\n");
}

CBox_smhd::CBox_smhd() : CBox("smhd") {
    SetDataSize(kSmhdSize);
}

// ISO/IEC 14496-12 8.4.5.3.2
uint32_t CBox_smhd::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kSmhdSize];
    ByteCursor out(area);
    out.BE32(0)    // version, flags
        .BE16(0)   // balance
        .BE16(0);  // reserved
    return WriteChecked(buffer, out, "CBox_smhd:WriteData error!\n");
}

CBox_url::CBox_url() : CBox("url ") {
    SetDataSize(kUrlSize);
}

// ISO/IEC 14496-12 8.7.2.2
uint32_t CBox_url::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kUrlSize];
    ByteCursor out(area);
    out.U8(0)                   // version
        .BE24(kSelfContained);  // flags; no location then
    return WriteChecked(buffer, out, "CBox_url:WriteData error!\n");
}

CBox_dref::CBox_dref() : CBox("dref") {
    SetDataSize(kDrefFixedSize + url_.GetSize());
}

// ISO/IEC 14496-12 8.7.2.2
uint32_t CBox_dref::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kDrefFixedSize];
    ByteCursor out(area);
    out.BE32(0)    // version, flags
        .BE32(1);  // entry_count
    buffer->Append(area, out.Size());
    return Checked(out.Size() + url_.Write(buffer), "CBox_dref::WriteData error!\n");
}

CBox_dinf::CBox_dinf() : CBox("dinf") {
    SetDataSize(dref_.GetSize());
}

uint32_t CBox_dinf::WriteData(CGrowBuffer* buffer) const {
    return Checked(dref_.Write(buffer), "CBox_dinf::WriteData error!\n");
}

}  // namespace Orvane::Muxora
