#include "iso/sample_entries.h"

#include <utility>

#include "MuxoraAPI.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kStsdFixedSize = 8;
constexpr uint32_t kDpi72 = 0x480000;  // 16.16
constexpr uint16_t kDepthColour = 24;
constexpr uint16_t kPreDefinedNone = 0xFFFF;

constexpr uint32_t kMp4aSize = 28;
constexpr uint32_t kMp4aQuickTimeSize = 44;
constexpr uint16_t kVariableCompression = 0xFFFE;
constexpr uint32_t kSamplesPerPacket = 1024;
constexpr uint32_t kBytesPerSample = 2;

}  // namespace

void CVisualEntry::Init(uint32_t /*trackType*/, const TrackInfo* info) {
    const auto* video = std::get_if<VideoTrackInfo>(info);
    if (video == nullptr) return;
    width_ = static_cast<uint16_t>(video->width);
    height_ = static_cast<uint16_t>(video->height);
}

// ISO/IEC 14496-12 8.5.2.2, 12.1.3.2
void CVisualEntry::PutFields(ByteCursor& out) const {
    out.Zeros(6)              // reserved
        .BE16(1)              // data_reference_index
        .Zeros(16)            // pre_defined, reserved
        .BE16(width_)         // width
        .BE16(height_)        // height
        .BE32(kDpi72)         // horizresolution
        .BE32(kDpi72)         // vertresolution
        .BE32(0)              // reserved
        .BE16(1)              // frame_count
        .Zeros(32)            // compressorname
        .BE16(kDepthColour);  // depth
}

uint32_t CVisualEntry::WriteFields(CGrowBuffer* buffer) const {
    uint8_t area[kFieldsSize];
    ByteCursor out(area);
    PutFields(out);
    out.BE16(kPreDefinedNone);  // pre_defined
    buffer->Append(area, out.Size());
    return out.Size();
}

void CBox_avc1::Init(uint32_t trackType, const TrackInfo* info) {
    CVisualEntry::Init(trackType, info);
    if (const auto* video = std::get_if<VideoTrackInfo>(info)) avcC_.Init(*video);
    SetDataSize(kFieldsSize + avcC_.GetSize());
}

uint32_t CBox_avc1::WriteData(CGrowBuffer* buffer) const {
    const uint32_t fields = WriteFields(buffer);
    return Checked(fields + avcC_.Write(buffer), "CBox_avc1::WriteData error!\n");
}

void CBox_hev1::Init(uint32_t trackType, const TrackInfo* info) {
    CVisualEntry::Init(trackType, info);
    if (const auto* video = std::get_if<VideoTrackInfo>(info)) hvcC_.Init(*video);
    SetDataSize(kFieldsSize + hvcC_.GetSize());
}

uint32_t CBox_hev1::WriteData(CGrowBuffer* buffer) const {
    const uint32_t fields = WriteFields(buffer);
    return fields + hvcC_.Write(buffer);
}

void CBox_mp4v::Init(uint32_t trackType, const TrackInfo* info) {
    CVisualEntry::Init(trackType, info);
    esds_.Init(trackType, info);
    SetDataSize(kFieldsSize + esds_.GetSize());
}

void CBox_mp4v::Update(const SampleInfo& sample) {
    esds_.Update(sample);
    SetDataSize(kFieldsSize + esds_.GetSize());
}

uint32_t CBox_mp4v::WriteData(CGrowBuffer* buffer) const {
    const uint32_t fields = WriteFields(buffer);
    return Checked(fields + esds_.Write(buffer), "CBox_mp4v:WriteData error!\n");
}

uint32_t CBox_jpeg::WriteData(CGrowBuffer* buffer) const {
    return Checked(WriteFields(buffer), "CBox_mp4v:WriteData error!\n");
}

CBox_orvx::CBox_orvx() : CVisualEntry("ORVX") {
    SetDataSize(kFieldsSize - 1);
}

uint32_t CBox_orvx::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kFieldsSize];
    ByteCursor out(area);
    PutFields(out);
    // Readers rely on this: pre_defined is one byte here.
    out.U8(0xFF);
    return WriteChecked(buffer, out, "CBox_orvx::WriteData error!\n");
}

CBox_frma::CBox_frma() : CBox("frma") {
    SetDataSize(4);
}

uint32_t CBox_frma::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[4];
    ByteCursor out(area);
    out.Text("mp4a");  // data_format
    return WriteChecked(buffer, out, "CBox_frma::WriteData error!\n");
}

CBox_mp4aInWave::CBox_mp4aInWave() : CBox("mp4a") {
    SetDataSize(4);
}

uint32_t CBox_mp4aInWave::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[4];
    ByteCursor out(area);
    out.BE32(0);
    return WriteChecked(buffer, out, "CBox_mp4a:WriteData error!\n");
}

void CBox_wave::Init(uint32_t trackType, const TrackInfo* info) {
    esds_.Init(trackType, info);
    SetDataSize(frma_.GetSize() + mp4a_.GetSize() + esds_.GetSize());
}

// No terminator atom ends the list.
uint32_t CBox_wave::WriteData(CGrowBuffer* buffer) const {
    uint32_t written = frma_.Write(buffer);
    written += mp4a_.Write(buffer);
    written += esds_.Write(buffer);
    return Checked(written, "CBox_wave::WriteData error!\n");
}

void CBox_mp4a::Init(uint32_t trackType, const TrackInfo* info) {
    if (const auto* audio = std::get_if<AudioTrackInfo>(info)) {
        channelcount_ = static_cast<uint16_t>(audio->channels);
        samplesize_ = static_cast<uint16_t>(audio->bits_per_sample);
        samplerate_ = audio->samples_per_sec << 16;  // 16.16; the field has no room for more
    }
    if (quick_time_) {
        auto wave = std::make_unique<CBox_wave>();
        wave->Init(trackType, info);
        configuration_ = std::move(wave);
    } else {
        auto esds = std::make_unique<CBox_esds>();
        esds->Init(trackType, info);
        configuration_ = std::move(esds);
    }
    SetDataSize((quick_time_ ? kMp4aQuickTimeSize : kMp4aSize) + configuration_->GetSize());
}

// ISO/IEC 14496-12 12.2.3.2; QuickTime File Format, sound sample description version 1
uint32_t CBox_mp4a::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kMp4aQuickTimeSize];
    ByteCursor out(area);
    out.Zeros(6)                                       // reserved
        .BE16(1)                                       // data_reference_index
        .BE16(quick_time_ ? 1 : 0)                     // version
        .BE16(0)                                       // revision level
        .BE32(0)                                       // vendor
        .BE16(channelcount_)                           // channelcount
        .BE16(samplesize_)                             // samplesize
        .BE16(quick_time_ ? kVariableCompression : 0)  // compression ID
        .BE16(0)                                       // packet size
        .BE32(samplerate_);                            // samplerate
    if (quick_time_) {
        out.BE32(kSamplesPerPacket)  // samples per packet
            .BE32(0)                 // bytes per packet
            .BE32(0)                 // bytes per frame
            .BE32(kBytesPerSample);  // bytes per sample
    }
    buffer->Append(area, out.Size());
    const uint32_t child = configuration_ != nullptr ? configuration_->Write(buffer) : 0;
    return Checked(out.Size() + child, "CBox_mp4a:WriteData error!\n");
}

CBox_stsd::CBox_stsd(BoxVariant variant) : CBox("stsd"), variant_(variant) {
    Refresh();
}

void CBox_stsd::Init(uint32_t trackType, const TrackInfo* info) {
    if (info == nullptr || entry_ != nullptr) return;
    // Kept once it is whole: without memory for one of its parts a later call makes it anew.
    std::unique_ptr<CSampleEntry> entry = MakeEntry(trackType, info);
    if (entry != nullptr) entry->Init(trackType, info);
    entry_ = std::move(entry);
    Refresh();
}

std::unique_ptr<CSampleEntry> CBox_stsd::MakeEntry(uint32_t trackType, const TrackInfo* info) const {
    if (trackType == kAudioTrack) return std::make_unique<CBox_mp4a>(variant_);
    if (trackType == kExtTrack) return std::make_unique<CBox_orvx>();
    const auto* video = std::get_if<VideoTrackInfo>(info);
    if (video == nullptr || trackType != kVideoTrack) return nullptr;
    switch (video->encode_type) {
        case MX_VIDEO_MPEG4:
            return std::make_unique<CBox_mp4v>();
        case MX_VIDEO_H264:
        case MX_VIDEO_H264_ALT:
            return std::make_unique<CBox_avc1>();
        case MX_VIDEO_H265:
            return std::make_unique<CBox_hev1>();
        case MX_VIDEO_MJPEG:
            return std::make_unique<CBox_jpeg>();
        default:
            return nullptr;
    }
}

void CBox_stsd::Update(const SampleInfo& sample) {
    if (entry_ == nullptr) return;
    entry_->Update(sample);
    Refresh();
}

void CBox_stsd::Refresh() {
    SetDataSize(kStsdFixedSize + (entry_ != nullptr ? entry_->GetSize() : 0));
}

// ISO/IEC 14496-12 8.5.2.2
uint32_t CBox_stsd::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kStsdFixedSize];
    ByteCursor out(area);
    out.BE32(0)                            // version, flags
        .BE32(entry_ != nullptr ? 1 : 0);  // entry_count
    buffer->Append(area, out.Size());
    const uint32_t entry = entry_ != nullptr ? entry_->Write(buffer) : 0;
    return Checked(out.Size() + entry, "CBox_stsd:WriteData error!\n");
}

}  // namespace Orvane::Muxora
